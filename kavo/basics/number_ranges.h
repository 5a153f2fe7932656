// A set of numbers, kept as stretches.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "client/feed_receiver.h"

namespace kavo::companion {

using client::SequenceRange;  // both ends included

class NumberRanges {
public:
    // A range that ends before it begins is nothing.
    void add(SequenceRange range);
    void remove(SequenceRange range);

    bool empty() const { return ranges_.empty(); }
    bool holds(std::uint64_t number) const;
    bool covers(SequenceRange range) const { return missing_from(range).empty(); }
    bool touches(SequenceRange range) const;
    // The stretches of a range that are not in here, in order.
    std::vector<SequenceRange> missing_from(SequenceRange range) const;
    std::vector<SequenceRange> all() const;
    std::uint64_t last() const { return ranges_.empty() ? 0 : ranges_.rbegin()->second; }

private:
    std::map<std::uint64_t, std::uint64_t> ranges_;  // first to last; they neither overlap nor adjoin
};

// "17" or "17 to 19".
std::string text_of(SequenceRange numbers);

inline bool overlap(SequenceRange one, SequenceRange other) {
    return one.first <= other.last && other.first <= one.last;
}

}  // namespace kavo::companion
