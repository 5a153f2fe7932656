#include "engine/order_pool.h"

namespace kavo {

Order& OrderPool::take(std::uint64_t id) {
    if (free_ == nullptr) add_chunk();
    Order& order = *free_;
    free_ = order.behind;
    const std::uint32_t slot = order.slot;
    order = Order{};
    order.id = id;
    order.slot = slot;

    if (pages_.size() <= id / page_ids) pages_.resize(id / page_ids + 1);
    std::unique_ptr<Page>& page = pages_[id / page_ids];
    if (page == nullptr) page = std::make_unique<Page>();
    page->orders[id % page_ids] = &order;
    ++page->live;
    ++size_;
    return order;
}

void OrderPool::give_back(Order& order) {
    std::unique_ptr<Page>& page = pages_[order.id / page_ids];
    page->orders[order.id % page_ids] = nullptr;
    if (--page->live == 0) page.reset();
    order.behind = free_;
    free_ = &order;
    --size_;
}

Order* OrderPool::find(std::uint64_t id) const {
    const std::size_t number = id / page_ids;
    if (number >= pages_.size() || pages_[number] == nullptr) return nullptr;
    return pages_[number]->orders[id % page_ids];
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
