// The books of all products as a receiver of the feed sees them, rebuilt from nothing but its messages.
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "model/literal_records.h"

namespace kavo::model {

class FeedBook {
public:
    // Takes one feed message; those that do not change a book are passed over. A message that no book could follow,
    // such as one that names an unknown order, throws.
    void apply(const Bytes& message);

    // Best first.
    std::vector<Level> levels(std::uint32_t secid, bool buy) const;

    struct Resting {
        std::uint64_t id = 0;
        std::uint32_t secid = 0;
        bool buy = false;
        std::uint64_t price = 0;  // the wire's millionths
        std::uint32_t quantity = 0;
        bool operator==(const Resting&) const = default;
    };
    // Product by product, bids before asks, best level first, first come first within a level.
    std::vector<Resting> resting_orders() const;

private:
    struct SideKey {
        std::uint32_t secid = 0;
        bool sell = false;  // bids come first
        auto operator<=>(const SideKey&) const = default;
    };

    Side& side_of(const Resting& order);
    void add(const Resting& order);
    void take_off(const Resting& order);

    std::map<std::uint64_t, Resting> orders_;
    std::map<SideKey, Side> sides_;
};

// Reads an Add Order.
FeedBook::Resting read_add_order(const Bytes& message);

}  // namespace kavo::model
