// What a client asks of the venue, and what the venue remembers of an order.
#pragma once

#include <cstddef>
#include <cstdint>
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
struct Replace {
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

// An order of the venue. Prices are ten-thousandths from here on, of which 32 bits are kept; the owner is negative for
// the synthetic market.
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
    std::uint32_t size = 0;  // as the client asked for it last
    std::uint32_t executed = 0;

    void fill(std::uint32_t quantity) {
        leaves -= quantity;
        executed += quantity;
    }
};

inline std::uint32_t book_price(std::uint64_t wire_price) {
    return static_cast<std::uint32_t>(wire_price / 100);
}

// How much is kept for whoever comes back for it, and how much is done at once.
struct Limits {
    std::size_t feed_messages = 200'000;
    std::size_t stream_messages = 500'000;  // of each user
    std::size_t closed_ids = 50'000;
    std::size_t held_bytes = 1'048'576;  // of what a client says behind its replay
    int accepts = 256;                   // by each service in a pass
    int commands = 256;                  // in a pass
    std::size_t send_bytes = 1'048'576;
};

struct Symbol {
    std::string name;
    double reference = 100.0;  // currency units
};

}  // namespace kavo::model
