#include "engine/closed_ids.h"

#include <bit>

namespace kavo {

void ClosedIds::close(const meo::ClientOrderId& id, std::uint64_t now_ms) {
    const std::size_t at = find(id);
    if (!used(at)) ++used_;
    marks_[at] = {id.hash, generation_};
    entries_[at] = {id, now_ms};
    if (used_ <= limit) return;
    used_ = 0;
    ++generation_;
}

std::optional<std::uint64_t> ClosedIds::closed_at_ms(const meo::ClientOrderId& id) const {
    const std::size_t at = find(id);
    if (!used(at)) return std::nullopt;
    return entries_[at].closed_ms;
}

std::size_t ClosedIds::find(const meo::ClientOrderId& id) const {
    constexpr std::size_t mask = table_entries - 1;
    static_assert(std::has_single_bit(table_entries) && table_entries > limit_ids + 1);
    std::size_t at = id.hash & mask;
    while (used(at) && (marks_[at].hash != id.hash || entries_[at].id != id)) at = (at + 1) & mask;
    return at;
}

}  // namespace kavo
