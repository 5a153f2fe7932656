#include "core_book.h"

#include <algorithm>

namespace kavo::benchmarks {

namespace {

constexpr ClientHandle everyone = 0;  // all orders have one owner

meo::ClientOrderId client_order_id(const Id& id) {
    return meo::ClientOrderId(text_of(id));
}

void append_levels(std::vector<FlowLevel>& out, bool buy, const BookSide& side) {
    for (const auto& [rank, level] : side.levels()) {
        FlowLevel& line = out.emplace_back(FlowLevel{buy, level.price, level.total, 0});
        for (const Order* order = level.first; order != nullptr; order = order->behind) ++line.orders;
    }
}

}  // namespace

void CoreBook::apply(const Operation& operation) {
    switch (operation.act) {
        case Act::add: return add(operation);
        case Act::cancel: return cancel(*live_ids_.find(client_order_id(operation.target)));
        case Act::replace: return replace(*live_ids_.find(client_order_id(operation.target)), operation);
        case Act::take: return take(operation);
    }
}

// The engine looks a new id up before it takes it, so this does as well.
void CoreBook::add(const Operation& operation) {
    const meo::ClientOrderId id = client_order_id(operation.id);
    if (live_ids_.find(id) != nullptr) return;
    Order& order = pool_.take(next_id_++);
    order.buy = operation.buy;
    order.price = operation.price;
    order.leaves = operation.quantity;
    order.original_size = operation.quantity;
    order.owner = everyone;
    order.client_order_id = id;
    live_ids_.add(order);
    open_orders_.add(order);
    product_.side(order.buy).add(order);
}

void CoreBook::cancel(Order& order) {
    product_.side(order.buy).remove(order);
    end(order);
}

void CoreBook::replace(Order& order, const Operation& operation) {
    const meo::ClientOrderId id = client_order_id(operation.id);
    if (live_ids_.find(id) != nullptr) return;
    product_.side(order.buy).remove(order);
    order.price = operation.price;
    order.leaves = operation.quantity;
    order.original_size = operation.quantity;
    live_ids_.rename(order, id);
    product_.side(order.buy).add(order);
}

void CoreBook::take(const Operation& operation) {
    BookSide& opposite = product_.side(!operation.buy);
    std::uint32_t leaves = operation.quantity;
    while (leaves != 0 && opposite.crossed_by(operation.price)) {
        Order& maker = *opposite.best()->first;
        const std::uint32_t quantity = std::min(leaves, maker.leaves);
        trades.push_back({maker.id, maker.price, quantity});
        leaves -= quantity;
        if (quantity < maker.leaves) {
            opposite.reduce(maker, quantity);
        } else {
            cancel(maker);
        }
    }
}

void CoreBook::end(Order& order) {
    live_ids_.remove(order);
    open_orders_.remove(order);
    pool_.give_back(order);
}

std::vector<FlowLevel> CoreBook::levels() const {
    std::vector<FlowLevel> result;
    append_levels(result, true, product_.bids);
    append_levels(result, false, product_.asks);
    return result;
}

}  // namespace kavo::benchmarks
