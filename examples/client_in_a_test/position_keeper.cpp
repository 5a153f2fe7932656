#include "position_keeper.h"

#include <algorithm>

#include "client/responses.h"

using namespace kavo::client;

void PositionKeeper::take(const Session::Arrival& arrival) {
    // A message that comes again in a replay has been counted.
    if (arrival.kind == Session::Arrival::Kind::message) take_message(arrival.message);
}

void PositionKeeper::take_message(kavo::ByteView message) {
    if (const auto response = read_new_order_response(message); response && !response->accepted()) {
        open_.erase(std::string(response->client_order_id));
    }
    if (const auto fill = read_execution(message)) {
        position_ += fill->buy ? std::int64_t{fill->quantity} : -std::int64_t{fill->quantity};
        const auto order = open_.find(std::string(fill->client_order_id));
        if (order == open_.end()) return;
        order->second.leaves -= fill->quantity;
        if (order->second.leaves == 0) open_.erase(order);
    }
    if (const auto cancelled = read_order_cancelled(message)) open_.erase(std::string(cancelled->client_order_id));
}

void PositionKeeper::act(Session& session) {
    if (!session.logged_in()) return;
    for (const bool buy : {true, false}) {
        if (!quotes(buy)) enter(session, buy);
    }
}

void PositionKeeper::enter(Session& session, bool buy) {
    const std::string id = (buy ? "b" : "s") + std::to_string(++orders_);
    NewOrder order = buy ? kavo::client::buy(id) : kavo::client::sell(id);
    order.price = buy ? bid_ : offer_;
    order.quantity = 300;
    session.send(order);
    open_[id] = {buy, order.quantity};
}

bool PositionKeeper::quotes(bool buy) const {
    return std::any_of(open_.begin(), open_.end(), [buy](const auto& order) { return order.second.buy == buy; });
}

std::uint32_t PositionKeeper::open_shares() const {
    std::uint32_t shares = 0;
    for (const auto& [id, order] : open_) shares += order.leaves;
    return shares;
}
