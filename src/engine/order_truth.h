// What really happened to every order, one JSON line for each event, for a test to hold a client's view against.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "common/line_log.h"
#include "engine/book.h"

namespace kavo {

// One line. Texts are written as they are: what a client put into its ids is what the test will look for.
struct OrderEvent {
    std::string_view event;
    std::uint64_t timestamp;  // the one on the responses that tell of the event
    std::string_view client_order_id;
    std::uint64_t order_id = 0;  // 0 when none was assigned
    std::string_view symbol = {};
    char side = ' ';  // 'B', 'S', or a blank when there is none
    std::uint32_t quantity = 0;
    Price price = 0;
    std::uint32_t executed = 0;
    std::uint32_t leaves = 0;
    std::uint32_t last_quantity = 0;
    std::string_view text = {};
    std::string_view reference = {};  // the key is left out when empty
};

// An event with everything that the order itself says about it, but its leaves.
OrderEvent event_of(std::string_view event, const Order& order, const Product& product, std::uint64_t now_ns);

class OrderTruth {
public:
    LineLog log;

    // Flushes the line, so that the log tells all even when the process is killed.
    void write(const OrderEvent& event);

private:
    std::string line_;
};

}  // namespace kavo
