// Cancels that a client asks for, and the one routine behind every order that the venue takes away.
#include <optional>

#include "engine/engine.h"

namespace kavo {

using meo::CancelReason;

void Engine::cancel(ClientHandle client, const meo::CancelRequest& request, OutboundMessages& answers) {
    const Event event{clock_.wall_ns(), answers};
    const std::uint64_t now_ns = event.now_ns;
    const auto answer = [&](std::uint64_t order_id, CancelReason reason) {
        answers.push_back({client, build(meo::CancelResponse{now_ns, request, order_id, reason})});
    };
    Order* order = find_own(client, request.orig_client_order_id);
    if (order == nullptr) {
        record_missed_cancel(request, now_ns);
        return answer(0, CancelReason::unknown_or_late);
    }
    if (order->mpid != request.mpid) return answer(order->id, CancelReason::mpid_mismatch);
    if (order->product_id != request.product_id) return answer(order->id, CancelReason::product_mismatch);
    ++bench_.counters.cancel_requests;
    if (bench_.fires(Scripted::fill_on_cancel)) {
        lose_race(client, *order, event);
        return answer(0, CancelReason::unknown_or_late);
    }
    answer(order->id, CancelReason::accepted);
    cancel_resting(*order, meo::SystemCancelReason::client_request, "cancel", event);
}

// The client sees its execution before the reject of its cancel; messages for others stay queued.
void Engine::lose_race(ClientHandle client, Order& order, Event event) {
    ++bench_.counters.race_fills;
    commentary_.say("bench: cancel of %s loses the race to a fill (executed in full; the cancel is rejected 'D')\n",
                    order.client_order_id.str().c_str());
    fill_resting(order, order.leaves, event.now_ns, PartialFills::never);
    OutboundMessages others;
    for (const OutboundMessage& message : outbox) {
        (message.client == client ? event.answers : others).push_back(message);
    }
    outbox.swap(others);
}

// For an order that the client does not have, or no longer: a cancel that comes soon after the end is late, any other
// stale.
void Engine::record_missed_cancel(const meo::CancelRequest& request, std::uint64_t now_ns) {
    const bool late = closed_lately(request.orig_client_order_id);
    ++(late ? bench_.counters.late_cancels : bench_.counters.stale_cancels);
    if (!late) {
        static_assert(late_limit_ms == 2000, "the text says so");
        const bool known = closed_ids.closed_at_ms(request.orig_client_order_id).has_value();
        commentary_.say("bench: stale cancel for %s (%s)\n", request.orig_client_order_id.str().c_str(),
                        known ? "closed more than 2 s ago" : "unknown client order id");
    }
    const Product* product = books.find(request.product_id);
    order_truth.write({.event = "cancel_reject",
                       .timestamp = now_ns,
                       .client_order_id = request.orig_client_order_id.view(),
                       .symbol = product != nullptr ? std::string_view(product->symbol) : "",
                       .text = late ? "late" : "stale"});
}

// Takes a resting order away whole, and tells its owner why.
void Engine::cancel_resting(Order& order, meo::SystemCancelReason reason, std::string_view text, Event event) {
    const meo::ClientOrderId id = order.client_order_id;
    system_cancel(order, order.leaves, reason, text, event);
    books.remove(order);
    end(order);
    record_close(id);
}

// Tells the owner that the venue cancels `quantity` of the order, counts it and writes it down. The order itself is
// the caller's business.
void Engine::system_cancel(const Order& order, std::uint32_t quantity, meo::SystemCancelReason reason,
                           std::string_view text, Event event) {
    const std::uint32_t leaves = order.leaves - quantity;
    event.answers.push_back({order.owner, build(meo::OrderCancelled{event.now_ns, order.mpid, order.client_order_id,
                                                                    order.product_id, order.id, leaves, reason})});
    ++bench_.counters.cancels;
    OrderEvent cancelled = event_of("cancel", order, books.of(order), event.now_ns);
    cancelled.leaves = leaves;
    cancelled.text = text;
    order_truth.write(cancelled);
}

// The record of an order that is not on the book goes back to the pool, and its client order id is free again.
void Engine::end(Order& order) {
    if (order.has_owner()) {
        live_ids_.remove(order);
        open_orders_.remove(order);
    }
    books.discard(order);
}

void Engine::record_close(const meo::ClientOrderId& id) {
    closed_ids.close(id, clock_.steady_ms());
}

bool Engine::closed_lately(const meo::ClientOrderId& id) const {
    const std::optional<std::uint64_t> closed_ms = closed_ids.closed_at_ms(id);
    return closed_ms && elapsed_ms(clock_.steady_ms(), *closed_ms) < late_limit_ms;
}

}  // namespace kavo
