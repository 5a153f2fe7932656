// A client replaces an order: another price, another total size, another client order id; the same order id.
#include "engine/engine.h"

namespace kavo {

using meo::ReplaceReason;

namespace {

std::string_view reject_text(ReplaceReason reason) {
    switch (reason) {
        case ReplaceReason::duplicate_client_order_id: return "duplicate";
        case ReplaceReason::invalid_price:
        case ReplaceReason::no_quantity: return "invalid";
        case ReplaceReason::scripted: return "bench:scripted_replace_reject";
        default: return "";
    }
}

}  // namespace

void Engine::replace(ClientHandle client, const meo::ReplaceRequest& request, OutboundMessages& answers) {
    const Event event{clock_.wall_ns(), answers};
    const std::uint64_t now_ns = event.now_ns;
    const auto answer = [&](std::uint64_t order_id, std::uint32_t leaves, ReplaceReason reason) {
        answers.push_back({client, build(meo::ReplaceResponse{now_ns, request, order_id, leaves, reason})});
    };
    const auto notify = [&](std::uint64_t order_id, std::uint32_t product_id, std::uint32_t leaves) {
        answer(order_id, leaves, ReplaceReason::accepted);
        answers.push_back({client, build(meo::ReplaceNotification{now_ns, request, product_id, order_id, leaves})});
    };

    Order* order = find_own(client, request.orig_client_order_id);
    if (order == nullptr) {
        record_missed_replace(request, now_ns);
        return answer(0, 0, ReplaceReason::unknown_or_late);
    }
    const std::uint64_t order_id = order->id;
    const std::uint32_t product_id = order->product_id;
    ReplaceReason reason = check(request, *order);
    if (reason != ReplaceReason::accepted) {
        ++bench_.counters.replace_rejects;
    } else if (scripted_to_reject(request)) {
        reason = ReplaceReason::scripted;
    }
    if (reason != ReplaceReason::accepted) {
        if (reason != ReplaceReason::mpid_mismatch) write_replace_reject(request, order, reject_text(reason), now_ns);
        return answer(order_id, 0, reason);
    }
    if (request.quantity <= order->executed) {
        cancel_resting(*order, meo::SystemCancelReason::client_request, "modify_closed", event);
        return notify(order_id, product_id, 0);
    }

    apply(request, *order);
    notify(order_id, product_id, order->leaves);
    write_replace_truth(request, *order, now_ns);
    record_close(request.orig_client_order_id);
    if (books.of(*order).side(!order->buy).crossed_by(order->price)) match_replaced(*order, event);
}

ReplaceReason Engine::check(const meo::ReplaceRequest& request, const Order& order) const {
    if (live_ids_.find(request.client_order_id) != nullptr) return ReplaceReason::duplicate_client_order_id;
    if (order.mpid != request.mpid) return ReplaceReason::mpid_mismatch;
    if (request.price == 0 || request.price % wire_cent != 0) return ReplaceReason::invalid_price;
    if (request.quantity == 0) return ReplaceReason::no_quantity;
    return ReplaceReason::accepted;
}

// Counts a replace that has passed every check, and rejects it all the same when the script says so.
bool Engine::scripted_to_reject(const meo::ReplaceRequest& request) {
    ++bench_.counters.replace_requests;
    if (!bench_.fires(Scripted::replace_reject)) return false;
    commentary_.say("bench: scripted replace reject for %s -> %s (the order stands as it was)\n",
                    request.orig_client_order_id.str().c_str(), request.client_order_id.str().c_str());
    return true;
}

// The replacement queues behind the orders at its price even when it is reported as keeping its priority: on this venue
// the flag shows on the feed and nowhere else.
void Engine::apply(const meo::ReplaceRequest& request, Order& order) {
    order.original_size = request.quantity;
    order.tif = request.tif == meo::TimeInForce::immediate ? meo::TimeInForce::day : request.tif;
    live_ids_.rename(order, request.client_order_id);
    books.replace(order, from_wire(request.price), request.quantity - order.executed);
    ++bench_.counters.replaces;
}

// A replacement that crosses leaves the book again and comes in like a new order. Nothing is asked about its terms: it
// is never post-only, all-or-nothing or immediate, and whatever does not trade rests.
void Engine::match_replaced(Order& order, Event event) {
    books.remove(order);
    match(order, event);
    if (order.leaves == 0) return end(order);
    rest_remainder(order, event);
}

void Engine::record_missed_replace(const meo::ReplaceRequest& request, std::uint64_t now_ns) {
    const bool late = closed_lately(request.orig_client_order_id);
    if (!late) commentary_.say("bench: stale replace for %s\n", request.orig_client_order_id.str().c_str());
    write_replace_reject(request, nullptr, late ? "late" : "unknown_order", now_ns);
}

void Engine::write_replace_truth(const meo::ReplaceRequest& request, const Order& order, std::uint64_t now_ns) {
    OrderEvent event = event_of("replace", order, books.of(order), now_ns);
    event.leaves = order.leaves;
    event.reference = request.orig_client_order_id.view();
    order_truth.write(event);
}

//   order  the one to be replaced; none when it is unknown or has ended
void Engine::write_replace_reject(const meo::ReplaceRequest& request, const Order* order, std::string_view text,
                                  std::uint64_t now_ns) {
    OrderEvent event{.event = "replace_reject",
                     .timestamp = now_ns,
                     .client_order_id = request.client_order_id.view(),
                     .quantity = request.quantity,
                     .price = from_wire(request.price),
                     .text = text,
                     .reference = request.orig_client_order_id.view()};
    if (order != nullptr) {
        event.order_id = order->id;
        event.symbol = books.of(*order).symbol;
        event.side = order->side();
    }
    order_truth.write(event);
}

}  // namespace kavo
