#include "order_keeper.h"

#include <algorithm>

namespace trading {

using namespace kavo::client;

namespace {

std::string_view text_of(State state) {
    switch (state) {
        case State::pending: return "pending";
        case State::working: return "working";
        case State::filled: return "filled";
        case State::cancelled: return "cancelled";
        case State::rejected: return "rejected";
        case State::lost: return "lost";
    }
    return "";
}

}  // namespace

Order& OrderKeeper::sent(Order order) {
    orders_.push_back(std::move(order));
    by_id_[orders_.back().id] = &orders_.back();
    tell(orders_.back());
    return orders_.back();
}

void OrderKeeper::sent_replace(Order& order, const std::string& new_id) {
    order.replacing = true;
    by_id_[new_id] = &order;
}

void OrderKeeper::take(std::uint64_t number, kavo::ByteView message, bool replayed) {
    number_ = number;
    if (const auto response = read_new_order_response(message)) take_new(*response);
    if (const auto accepted = read_order_accepted(message)) {
        if (Order* order = find(accepted->client_order_id)) order->sell = accepted->flags.sell();
    }
    if (const auto fill = read_execution(message)) {
        if (replayed && fault_ == Fault::forgets_fills_on_replay) return;
        if (replayed && fault_ == Fault::counts_a_fill_twice) take_fill(*fill);
        take_fill(*fill);
    }
    if (const auto cancelled = read_order_cancelled(message)) take_cancelled(*cancelled);
    if (const auto response = read_replace_response(message)) take_replace(*response);
    if (const auto replaced = read_replace_notification(message)) take_replaced(*replaced);
    if (const auto response = read_cancel_response(message)) take_cancel(*response);
}

void OrderKeeper::take_new(const NewOrderResponse& response) {
    Order* order = find(response.client_order_id);
    if (order == nullptr) {
        // Of an earlier life of this user, heard of by replay alone.
        order = &sent({.id = std::string(response.client_order_id),
                       .product = response.product_id,
                       .price = response.price,
                       .total = response.quantity});
    }
    // Behind any other state this is not about the order that has the id.
    if (order->state != State::pending && order->state != State::lost) return;
    const bool works = response.accepted() || fault_ == Fault::rejected_is_working;
    end(*order, works ? State::working : State::rejected);
}

void OrderKeeper::take_fill(const Execution& fill) {
    Order* order = find(fill.client_order_id);
    if (order == nullptr) return;
    order->executed += fill.quantity;
    beliefs_.tell_fill(fill.client_order_id, fill.quantity, fill.price, fill.execution_id);
    const bool filled = order->executed >= order->total || fault_ == Fault::hit_is_filled;
    if (order->state == State::working && filled) order->state = State::filled;
    tell(*order);
}

// Its leaves say nothing: those of an order that was never let on the book are its full size.
void OrderKeeper::take_cancelled(const OrderCancelled& cancelled) {
    Order* order = find(cancelled.client_order_id);
    if (order == nullptr) return;
    using enum kavo::meo::SystemCancelReason;
    if (fault_ == Fault::ignores_unsolicited_cancel && cancelled.reason == unsolicited) return;
    if (fault_ == Fault::orders_survive_disconnect && cancelled.reason == disconnect) return;
    end(*order, State::cancelled);
}

void OrderKeeper::take_replace(const ReplaceResponse& response) {
    Order* order = find(response.orig_client_order_id);
    if (order == nullptr) return;
    order->replacing = false;
    if (!response.accepted()) return;
    beliefs_.tell({order->id, "replaced", 0, order->executed, number_});
    order->id = response.client_order_id;
    by_id_[order->id] = order;
}

void OrderKeeper::take_replaced(const ReplaceNotification& replaced) {
    Order* order = find(replaced.client_order_id);
    if (order == nullptr) return;
    order->price = replaced.price;
    order->total = replaced.quantity;
    if (fault_ == Fault::replace_size_is_leaves) order->total += order->executed;
    if (order->state == State::working && order->executed >= order->total) order->state = State::filled;
    tell(*order);
}

// A refusal ends nothing: whatever has ended the order says so itself, before or behind this.
void OrderKeeper::take_cancel(const CancelResponse& response) {
    Order* order = find(response.orig_client_order_id);
    if (order == nullptr) return;
    order->cancelling = false;
    if (response.accepted()) return;
    order->too_late = true;
    if (fault_ == Fault::believes_a_cancel_that_lost_its_race) end(*order, State::cancelled);
}

void OrderKeeper::caught_up(unsigned connection) {
    for (Order& order : orders_) {
        order.hopeless = order.open() && order.too_late;
        if (order.connection == connection) continue;
        order.cancelling = order.replacing = false;
        if (order.state == State::pending) end(order, State::lost);
    }
}

// Orders outlive the connection that entered them, unless the stream says otherwise.
void OrderKeeper::disconnected() {
    if (fault_ != Fault::down_means_cancelled) return;
    for (Order& order : orders_) {
        if (order.open()) end(order, State::cancelled);
    }
}

void OrderKeeper::forget() {
    for (Order& order : orders_) {
        if (order.open()) end(order, State::lost);
    }
    by_id_.clear();
}

void OrderKeeper::tell_all() {
    for (const Order& order : orders_) {
        if (find(order.id) == &order) tell(order);
    }
}

std::vector<Order*> OrderKeeper::open_on(unsigned connection) {
    std::vector<Order*> open;
    for (Order& order : orders_) {
        if (order.open() && order.connection == connection) open.push_back(&order);
    }
    return open;
}

bool OrderKeeper::any_open_besides(unsigned connection) const {
    return std::ranges::any_of(
        orders_, [connection](const Order& order) { return order.open() && order.connection != connection; });
}

bool OrderKeeper::waits_for_news(unsigned connection) const {
    const auto unanswered = [](const Order& order) {
        return order.open() && (order.busy() || (order.too_late && !order.hopeless));
    };
    return any_open_besides(connection) || std::ranges::any_of(orders_, unanswered);
}

Order* OrderKeeper::find(std::string_view id) {
    const auto found = by_id_.find(std::string(id));
    return found == by_id_.end() ? nullptr : found->second;
}

void OrderKeeper::end(Order& order, State state) {
    order.state = state;
    order.cancelling = order.replacing = false;
    tell(order);
}

void OrderKeeper::tell(const Order& order) {
    beliefs_.tell({order.id, text_of(order.state), order.leaves(), order.executed, number_});
}

}  // namespace trading
