// A book written down the way one would explain it: maps of prices, queues of orders, and a map of client order ids.
// It is the yardstick next to the core: whatever the machine, both have run the same flow on it.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <string>
#include <unordered_map>

#include "flow.h"

namespace kavo::benchmarks {

class LiteralBook {
public:
    void apply(const Operation& operation);

    std::vector<FlowTrade> trades;
    std::vector<FlowLevel> levels() const;

private:
    struct Resting {
        std::uint64_t number;
        std::string id;
        std::uint32_t quantity;
    };
    using Queue = std::deque<Resting>;
    struct Place {
        std::uint64_t number;
        bool buy;
        Price price;
    };

    void rest(std::uint64_t number, const Operation& operation);
    Place take_out(const std::string& id);
    template <typename Side>
    void trade(Side& side, const Operation& operation);

    std::map<Price, Queue, std::greater<>> bids_;
    std::map<Price, Queue> asks_;
    std::unordered_map<std::string, Place> places_;
    std::uint64_t next_number_ = 1;
};

}  // namespace kavo::benchmarks
