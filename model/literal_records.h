// The plain records of the literal venue: what a client asks, and what the venue remembers.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <vector>

namespace kavo::model {

using Bytes = std::vector<std::uint8_t>;

// A new order as read from the wire; price in the wire's millionths.
struct NewOrder {
    std::string mpid;
    std::string client_order_id;
    std::uint32_t product_id = 0;
    std::uint64_t price = 0;
    std::uint32_t size = 0;
    std::uint16_t order_flags = 0;
    char tif = ' ';
    char order_type = ' ';
    Bytes size_to_order_type;  // eight bytes that the acceptance repeats as they came
    std::uint32_t echo_a = 0;
    std::uint64_t echo_b = 0;
    std::uint8_t echo_c = 0;
    std::string echo_text_a;
    std::string echo_text_b;
    std::uint64_t echo_d = 0;
    std::uint32_t echo_e = 0;
    std::uint64_t echo_f = 0;
    std::string echo_text_c;
    std::uint8_t echo_g = 0;
    std::uint64_t expire_time = 0;
};

// A replace as read from the wire; price in the wire's millionths.
struct Modify {
    std::string mpid;
    std::string client_order_id;
    std::string orig_client_order_id;
    std::uint32_t field_h = 0;
    std::uint64_t price = 0;
    std::uint32_t size = 0;
    std::uint8_t field_i = 0;
    char tif = ' ';
};

struct Cancel {
    std::string mpid;
    std::string client_order_id;
    std::string orig_client_order_id;
    std::uint32_t product_id = 0;
};

// An order of the books; price in ten-thousandths, owner negative for the synthetic market.
struct Order {
    std::uint64_t id = 0;
    std::uint32_t product_id = 0;
    bool buy = false;
    std::uint32_t price = 0;
    std::uint32_t leaves = 0;
    int owner = -1;
    std::string client_order_id;
    std::string mpid;
    char tif = 'D';
    char order_type = '1';
    std::uint16_t order_flags = 0;
};

// One comparison serves both sides of a book: the highest bid and the lowest ask come first.
struct BestFirst {
    bool bids = false;
    bool operator()(std::uint32_t left, std::uint32_t right) const { return bids ? left > right : left < right; }
};

using Queue = std::deque<std::uint64_t>;                 // order ids, first come first
using Side = std::map<std::uint32_t, Queue, BestFirst>;  // price in ten-thousandths

struct Product {
    std::string name;
    std::uint32_t product_id = 0;
    char listing = 'Q';
    double reference = 0.0;  // currency units
    Side bids{BestFirst{true}};
    Side asks{BestFirst{false}};
    std::uint32_t last = 0;    // price of the latest fill of a resting order, ten-thousandths
    std::uint64_t volume = 0;  // shares taken from resting orders

    Side& side(bool buy) { return buy ? bids : asks; }
    const Side& side(bool buy) const { return buy ? bids : asks; }
};

struct Level {
    std::uint32_t price = 0;
    std::uint64_t total = 0;
    bool operator==(const Level&) const = default;
};

}  // namespace kavo::model
