#include "engine/order_pool.h"

namespace kavo {

Order& OrderPool::take(std::uint64_t id) {
    if (free_ == nullptr) add_chunk();
    Order& order = *free_;
    free_ = order.behind;
    const std::uint32_t slot = order.slot;
    std::construct_at(&order);
    order.id = id;
    order.slot = slot;
    ++size_;
    return order;
}

void OrderPool::give_back(Order& order) {
    order.behind = free_;
    free_ = &order;
    --size_;
}

void OrderPool::add_chunk() {
    const std::size_t first_slot = chunks_.size() * chunk_orders;
    chunks_.push_back(std::make_unique<Order[]>(chunk_orders));
    for (std::size_t i = chunk_orders; i-- > 0;) {
        Order& order = chunks_.back()[i];
        order.slot = static_cast<std::uint32_t>(first_slot + i);
        order.behind = free_;
        free_ = &order;
    }
}

}  // namespace kavo
