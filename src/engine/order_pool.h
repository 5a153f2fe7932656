// The records of all live orders, reached in constant time from their order ids.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "engine/book.h"

namespace kavo {

// Records lie in chunks that never move, and the last one given back is the first one reused. Order ids are handed out
// in ascending order, so the way from id to record is an array of pages; a page without live orders is given back.
class OrderPool {
public:
    // A fresh record with this id, which is larger than every id before.
    Order& take(std::uint64_t id);
    void give_back(Order& order);

    // The live order with this id; nothing when it has ended or never was.
    Order* find(std::uint64_t id) const;
    // The record at a slot that a live order occupies.
    Order& at(std::uint32_t slot) const { return chunks_[slot / chunk_orders][slot % chunk_orders]; }

    std::size_t size() const { return size_; }

private:
    static constexpr std::size_t chunk_orders = 512;
    static constexpr std::size_t page_ids = 1024;

    struct Page {
        std::array<Order*, page_ids> orders{};
        std::size_t live = 0;
    };

    void add_chunk();

    std::vector<std::unique_ptr<Order[]>> chunks_;
    std::vector<std::unique_ptr<Page>> pages_;
    Order* free_ = nullptr;  // linked through `behind`
    std::size_t size_ = 0;
};

}  // namespace kavo
