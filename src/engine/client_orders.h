// The clients' orders: live ones found by the id that their client gave them and by their owner, and for a while the
// ids of those that have ended.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "engine/order_pool.h"

namespace kavo {

// The live orders of all clients, each from its acceptance to its end.
class ClientOrders {
public:
    explicit ClientOrders(const OrderPool& pool) : pool_(pool), shards_(shard_count) {}

    // The live order with this client order id; nothing when there is none. Ids are shared by all clients.
    Order* find(const meo::ClientOrderId& id) const;

    // An owner's orders are kept by ascending order id, so `order` must be the latest of all.
    void add(Order& order);
    void remove(Order& order);
    // Gives the order another client order id. Its place among its owner's orders stays.
    void rename(Order& order, const meo::ClientOrderId& id);

    // The first of the owner's orders; the others follow through `later`.
    Order* first_of(ClientHandle owner) const;

private:
    // Open addressing with linear probing, split by hash into small tables that grow one by one, so that no insertion
    // stops the market for longer than it takes to move one of them. An entry is half as large as a pointer and a hash
    // would be, and its tag keeps most misses from touching the record.
    struct Entry {
        std::uint32_t tag = 0;         // low half of the hash
        std::uint32_t slot_after = 0;  // the pool's slot plus 1; 0 is an empty entry
    };
    struct Shard {
        std::vector<Entry> entries;  // a power of two, at most three quarters full
        std::size_t used = 0;
    };
    struct OwnOrders {
        Order* first = nullptr;
        Order* last = nullptr;
    };
    static constexpr std::size_t shard_count = 256;
    static constexpr std::size_t smallest_shard_entries = 8;

    static std::size_t shard_of(std::uint64_t hash) { return hash >> 56; }
    void insert_id(const Order& order);
    void erase_id(const Order& order);
    static void place(Shard& shard, Entry entry);
    static void grow(Shard& shard);

    const OrderPool& pool_;
    std::vector<Shard> shards_;
    std::vector<OwnOrders> owners_;  // by handle
};

// When the orders of recent client order ids ended. Bounded crudely, on purpose: the insertion that would leave more
// than 50,000 ids forgets them all, its own included. Forgetting is one increment, however many there are.
class ClosedIds {
public:
    static constexpr std::size_t limit_ids = 50'000;

    ClosedIds() : entries_(table_entries) {}

    void close(const meo::ClientOrderId& id, std::uint64_t now_ms);
    // When the latest order with this id ended, as far as that is remembered.
    std::optional<std::uint64_t> closed_at_ms(const meo::ClientOrderId& id) const;

private:
    static constexpr std::size_t table_entries = 65'536;  // a power of two above the limit

    struct Entry {
        meo::ClientOrderId id;
        std::uint32_t generation = 0;  // an entry of another generation than the present one is empty
        std::uint64_t closed_ms = 0;
    };
    std::size_t find(const meo::ClientOrderId& id) const;  // its entry, or the empty one where it belongs

    std::vector<Entry> entries_;
    std::uint32_t generation_ = 1;
    std::size_t used_ = 0;
};

}  // namespace kavo
