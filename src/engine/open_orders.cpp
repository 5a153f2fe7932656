#include "engine/open_orders.h"

namespace kavo {

void OpenOrders::add(Order& order) {
    const auto owner = static_cast<std::size_t>(order.owner);
    if (lists_.size() <= owner) lists_.resize(owner + 1);
    List& list = lists_[owner];
    order.earlier = list.last;
    order.later = nullptr;
    (list.last == nullptr ? list.first : list.last->later) = &order;
    list.last = &order;
}

void OpenOrders::remove(Order& order) {
    List& list = lists_[static_cast<std::size_t>(order.owner)];
    (order.earlier == nullptr ? list.first : order.earlier->later) = order.later;
    (order.later == nullptr ? list.last : order.later->earlier) = order.earlier;
}

Order* OpenOrders::first_of(ClientHandle owner) {
    const auto index = static_cast<std::size_t>(owner);
    return index < lists_.size() ? lists_[index].first : nullptr;
}

const Order* OpenOrders::first_of(ClientHandle owner) const {
    const auto index = static_cast<std::size_t>(owner);
    return index < lists_.size() ? lists_[index].first : nullptr;
}

}  // namespace kavo
