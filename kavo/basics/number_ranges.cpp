#include "kavo/basics/number_ranges.h"

#include <algorithm>
#include <limits>

namespace kavo::companion {

namespace {

constexpr std::uint64_t beyond_all = std::numeric_limits<std::uint64_t>::max();

// The number behind this one, which is itself when there is none.
std::uint64_t after(std::uint64_t number) {
    return number == beyond_all ? number : number + 1;
}

}  // namespace

void NumberRanges::add(SequenceRange range) {
    if (range.last < range.first) return;
    auto it = ranges_.upper_bound(range.first);
    if (it != ranges_.begin() && after(std::prev(it)->second) >= range.first) --it;
    while (it != ranges_.end() && it->first <= after(range.last)) {
        range.first = std::min(range.first, it->first);
        range.last = std::max(range.last, it->second);
        it = ranges_.erase(it);
    }
    ranges_[range.first] = range.last;
}

void NumberRanges::remove(SequenceRange range) {
    if (range.last < range.first) return;
    auto it = ranges_.upper_bound(range.first);
    if (it != ranges_.begin() && std::prev(it)->second >= range.first) --it;
    while (it != ranges_.end() && it->first <= range.last) {
        const SequenceRange old{it->first, it->second};
        it = ranges_.erase(it);
        if (old.first < range.first) ranges_[old.first] = range.first - 1;
        if (old.last > range.last) ranges_[range.last + 1] = old.last;
    }
}

bool NumberRanges::holds(std::uint64_t number) const {
    const auto it = ranges_.upper_bound(number);
    return it != ranges_.begin() && std::prev(it)->second >= number;
}

bool NumberRanges::touches(SequenceRange range) const {
    if (range.last < range.first) return false;
    const auto it = ranges_.upper_bound(range.last);
    return it != ranges_.begin() && std::prev(it)->second >= range.first;
}

std::vector<SequenceRange> NumberRanges::missing_from(SequenceRange range) const {
    std::vector<SequenceRange> missing;
    if (range.last < range.first) return missing;
    std::uint64_t next = range.first;
    auto it = ranges_.upper_bound(next);
    if (it != ranges_.begin() && std::prev(it)->second >= next) --it;
    for (; it != ranges_.end() && it->first <= range.last; ++it) {
        if (it->first > next) missing.push_back({next, it->first - 1});
        if (it->second >= range.last) return missing;
        next = it->second + 1;
    }
    missing.push_back({next, range.last});
    return missing;
}

std::vector<SequenceRange> NumberRanges::all() const {
    std::vector<SequenceRange> ranges;
    for (const auto& [first, last] : ranges_) ranges.push_back({first, last});
    return ranges;
}

std::string text_of(SequenceRange numbers) {
    const std::string first = std::to_string(numbers.first);
    return numbers.first == numbers.last ? first : first + " to " + std::to_string(numbers.last);
}

}  // namespace kavo::companion
