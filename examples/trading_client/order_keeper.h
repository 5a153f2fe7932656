// What has become of every order, from what was sent and from what was heard.
//
// Leaves are worked out: the total of the last accepted request less the sum of all executions, and nothing once the
// order has ended. Executions come in their own time, perhaps behind the answer to a later request and under the id
// that the order had before, so every id that an order ever had goes on meaning it.
#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "beliefs.h"
#include "client/responses.h"
#include "common/bytes.h"
#include "common/price.h"
#include "faults.h"

namespace trading {

enum class State { pending, working, filled, cancelled, rejected, lost };

struct Order {
    std::string id;  // the present one
    std::uint32_t product = 0;
    bool sell = false;
    kavo::WirePrice price = 0;
    std::uint32_t total = 0;
    unsigned connection = 0;  // that entered it and alone can change it; 0 for an earlier life of this user
    State state = State::pending;
    std::uint32_t executed = 0;
    bool cancelling = false;
    bool replacing = false;
    bool too_late = false;  // a cancel was refused: what has ended the order is still on its way here
    bool hopeless = false;  // and has not come, although the stream has been asked since

    bool open() const { return state == State::pending || state == State::working; }
    bool busy() const { return state == State::pending || cancelling || replacing; }
    std::uint32_t leaves() const { return open() && executed < total ? total - executed : 0; }
};

class OrderKeeper {
public:
    OrderKeeper(Beliefs& beliefs, Fault fault) : beliefs_(beliefs), fault_(fault) {}

    // The order is lent for good.
    Order& sent(Order order);
    void sent_replace(Order& order, const std::string& new_id);
    void sent_cancel(Order& order) { order.cancelling = true; }

    // A message of the stream, in its turn.
    void take(std::uint64_t number, kavo::ByteView message, bool replayed);
    // All that had been missed has been taken. What earlier connections have asked for, and nothing was heard of, has
    // not arrived.
    void caught_up(unsigned connection);
    void disconnected();
    // The venue that knew the orders is no more.
    void forget();
    void tell_all();

    // Open orders that this connection has entered.
    std::vector<Order*> open_on(unsigned connection);
    // True when others are open. No request reaches them any more; only the stream tells what becomes of them.
    bool any_open_besides(unsigned connection) const;
    // True when there are such orders, or when a request of this connection is not answered.
    bool waits_for_news(unsigned connection) const;
    const std::deque<Order>& orders() const { return orders_; }
    // The order that has or had this id; nullptr when there is none.
    Order* find(std::string_view id);

private:
    void take_new(const kavo::client::NewOrderResponse& response);
    void take_fill(const kavo::client::Execution& fill);
    void take_cancelled(const kavo::client::OrderCancelled& cancelled);
    void take_replace(const kavo::client::ReplaceResponse& response);
    void take_replaced(const kavo::client::ReplaceNotification& replaced);
    void take_cancel(const kavo::client::CancelResponse& response);
    void end(Order& order, State state);
    void tell(const Order& order);

    Beliefs& beliefs_;
    Fault fault_;
    std::deque<Order> orders_;
    std::unordered_map<std::string, Order*> by_id_;
    std::uint64_t number_ = 0;
};

}  // namespace trading
