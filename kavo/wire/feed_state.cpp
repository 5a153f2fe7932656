#include "kavo/wire/feed_state.h"

#include <algorithm>
#include <tuple>

#include "client/feed_messages.h"

namespace kavo::companion {

namespace {

Bytes kept(ByteView message) {
    return {message.begin(), message.end()};
}

void tell_stamped(Bytes message, std::uint32_t timestamp, const FeedState::Sink& sink) {
    if (message.empty()) return;
    put(message, dom::layout::timestamp, timestamp);
    sink(message);
}

}  // namespace

void FeedState::apply(ByteView message) {
    if (client::read_system_state(message)) system_state_ = kept(message);
    if (const auto m = client::read_series_definition(message)) definitions_[m->secid] = kept(message);
    if (const auto m = client::read_series_trading_status(message)) statuses_[m->secid] = kept(message);
    if (const auto m = client::read_add_order(message)) {
        orders_[m->order_id] = {
            m->order_id, m->secid, m->side == 'B', m->price, m->quantity, std::string(m->attribution), ++queued_};
    }
    if (const auto m = client::read_delete_order(message)) orders_.erase(m->order_id);
    if (const auto m = client::read_modify_order(message)) {
        const auto order = orders_.find(m->order_id);
        if (order == orders_.end()) return;
        order->second.price = m->price;
        order->second.quantity = m->quantity;
        order->second.queued = ++queued_;
    }
    if (const auto m = client::read_order_executed(message)) {
        const auto order = orders_.find(m->order_id);
        if (order == orders_.end()) return;
        order->second.quantity -= std::min(order->second.quantity, m->quantity);
        if (order->second.quantity == 0) orders_.erase(order);
    }
}

std::vector<const FeedState::Resting*> FeedState::in_order() const {
    std::vector<const Resting*> resting;
    for (const auto& [id, order] : orders_) resting.push_back(&order);
    // Product by product, bids before asks, best price first.
    const auto place = [](const Resting* order) {
        return std::tuple{order->secid, !order->buy, order->buy ? ~order->price : order->price, order->queued};
    };
    std::ranges::sort(resting, {}, place);
    return resting;
}

void FeedState::tell(RefreshType type, std::uint32_t timestamp, const Sink& sink) const {
    const bool all = type == RefreshType::all;
    if (all || type == RefreshType::system_state) tell_stamped(system_state_, timestamp, sink);
    if (all || type == RefreshType::definitions) {
        for (const auto& [secid, definition] : definitions_) tell_stamped(definition, timestamp, sink);
    }
    if (all || type == RefreshType::trading_status) {
        for (const auto& [secid, status] : statuses_) tell_stamped(status, timestamp, sink);
    }
    if (!all) return;
    for (const Resting* order : in_order()) {
        const auto side = order->buy ? 'B' : 'S';
        sink(dom::build(dom::AddOrder{timestamp, order->secid, order->order_id, side, order->price, order->quantity,
                                      order->attribution}));
    }
}

}  // namespace kavo::companion
