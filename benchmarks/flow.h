// One flow of orders that any book can be fed with, so that books are compared on the very same work: 55 % new orders
// around a moving middle, 35 % cancels of a random live order, 5 % replaces, and 5 % marketable orders that take off
// what the rest has put on too much. The number of live orders stays where the prefill has left it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "common/price.h"
#include "ids.h"

namespace kavo::benchmarks {

enum class Act : char {
    add,      // rests: its price never reaches the other side
    cancel,   // of `target`, which is live
    replace,  // of `target`: another id, price and size, behind all others at its price; never reaches the other side
    take,     // trades whole against what is within its price, and nothing of it is left
};

struct Operation {
    Act act = Act::add;
    bool buy = false;
    Price price = 0;
    std::uint32_t quantity = 0;
    Id id{};      // of the new order or of the replacement
    Id target{};  // of the order to be cancelled or replaced
};

struct Flow {
    std::vector<Operation> prefill;  // new orders alone
    std::vector<Operation> steady;
};

// The same flow for the same arguments, from every compiler.
Flow make_flow(std::size_t live_orders, std::size_t steady_operations, std::uint64_t seed);

// One match, for telling whether two books did the same. Books number their orders from 1, in the order of the adds.
struct FlowTrade {
    std::uint64_t maker = 0;
    Price price = 0;
    std::uint32_t quantity = 0;

    bool operator==(const FlowTrade&) const = default;
};

// What rests at one price, in a list of all levels: bids from the best on, then asks from the best on.
struct FlowLevel {
    bool buy = false;
    Price price = 0;
    std::uint64_t total = 0;
    std::size_t orders = 0;

    bool operator==(const FlowLevel&) const = default;
};

}  // namespace kavo::benchmarks
