// The records of all live orders.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "engine/book.h"

namespace kavo {

// Records lie in chunks that never move, and the last one given back is the first one reused. A chunk is as large as a
// large page of the processor, which reaches a million orders through these without a walk through the page tables.
class OrderPool {
public:
    // A fresh record with this id.
    Order& take(std::uint64_t id);
    // The order is linked nowhere any more.
    void give_back(Order& order);

    // The record at a slot that a live order occupies.
    Order& at(std::uint32_t slot) { return chunks_[slot / chunk_orders]->orders[slot % chunk_orders]; }
    const Order& at(std::uint32_t slot) const { return chunks_[slot / chunk_orders]->orders[slot % chunk_orders]; }

    std::size_t size() const { return size_; }

private:
    static constexpr std::size_t chunk_bytes = std::size_t{2} << 20;
    static constexpr std::size_t chunk_orders = chunk_bytes / sizeof(Order);
    // A large page comes as a whole, in some ten thousandths of a second, or thousandths where a host has to find it
    // first: only a market pays for it that has outgrown what the processor reaches through small ones.
    static constexpr std::size_t small_page_chunks = 4;

    union alignas(chunk_bytes) Chunk {
        Chunk() {}  // its memory is not touched before the records are needed
        std::array<Order, chunk_orders> orders;
    };

    void add_record();
    void add_chunk();

    std::vector<std::unique_ptr<Chunk>> chunks_;
    std::uint32_t records_ = 0;  // live and free ones
    Order* free_ = nullptr;      // linked through `behind`
    std::size_t size_ = 0;
};

}  // namespace kavo
