// The core in its plainest quick form, for telling what the real one's care is worth: an ordered map of levels, each a
// list through the orders, pooled records, and one open-addressing table with the ids themselves as its keys. It knows
// no owners, and its table grows all at once, however long that takes.
#pragma once

#include <deque>
#include <map>

#include "flow.h"

namespace kavo::benchmarks {

class SketchBook {
public:
    void apply(const Operation& operation);

    std::vector<FlowTrade> trades;
    std::vector<FlowLevel> levels() const;

private:
    struct Level;
    struct Resting {
        std::uint64_t number = 0;
        Id id{};
        bool buy = false;
        std::uint32_t quantity = 0;
        Level* level = nullptr;
        Resting* ahead = nullptr;
        Resting* behind = nullptr;
    };
    struct Level {
        Price price = 0;
        std::uint64_t total = 0;
        Resting* first = nullptr;
        Resting* last = nullptr;
    };
    struct Entry {
        Id id{};
        Resting* order = nullptr;
    };
    using Side = std::map<std::int64_t, Level>;  // best first: asks by price, bids by minus price

    std::size_t home_of(const Id& id) const;
    std::size_t after(std::size_t at) const { return (at + 1) & (table_.size() - 1); }
    Entry& entry_of(const Id& id);  // the empty one where it belongs, when it is not there
    void grow();
    void forget(const Id& id);

    void add(const Operation& operation, std::uint64_t number);
    std::uint64_t take_out(const Id& id);
    void take(const Operation& operation);
    void remove(Resting& order);
    Side& side(bool buy) { return buy ? bids_ : asks_; }

    Side bids_;
    Side asks_;
    std::vector<Entry> table_{2};  // a power of two, at most half full
    std::deque<Resting> records_;
    std::vector<Resting*> free_;
    std::uint64_t next_number_ = 1;
};

}  // namespace kavo::benchmarks
