// The client order ids of all live orders, each from its acceptance to its end. Ids are shared by all clients.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "engine/order_pool.h"

namespace kavo {

// Open addressing in buckets of one cache line, split by hash into small tables that grow one by one, so that no
// insertion stops the market for longer than it takes to move one of them.
class LiveIds {
public:
    explicit LiveIds(OrderPool& pool) : pool_(pool), shards_(shard_count) {}

    // The live order with this client order id; nothing when there is none.
    Order* find(const meo::ClientOrderId& id);
    const Order* find(const meo::ClientOrderId& id) const;

    // Its client order id is not that of a live order; neither is one that rename gives.
    void add(const Order& order);
    void remove(const Order& order);
    // Gives the order another client order id.
    void rename(Order& order, const meo::ClientOrderId& id);

private:
    // SWAR byte-tag probing: a byte of each hash lies in one word, so that all places of a bucket are compared at once.
    //
    //    place     0      1      2      3      4      5      6
    //           +------+------+------+------+------+------+------+------+
    //     tags  | tag  | tag  | tag  | tag  | tag  | tag  | tag  | used |  1 byte each
    //           +------+------+------+------+------+------+------+------+
    //   hashes  | hash | hash | hash | hash | hash | hash | hash |         4 bytes each
    //           +------+------+------+------+------+------+------+
    //    slots  | slot | slot | slot | slot | slot | slot | slot |         4 bytes each, of the order in the pool
    //           +------+------+------+------+------+------+------+
    //
    // The comparison is branch-free, so nothing is mispredicted while the bucket's line is being loaded. The hash keeps
    // nearly every miss from touching an order.
    struct alignas(64) Bucket {
        static constexpr unsigned places = 7;
        std::uint64_t tags = 0;  // the first place's byte is the lowest; the highest byte counts the places in use
        std::array<std::uint32_t, places> hashes{};
        std::array<std::uint32_t, places> slots{};

        unsigned used() const { return static_cast<unsigned>(tags >> 56); }
        bool full() const { return used() == places; }
        // The places in use that may hold this hash, each as the highest bit of its byte.
        std::uint64_t candidates(std::uint32_t hash) const;
        void add(std::uint32_t hash, std::uint32_t slot);
        void remove(unsigned place);  // the last one takes it

    private:
        void put(unsigned place, std::uint32_t hash, std::uint32_t slot);
    };
    static_assert(sizeof(Bucket) == 64);
    struct Shard {
        std::vector<Bucket> buckets{1};  // a power of two, at most five sevenths full
        std::size_t used = 0;            // places
    };
    static constexpr std::size_t shard_count = 64;
    static constexpr std::uint32_t no_slot = 0xFFFFFFFF;

    std::uint32_t slot_of(const meo::ClientOrderId& id) const;
    static unsigned place_of(const Bucket& bucket, std::uint32_t hash, std::uint32_t slot);
    static void place(std::vector<Bucket>& buckets, std::uint32_t hash, std::uint32_t slot);
    static void grow(Shard& shard);

    OrderPool& pool_;
    std::vector<Shard> shards_;
};

}  // namespace kavo
