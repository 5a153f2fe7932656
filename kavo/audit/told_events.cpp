#include "kavo/audit/told_events.h"

#include <algorithm>
#include <charconv>

#include "client/responses.h"

namespace kavo::companion {

namespace {

using namespace client;

std::optional<ToldEvent> told(const NewOrderResponse& m) {
    if (!m.accepted() && m.reason != meo::NewOrderReason::scripted) return std::nullopt;
    ToldEvent event{.event = m.accepted() ? "new" : "reject",
                    .t_ns = m.timestamp,
                    .client_order_id = m.client_order_id,
                    .order_id = m.order_id,
                    .product_id = m.product_id,
                    .quantity = m.quantity,
                    .price = m.price};
    event.causes = {m.accepted() ? "" : "bench:scripted_reject"};
    return event;
}

ToldEvent told(const OrderAccepted& m) {
    return {.event = "new",
            .t_ns = m.timestamp,
            .client_order_id = m.client_order_id,
            .order_id = m.order_id,
            .product_id = m.product_id,
            .side = m.flags.sell() ? 'S' : 'B',
            .quantity = m.quantity,
            .price = m.price,
            .owns_line = false};
}

// The price in its line is the order's own, not that of the trade.
ToldEvent told(const Execution& m) {
    return {.event = "fill",
            .t_ns = m.timestamp,
            .client_order_id = m.client_order_id,
            .product_id = m.product_id,
            .side = m.buy ? 'B' : 'S',
            .last_quantity = m.quantity,
            .causes = {""}};
}

std::vector<std::string_view> causes_of(meo::SystemCancelReason reason) {
    switch (reason) {
        case meo::SystemCancelReason::post_only: return {"post_only"};
        case meo::SystemCancelReason::expired: return {"expired"};
        case meo::SystemCancelReason::client_request: return {"cancel", "modify_closed"};
        case meo::SystemCancelReason::disconnect: return {"disconnect"};
        case meo::SystemCancelReason::unsolicited: return {"unsolicited"};
    }
    return {"none"};
}

ToldEvent told(const OrderCancelled& m) {
    return {.event = "cancel",
            .t_ns = m.timestamp,
            .client_order_id = m.client_order_id,
            .order_id = m.order_id,
            .product_id = m.product_id,
            .leaves = m.leaves,
            .causes = causes_of(m.reason)};
}

std::vector<std::string_view> causes_of(meo::ReplaceReason reason) {
    switch (reason) {
        case meo::ReplaceReason::unknown_or_late: return {"late", "unknown_order"};
        case meo::ReplaceReason::duplicate_client_order_id: return {"duplicate"};
        case meo::ReplaceReason::invalid_price:
        case meo::ReplaceReason::no_quantity: return {"invalid"};
        case meo::ReplaceReason::scripted: return {"bench:scripted_replace_reject"};
        default: return {""};
    }
}

// One that has closed its order is told by the cancel alone.
std::optional<ToldEvent> told(const ReplaceResponse& m) {
    if (m.reason == meo::ReplaceReason::mpid_mismatch || (m.accepted() && m.leaves == 0)) return std::nullopt;
    ToldEvent event{.event = m.accepted() ? "replace" : "replace_reject",
                    .t_ns = m.timestamp,
                    .client_order_id = m.client_order_id,
                    .order_id = m.order_id,
                    .price = m.price,
                    .original = m.orig_client_order_id};
    event.leaves = m.leaves;
    event.causes = causes_of(m.reason);
    return event;
}

std::optional<ToldEvent> told(const ReplaceNotification& m) {
    if (m.leaves == 0) return std::nullopt;
    return ToldEvent{.event = "replace",
                     .t_ns = m.timestamp,
                     .client_order_id = m.client_order_id,
                     .order_id = m.order_id,
                     .product_id = m.product_id,
                     .quantity = m.quantity,
                     .price = m.price,
                     .leaves = m.leaves,
                     .original = m.orig_client_order_id,
                     .owns_line = false};
}

// The line of a cancel that was carried out belongs to the report that the order is gone.
std::optional<ToldEvent> told(const CancelResponse& m) {
    if (m.accepted()) {
        return ToldEvent{.event = "cancel",
                         .t_ns = m.timestamp,
                         .client_order_id = m.orig_client_order_id,
                         .order_id = m.order_id,
                         .causes = {"cancel"},
                         .owns_line = false};
    }
    if (m.reason != meo::CancelReason::unknown_or_late) return std::nullopt;
    return ToldEvent{.event = "cancel_reject",
                     .t_ns = m.timestamp,
                     .client_order_id = m.orig_client_order_id,
                     .causes = {"late", "stale"},
                     .may_be_race = true};
}

// The number that the venue writes for a price, with its six significant digits.
double written(WirePrice price) {
    std::string text;
    append_short_price(text, from_wire(price));
    double number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

}  // namespace

std::optional<ToldEvent> told_event(ByteView message) {
    if (const auto m = read_new_order_response(message)) return told(*m);
    if (const auto m = read_order_accepted(message)) return told(*m);
    if (const auto m = read_execution(message)) return told(*m);
    if (const auto m = read_order_cancelled(message)) return told(*m);
    if (const auto m = read_replace_response(message)) return told(*m);
    if (const auto m = read_replace_notification(message)) return told(*m);
    if (const auto m = read_cancel_response(message)) return told(*m);
    return std::nullopt;
}

std::string difference(const ToldEvent& told, const OrderLine& line, const std::vector<std::string>& symbols) {
    const auto differs = [](const auto& value, auto written_down) { return value && *value != written_down; };
    if (differs(told.order_id, line.order_id)) return "oid " + std::to_string(line.order_id);
    if (differs(told.side, line.side)) return "side " + std::string(1, line.side);
    if (differs(told.quantity, line.quantity)) return "qty " + std::to_string(line.quantity);
    if (told.price && written(*told.price) != line.price) return "another px";
    if (differs(told.leaves, line.leaves)) return "leaves " + std::to_string(line.leaves);
    if (differs(told.last_quantity, line.last_quantity)) return "last_qty " + std::to_string(line.last_quantity);
    if (differs(told.original, line.original)) return "ref " + std::string(line.original);
    if (told.product_id && *told.product_id != 0 && *told.product_id <= symbols.size() &&
        line.symbol != symbols[*told.product_id - 1]) {
        return "symbol " + std::string(line.symbol);
    }
    if (!told.causes.empty() && std::ranges::find(told.causes, line.text) == told.causes.end()) {
        return "text " + std::string(line.text);
    }
    return {};
}

}  // namespace kavo::companion
