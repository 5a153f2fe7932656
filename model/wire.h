// The wire, stated a second time. Every offset below is written as a plain number and nothing is shared with the
// simulator's own layout tables: a slip in either statement makes the two disagree.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "model/records.h"

namespace kavo::model {

struct Product;

// Requests. Nothing is returned when the message is too short or of another type; content is never judged here.
std::optional<NewOrder> read_new_order(const Bytes& message);
std::optional<Replace> read_replace(const Bytes& message);
std::optional<Cancel> read_cancel(const Bytes& message);

// Answers. `now_ns` is wall-clock time since the epoch; an order's price is given in ten-thousandths.
Bytes new_order_response(std::uint64_t now_ns, const NewOrder& request, std::uint64_t order_id, char reason);
Bytes order_accepted(std::uint64_t now_ns, const NewOrder& request, std::uint64_t order_id);
Bytes order_resting(std::uint64_t now_ns, const Order& order, bool at_best);
Bytes order_cancelled(std::uint64_t now_ns, const Order& order, std::uint32_t leaves, char reason);
Bytes replace_response(std::uint64_t now_ns, const Replace& request, std::uint64_t order_id, std::uint32_t new_leaves,
                       char reason);
Bytes replace_notice(std::uint64_t now_ns, const Replace& request, const Order& order, std::uint32_t new_leaves);
Bytes cancel_response(std::uint64_t now_ns, const Cancel& request, std::uint64_t order_id, char reason);

struct Fill {
    std::uint64_t match_number = 0;
    std::uint64_t execution_id = 0;
    std::uint32_t price = 0;
    std::uint32_t quantity = 0;
    char liquidity = 'A';  // 'A' added by the resting order, 'R' removed by the incoming one
};
Bytes execution(std::uint64_t now_ns, const Order& order, char listing, const Fill& fill);

Bytes start_of_session_message(std::uint64_t now_ns, std::uint8_t session);
Bytes symbol_update(std::uint64_t now_ns, const Product& product);

// Feed messages. `now_ns` is the whole wall clock; what goes out is the part within the second.
Bytes system_time(std::uint64_t now_ns);
Bytes system_state(std::uint64_t now_ns, std::uint8_t session);
Bytes series_definition(std::uint64_t now_ns, const Product& product);
Bytes series_open(std::uint64_t now_ns, const Product& product);
Bytes series_status(std::uint64_t now_ns, const Product& product);
Bytes add_order(std::uint64_t now_ns, const Order& order);
Bytes modify_order(std::uint64_t now_ns, const Order& order, bool lost_priority);
Bytes delete_order(std::uint64_t now_ns, const Order& order);
Bytes order_executed(std::uint64_t now_ns, const Order& order, const Fill& fill);
// The order as an Add Order shows it.
Order read_add_order(const Bytes& message);

// Bytes as hexadecimal pairs, and in the clear where they are letters, for the message of a failed comparison.
std::string hex(const Bytes& message);

}  // namespace kavo::model
