// The clients' orders: live ones found by the id that their client gave them and by their owner, and for a while the
// ids of those that have ended.
#pragma once

#include <array>
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

    // An owner's orders are kept by ascending order id, so `order` must be the latest of all. Its client order id is
    // not that of a live order; neither is one that rename gives.
    void add(Order& order);
    void remove(Order& order);
    // Gives the order another client order id. Its place among its owner's orders stays.
    void rename(Order& order, const meo::ClientOrderId& id);

    // The first of the owner's orders; the others follow through `later`.
    Order* first_of(ClientHandle owner) const;

private:
    // Open addressing in buckets of one cache line, split by hash into small tables that grow one by one, so that no
    // insertion stops the market for longer than it takes to move one of them. A byte of each hash lies in one word, so
    // that all places of a bucket are compared at once, and with nothing to guess the processor goes on while the line
    // is on its way. The hash keeps nearly every miss from touching a record.
    struct alignas(64) Bucket {
        static constexpr unsigned places = 7;
        std::uint64_t tags = 0;  // the first place's byte is the lowest; the highest byte counts the places in use
        std::array<std::uint32_t, places> hashes{};
        std::array<std::uint32_t, places> slots{};  // the pool's

        unsigned used() const { return static_cast<unsigned>(tags >> 56); }
        bool full() const { return used() == places; }
        // The places in use that may hold this hash, each as the highest bit of its byte.
        std::uint64_t candidates(std::uint32_t hash) const;
        void add(std::uint32_t hash, std::uint32_t slot);
        void remove(unsigned place);  // the last one takes it

    private:
        void put(unsigned place, std::uint32_t hash, std::uint32_t slot);
    };
    struct Shard {
        std::vector<Bucket> buckets{1};  // a power of two, at most five sevenths full
        std::size_t used = 0;            // places
    };
    struct OwnOrders {
        Order* first = nullptr;
        Order* last = nullptr;
    };
    static constexpr std::size_t shard_count = 64;

    void insert_id(const Order& order);
    void erase_id(const Order& order);
    static unsigned place_of(const Bucket& bucket, std::uint32_t hash, std::uint32_t slot);
    static void place(std::vector<Bucket>& buckets, std::uint32_t hash, std::uint32_t slot);
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

    ClosedIds() : marks_(table_entries), entries_(table_entries) {}

    void close(const meo::ClientOrderId& id, std::uint64_t now_ms);
    // When the latest order with this id ended, as far as that is remembered.
    std::optional<std::uint64_t> closed_at_ms(const meo::ClientOrderId& id) const;

private:
    static constexpr std::size_t table_entries = 65'536;  // a power of two above the limit

    // What a search looks at, apart from what it finds, so that it stays in the cache.
    struct Mark {
        std::uint32_t hash = 0;
        std::uint32_t generation = 0;  // an entry of another generation than the present one is empty
    };
    struct Entry {
        meo::ClientOrderId id;
        std::uint64_t closed_ms = 0;
    };
    bool used(std::size_t at) const { return marks_[at].generation == generation_; }
    std::size_t find(const meo::ClientOrderId& id) const;  // its entry, or the empty one where it belongs

    std::vector<Mark> marks_;
    std::vector<Entry> entries_;
    std::uint32_t generation_ = 1;
    std::size_t used_ = 0;
};

}  // namespace kavo
