// When the orders of recent client order ids ended: what tells a request that comes too late from one that is wrong.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "engine/meo.h"

namespace kavo {

// Bounded crudely, on purpose: the insertion that would leave more ids than the limit forgets them all, its own
// included. Forgetting is one increment, however many there are.
class ClosedIds {
public:
    static constexpr std::size_t limit_ids = 50'000;

    ClosedIds() : marks_(table_entries), entries_(table_entries) {}

    void close(const meo::ClientOrderId& id, std::uint64_t now_ms);
    // When the latest order with this id ended, as far as that is remembered.
    std::optional<std::uint64_t> closed_at_ms(const meo::ClientOrderId& id) const;

    std::size_t limit = limit_ids;  // which it may not exceed

private:
    static constexpr std::size_t table_entries = 65'536;  // a power of two above the limit

    // What a search looks at, apart from what it finds, so that it stays in the cache.
    struct Mark {
        std::uint32_t hash = 0;
        std::uint32_t generation = 0;  // an entry of another generation than the present one is empty
    };
    struct Entry {
        meo::ClientOrderId id;
        std::uint64_t closed_ms = 0;
    };
    bool used(std::size_t at) const { return marks_[at].generation == generation_; }
    std::size_t find(const meo::ClientOrderId& id) const;  // its entry, or the empty one where it belongs

    std::vector<Mark> marks_;
    std::vector<Entry> entries_;
    std::uint32_t generation_ = 1;
    std::size_t used_ = 0;
};

}  // namespace kavo
