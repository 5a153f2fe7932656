#include "engine/order_pool.h"

#include <sys/mman.h>

namespace kavo {

Order& OrderPool::take(std::uint64_t id) {
    if (free_ == nullptr) add_record();
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

void OrderPool::add_record() {
    if (records_ == chunks_.size() * chunk_orders) add_chunk();
    const std::uint32_t slot = records_++;
    free_ = std::construct_at(&at(slot));
    free_->slot = slot;
}

void OrderPool::add_chunk() {
    chunks_.push_back(std::make_unique<Chunk>());
    if (chunks_.size() <= small_page_chunks) return;
    madvise(chunks_.back().get(), sizeof(Chunk), MADV_HUGEPAGE);  // the system may ignore it
}

}  // namespace kavo
