// A new order: the checks in their order, the acceptance, and what becomes of what does not trade.
#include "engine/engine.h"

namespace kavo {

namespace {

using meo::NewOrderReason;
using meo::OrderType;
using meo::TimeInForce;

bool is_valid_price(const meo::NewOrderRequest& request) {
    if (request.order_type == OrderType::market) return request.price == 0;
    return request.price != 0 && request.price % wire_cent == 0;
}

bool is_known(TimeInForce tif) {
    switch (tif) {
        case TimeInForce::day:
        case TimeInForce::extended:
        case TimeInForce::fill_or_kill:
        case TimeInForce::immediate:
        case TimeInForce::regular:
        case TimeInForce::timed: return true;
    }
    return false;
}

bool is_valid_expire_time(const meo::NewOrderRequest& request, std::uint64_t now_ns) {
    if (request.tif == TimeInForce::timed) return request.expire_time > now_ns / ns_per_ms;
    return request.expire_time == 0;
}

bool never_rests(const Order& order) {
    return order.tif == TimeInForce::immediate || order.tif == TimeInForce::fill_or_kill ||
           order.order_type == OrderType::market;
}

}  // namespace

void Engine::new_order(ClientHandle client, const meo::NewOrderRequest& request, OutboundMessages& answers) {
    const Event event{clock_.wall_ns(), answers};
    const std::uint64_t now_ns = event.now_ns;
    NewOrderReason reason = check(request, now_ns);
    if (reason == NewOrderReason::accepted && scripted_to_reject(request, now_ns)) reason = NewOrderReason::scripted;
    if (reason != NewOrderReason::accepted) {
        answers.push_back({client, build(meo::NewOrderResponse{now_ns, request, 0, reason})});
        return;
    }

    Order& order = accept(client, request, event);
    if (cancelled_before_matching(order, event)) return;
    match(order, event);
    if (order.leaves == 0) return end(order);  // no close time: a later cancel of it is stale at once, deliberately
    if (never_rests(order)) {
        system_cancel(order, order.leaves, meo::SystemCancelReason::expired, "expired", event);
        record_close(order.client_order_id);
        return end(order);
    }
    rest_remainder(order, event);
    schedule_unsolicited_cancel(order);
}

NewOrderReason Engine::check(const meo::NewOrderRequest& request, std::uint64_t now_ns) const {
    if (books.find(request.product_id) == nullptr) return NewOrderReason::unknown_product;
    if (request.client_order_id.empty()) return NewOrderReason::no_client_order_id;
    if (!request.mpid.complete()) return NewOrderReason::invalid_mpid;
    if (request.quantity == 0) return NewOrderReason::no_quantity;
    if (request.quantity > settings_.max_order_size) return NewOrderReason::quantity_above_maximum;
    if (request.order_type != OrderType::limit && request.order_type != OrderType::market) {
        return NewOrderReason::invalid_order_type;
    }
    if (!is_valid_price(request)) return NewOrderReason::invalid_price;
    if (!is_known(request.tif)) return NewOrderReason::invalid_tif;
    if (!is_valid_expire_time(request, now_ns)) return NewOrderReason::invalid_expire_time;
    if (request.flags.sell() != (request.flags.short_sale() != 0)) return NewOrderReason::invalid_short_sale;
    if (live_ids_.find(request.client_order_id) != nullptr) return NewOrderReason::duplicate_client_order_id;
    return NewOrderReason::accepted;
}

// Counts an order that has passed every check, and rejects it all the same when the script says so. On the wire only
// the reason tells this from a real reject.
bool Engine::scripted_to_reject(const meo::NewOrderRequest& request, std::uint64_t now_ns) {
    ++bench_.counters.orders;
    if (!bench_.fires(Scripted::reject)) return false;
    ++bench_.counters.rejects;
    order_truth.write({.event = "reject",
                       .timestamp = now_ns,
                       .client_order_id = request.client_order_id.view(),
                       .symbol = books.find(request.product_id)->symbol,
                       .side = request.flags.sell() ? 'S' : 'B',
                       .quantity = request.quantity,
                       .price = from_wire(request.price),
                       .text = "bench:scripted_reject"});
    return true;
}

Order& Engine::accept(ClientHandle client, const meo::NewOrderRequest& request, Event event) {
    Order& order = books.create(request.product_id);
    order.price = from_wire(request.price);
    order.leaves = request.quantity;
    order.original_size = request.quantity;
    order.owner = client;
    order.flags = request.flags;
    order.buy = !request.flags.sell();
    order.tif = request.tif;
    order.order_type = request.order_type;
    order.mpid = request.mpid;
    order.client_order_id = request.client_order_id;
    live_ids_.add(order);
    open_orders_.add(order);

    event.answers.push_back(
        {client, build(meo::NewOrderResponse{event.now_ns, request, order.id, NewOrderReason::accepted})});
    event.answers.push_back({client, build(meo::OrderAccepted{event.now_ns, request, order.id})});
    ++bench_.counters.accepts;
    order_truth.write(event_of("new", order, books.of(order), event.now_ns));
    return order;
}

// Post-only comes before all-or-nothing: an order that is both and crosses ends as post-only.
bool Engine::cancelled_before_matching(Order& order, Event event) {
    const BookSide& opposite = books.of(order).side(!order.buy);
    if (order.flags.post_only() && opposite.crossed_by(reach(order))) {
        // Cancels a quantity of 0, so the report shows the full size as leaves, deliberately.
        system_cancel(order, 0, meo::SystemCancelReason::post_only, "post_only", event);
    } else if (order.tif == TimeInForce::fill_or_kill && !opposite.holds(order.leaves, reach(order))) {
        system_cancel(order, order.leaves, meo::SystemCancelReason::expired, "expired", event);
    } else {
        return false;
    }
    record_close(order.client_order_id);
    end(order);
    return true;
}

void Engine::rest_remainder(Order& order, Event event) {
    books.add(order);
    const bool at_touch = books.of(order).side(order.buy).best()->price == order.price;
    event.answers.push_back({order.owner, build(meo::OrderResting{event.now_ns, order.product_id, order.id,
                                                                  order.client_order_id, order.price, at_touch})});
}

void Engine::schedule_unsolicited_cancel(const Order& order) {
    if (!bench_.fires(Scripted::unsolicited_cancel)) return;
    pending_cancels_.push_back({order.client_order_id, clock_.steady_ms() + unsolicited_cancel_delay_ms});
}

}  // namespace kavo
