// What the venue answers on order entry, read back as plain records: what became of a request, and what happens to an
// order afterwards.
//
//     if (const auto fill = read_execution(arrival.message)) executed += fill->quantity;
//
// Timestamps are wall-clock nanoseconds since the Unix epoch, prices millionths of the currency unit, quantities
// shares. Texts are lent by the message, without their padding. Each reader gives nothing for another type or another
// size.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "common/bytes.h"
#include "common/price.h"
#include "engine/meo.h"

namespace kavo::client {

// "NR": the first answer to a new order.
struct NewOrderResponse {
    std::uint64_t timestamp = 0;
    std::string_view mpid;
    std::string_view client_order_id;
    std::uint32_t product_id = 0;
    std::uint64_t order_id = 0;  // the venue's own; 0 on a reject
    WirePrice price = 0;
    std::uint32_t quantity = 0;
    meo::NewOrderReason reason = meo::NewOrderReason::accepted;

    bool accepted() const { return reason == meo::NewOrderReason::accepted; }
};

// "O1": all of an order that was accepted, as the venue has understood it.
struct OrderAccepted {
    std::uint64_t timestamp = 0;
    std::string_view mpid;
    std::uint64_t order_id = 0;
    std::string_view client_order_id;
    std::uint32_t product_id = 0;
    WirePrice price = 0;
    std::uint32_t quantity = 0;
    meo::OrderFlags flags;
    meo::TimeInForce tif = meo::TimeInForce::day;
    meo::OrderType order_type = meo::OrderType::limit;
    meo::EchoFields echo;
    std::uint64_t expire_time = 0;  // milliseconds since the Unix epoch
};

// "P1": what is left of an order rests on the book.
struct OrderResting {
    std::uint64_t timestamp = 0;
    std::uint32_t product_id = 0;
    std::uint64_t order_id = 0;
    std::string_view client_order_id;
    WirePrice price = 0;
    bool at_touch = false;  // no order of its side is better
};

// "E1": a trade, from this side of it.
struct Execution {
    std::uint64_t timestamp = 0;
    std::string_view mpid;
    std::uint32_t product_id = 0;
    std::string_view client_order_id;
    std::uint64_t match_number = 0;  // shared by both sides
    std::uint64_t execution_id = 0;  // of this side alone
    WirePrice price = 0;
    std::uint32_t quantity = 0;
    bool buy = false;
    meo::Liquidity liquidity = meo::Liquidity::added;
    char market = ' ';  // follows from where the product is listed
};

// "XN": what was left of an order is gone.
struct OrderCancelled {
    std::uint64_t timestamp = 0;
    std::string_view mpid;
    std::string_view client_order_id;
    std::uint32_t product_id = 0;
    std::uint64_t order_id = 0;
    std::uint32_t leaves = 0;  // 0; but all of an order that was never let on the book, being post-only
    meo::SystemCancelReason reason = meo::SystemCancelReason::client_request;
};

// "MR": the first answer to a replace.
struct ReplaceResponse {
    std::uint64_t timestamp = 0;
    std::string_view mpid;
    std::string_view client_order_id;
    std::string_view orig_client_order_id;
    std::uint32_t product_id = 0;
    std::uint64_t order_id = 0;
    std::uint32_t leaves = 0;
    WirePrice price = 0;
    meo::ReplaceReason reason = meo::ReplaceReason::accepted;

    bool accepted() const { return reason == meo::ReplaceReason::accepted; }
};

// "MN": the order as it stands after a replace, with its new total as its quantity. Without leaves it is closed.
struct ReplaceNotification {
    std::uint64_t timestamp = 0;
    std::string_view mpid;
    std::string_view client_order_id;
    std::string_view orig_client_order_id;
    std::uint32_t product_id = 0;
    std::uint64_t order_id = 0;
    WirePrice price = 0;
    std::uint32_t quantity = 0;
    std::uint32_t leaves = 0;
    char echo = 0;
    meo::TimeInForce tif = meo::TimeInForce::day;
};

// "CR": the first answer to a cancel. The order itself ends with an "XN".
struct CancelResponse {
    std::uint64_t timestamp = 0;
    std::string_view mpid;
    std::string_view client_order_id;
    std::string_view orig_client_order_id;
    std::uint32_t product_id = 0;
    std::uint64_t order_id = 0;  // 0 where no such order is known
    meo::CancelReason reason = meo::CancelReason::accepted;

    bool accepted() const { return reason == meo::CancelReason::accepted; }
};

// "SN": the first message of every stream.
struct StartOfSession {
    std::uint64_t timestamp = 0;
    std::string_view version;
    std::uint8_t session = 0;
};

// "SU": a product that can be traded; one for each follows the start of session.
struct SymbolUpdate {
    std::uint64_t timestamp = 0;
    std::uint32_t product_id = 0;
    std::string_view symbol;
    char listing_market = ' ';
};

std::optional<NewOrderResponse> read_new_order_response(ByteView message);
std::optional<OrderAccepted> read_order_accepted(ByteView message);
std::optional<OrderResting> read_order_resting(ByteView message);
std::optional<Execution> read_execution(ByteView message);
std::optional<OrderCancelled> read_order_cancelled(ByteView message);
std::optional<ReplaceResponse> read_replace_response(ByteView message);
std::optional<ReplaceNotification> read_replace_notification(ByteView message);
std::optional<CancelResponse> read_cancel_response(ByteView message);
std::optional<StartOfSession> read_start_of_session(ByteView message);
std::optional<SymbolUpdate> read_symbol_update(ByteView message);

}  // namespace kavo::client
