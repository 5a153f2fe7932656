#include "engine/live_ids.h"

#include <bit>

namespace kavo {

namespace {

// How a hash tells where an order belongs: the shard, the bucket there, and the tag.
std::size_t shard_of(std::uint32_t hash) {
    return hash >> 26;
}
std::size_t bucket_of(std::uint32_t hash) {
    return hash;
}
std::uint64_t tag_of(std::uint32_t hash) {
    return hash >> 18 & 0xFF;
}

constexpr std::uint64_t one_place = std::uint64_t{1} << 56;

constexpr std::uint64_t in_each_byte(std::uint64_t byte) {
    return 0x0101010101010101 * byte;
}
unsigned lowest_place(std::uint64_t bits) {
    return static_cast<unsigned>(std::countr_zero(bits)) / 8;
}

}  // namespace

// A byte of the difference is zero where the tags are equal. Borrowing may make the byte above such a one look like
// zero as well, so these are candidates and no more.
std::uint64_t LiveIds::Bucket::candidates(std::uint32_t hash) const {
    const std::uint64_t difference = tags ^ in_each_byte(tag_of(hash));
    const std::uint64_t zeros = (difference - in_each_byte(0x01)) & ~difference & in_each_byte(0x80);
    return zeros & ((std::uint64_t{1} << 8 * used()) - 1);
}

void LiveIds::Bucket::add(std::uint32_t hash, std::uint32_t slot) {
    put(used(), hash, slot);
    tags += one_place;
}

void LiveIds::Bucket::remove(unsigned place) {
    const unsigned last = used() - 1;
    put(place, hashes[last], slots[last]);
    tags -= one_place;
}

void LiveIds::Bucket::put(unsigned place, std::uint32_t hash, std::uint32_t slot) {
    const unsigned shift = 8 * place;
    tags = (tags & ~(std::uint64_t{0xFF} << shift)) | tag_of(hash) << shift;
    hashes[place] = hash;
    slots[place] = slot;
}

Order* LiveIds::find(const meo::ClientOrderId& id) {
    const std::uint32_t slot = slot_of(id);
    return slot == no_slot ? nullptr : &pool_.at(slot);
}

const Order* LiveIds::find(const meo::ClientOrderId& id) const {
    const std::uint32_t slot = slot_of(id);
    return slot == no_slot ? nullptr : &pool_.at(slot);
}

std::uint32_t LiveIds::slot_of(const meo::ClientOrderId& id) const {
    const std::vector<Bucket>& buckets = shards_[shard_of(id.hash)].buckets;
    const std::size_t mask = buckets.size() - 1;
    for (std::size_t at = bucket_of(id.hash) & mask;; at = (at + 1) & mask) {
        const Bucket& bucket = buckets[at];
        for (std::uint64_t left = bucket.candidates(id.hash); left != 0; left &= left - 1) {
            const unsigned place = lowest_place(left);
            if (bucket.hashes[place] != id.hash) continue;
            const std::uint32_t slot = bucket.slots[place];
            if (pool_.at(slot).client_order_id == id) return slot;
        }
        if (!bucket.full()) return no_slot;
    }
}

void LiveIds::rename(Order& order, const meo::ClientOrderId& id) {
    remove(order);
    order.client_order_id = id;
    add(order);
}

void LiveIds::add(const Order& order) {
    const std::uint32_t hash = order.client_order_id.hash;
    Shard& shard = shards_[shard_of(hash)];
    if (++shard.used > shard.buckets.size() * 5) grow(shard);
    place(shard.buckets, hash, order.slot);
}

// Closes the gap by moving back whoever a full bucket has sent past it, so that no search breaks off early.
void LiveIds::remove(const Order& order) {
    const std::uint32_t hash = order.client_order_id.hash;
    Shard& shard = shards_[shard_of(hash)];
    std::vector<Bucket>& buckets = shard.buckets;
    const std::size_t mask = buckets.size() - 1;
    std::size_t gap = bucket_of(hash) & mask;
    unsigned place = 0;
    while ((place = place_of(buckets[gap], hash, order.slot)) == Bucket::places) gap = (gap + 1) & mask;
    --shard.used;
    bool was_full = buckets[gap].full();
    buckets[gap].remove(place);
    for (std::size_t at = (gap + 1) & mask; was_full; at = (at + 1) & mask) {
        Bucket& bucket = buckets[at];
        was_full = bucket.full();
        for (unsigned i = 0; i < bucket.used(); ++i) {
            const std::size_t home = bucket_of(bucket.hashes[i]) & mask;
            if (((at - home) & mask) < ((at - gap) & mask)) continue;
            buckets[gap].add(bucket.hashes[i], bucket.slots[i]);
            bucket.remove(i);
            gap = at;
            break;
        }
    }
}

unsigned LiveIds::place_of(const Bucket& bucket, std::uint32_t hash, std::uint32_t slot) {
    for (std::uint64_t left = bucket.candidates(hash); left != 0; left &= left - 1) {
        const unsigned place = lowest_place(left);
        if (bucket.slots[place] == slot) return place;
    }
    return Bucket::places;
}

void LiveIds::place(std::vector<Bucket>& buckets, std::uint32_t hash, std::uint32_t slot) {
    const std::size_t mask = buckets.size() - 1;
    std::size_t at = bucket_of(hash) & mask;
    while (buckets[at].full()) at = (at + 1) & mask;
    buckets[at].add(hash, slot);
}

void LiveIds::grow(Shard& shard) {
    std::vector<Bucket> larger(shard.buckets.size() * 2);
    for (const Bucket& bucket : shard.buckets) {
        for (unsigned i = 0; i < bucket.used(); ++i) place(larger, bucket.hashes[i], bucket.slots[i]);
    }
    shard.buckets.swap(larger);
}

}  // namespace kavo
