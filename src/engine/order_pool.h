// The records of all live orders.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "engine/book.h"

namespace kavo {

// Records lie in chunks that never move, and the last one given back is the first one reused.
class OrderPool {
public:
    // A fresh record with this id.
    Order& take(std::uint64_t id);
    // The order is linked nowhere any more.
    void give_back(Order& order);

    // The record at a slot that a live order occupies.
    Order& at(std::uint32_t slot) const { return chunks_[slot / chunk_orders][slot % chunk_orders]; }

    std::size_t size() const { return size_; }

private:
    static constexpr std::size_t chunk_orders = 512;

    void add_chunk();

    std::vector<std::unique_ptr<Order[]>> chunks_;
    Order* free_ = nullptr;  // linked through `behind`
    std::size_t size_ = 0;
};

}  // namespace kavo
