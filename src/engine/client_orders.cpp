#include "engine/client_orders.h"

#include <bit>

namespace kavo {

namespace {

// Folds the twenty characters into eight bytes and stirs them by multiplication, so that ids that differ only in a
// digit somewhere spread over the whole table.
std::uint64_t hash_of(const meo::ClientOrderId& id) {
    constexpr std::uint64_t odd = 0x9E3779B97F4A7C15;  // 2^64 / golden ratio
    std::uint64_t words[3] = {};
    std::memcpy(words, id.text.data(), id.text.size());
    std::uint64_t hash = 0;
    for (const std::uint64_t word : words) {
        hash = (hash ^ word) * odd;
        hash ^= hash >> 32;
    }
    return hash * odd;
}

std::uint32_t tag_of(std::uint64_t hash) {
    return static_cast<std::uint32_t>(hash >> 16);  // the lowest bits of a product are its worst
}

}  // namespace

Order* ClientOrders::find(const meo::ClientOrderId& id) const {
    const std::uint64_t hash = hash_of(id);
    const std::vector<Entry>& entries = shards_[shard_of(hash)].entries;
    if (entries.empty()) return nullptr;
    const std::size_t mask = entries.size() - 1;
    const std::uint32_t tag = tag_of(hash);
    for (std::size_t at = tag & mask; entries[at].slot_after != 0; at = (at + 1) & mask) {
        if (entries[at].tag != tag) continue;
        Order& order = pool_.at(entries[at].slot_after - 1);
        if (order.client_order_id == id) return &order;
    }
    return nullptr;
}

void ClientOrders::add(Order& order) {
    insert_id(order);
    const auto owner = static_cast<std::size_t>(order.owner);
    if (owners_.size() <= owner) owners_.resize(owner + 1);
    OwnOrders& own = owners_[owner];
    order.earlier = own.last;
    order.later = nullptr;
    (own.last == nullptr ? own.first : own.last->later) = &order;
    own.last = &order;
}

void ClientOrders::remove(Order& order) {
    erase_id(order);
    OwnOrders& own = owners_[static_cast<std::size_t>(order.owner)];
    (order.earlier == nullptr ? own.first : order.earlier->later) = order.later;
    (order.later == nullptr ? own.last : order.later->earlier) = order.earlier;
}

void ClientOrders::rename(Order& order, const meo::ClientOrderId& id) {
    erase_id(order);
    order.client_order_id = id;
    insert_id(order);
}

Order* ClientOrders::first_of(ClientHandle owner) const {
    const auto index = static_cast<std::size_t>(owner);
    return index < owners_.size() ? owners_[index].first : nullptr;
}

void ClientOrders::insert_id(const Order& order) {
    const std::uint64_t hash = hash_of(order.client_order_id);
    Shard& shard = shards_[shard_of(hash)];
    if ((shard.used + 1) * 4 > shard.entries.size() * 3) grow(shard);
    place(shard, {tag_of(hash), order.slot + 1});
    ++shard.used;
}

// Closes the gap by moving back every following entry that may not stay behind it, so that no search breaks off early.
void ClientOrders::erase_id(const Order& order) {
    const std::uint64_t hash = hash_of(order.client_order_id);
    Shard& shard = shards_[shard_of(hash)];
    std::vector<Entry>& entries = shard.entries;
    const std::size_t mask = entries.size() - 1;
    std::size_t gap = tag_of(hash) & mask;
    while (entries[gap].slot_after != order.slot + 1) gap = (gap + 1) & mask;
    for (std::size_t at = (gap + 1) & mask; entries[at].slot_after != 0; at = (at + 1) & mask) {
        const std::size_t home = entries[at].tag & mask;
        if (((at - home) & mask) < ((at - gap) & mask)) continue;
        entries[gap] = entries[at];
        gap = at;
    }
    entries[gap] = {};
    --shard.used;
}

void ClientOrders::place(Shard& shard, Entry entry) {
    const std::size_t mask = shard.entries.size() - 1;
    std::size_t at = entry.tag & mask;
    while (shard.entries[at].slot_after != 0) at = (at + 1) & mask;
    shard.entries[at] = entry;
}

void ClientOrders::grow(Shard& shard) {
    const std::size_t size = shard.entries.empty() ? smallest_shard_entries : shard.entries.size() * 2;
    std::vector<Entry> old(size);
    old.swap(shard.entries);
    for (const Entry& entry : old) {
        if (entry.slot_after != 0) place(shard, entry);
    }
}

void ClosedIds::close(const meo::ClientOrderId& id, std::uint64_t now_ms) {
    Entry& entry = entries_[find(id)];
    if (entry.generation != generation_) ++used_;
    entry = {id, generation_, now_ms};
    if (used_ <= limit_ids) return;
    used_ = 0;
    ++generation_;
}

std::optional<std::uint64_t> ClosedIds::closed_at_ms(const meo::ClientOrderId& id) const {
    const Entry& entry = entries_[find(id)];
    if (entry.generation != generation_) return std::nullopt;
    return entry.closed_ms;
}

std::size_t ClosedIds::find(const meo::ClientOrderId& id) const {
    constexpr std::size_t mask = table_entries - 1;
    static_assert(std::has_single_bit(table_entries) && table_entries > limit_ids + 1);
    std::size_t at = tag_of(hash_of(id)) & mask;
    while (entries_[at].generation == generation_ && entries_[at].id != id) at = (at + 1) & mask;
    return at;
}

}  // namespace kavo
