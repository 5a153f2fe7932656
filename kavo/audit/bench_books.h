// The book truth against the feed: the books that follow from the messages are those that the venue wrote down, after
// each message that changes one.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "kavo/audit/bench_feed.h"

namespace kavo::companion {

// An execution as the feed tells it.
struct Trade {
    std::uint64_t match_number = 0;
    std::uint64_t order_id = 0;  // of the resting order
    std::uint64_t price = 0;     // millionths
    std::uint32_t quantity = 0;  // taken off the resting order
    std::uint64_t sequence = 0;  // on the feed
};

// Judges the gaps of the feed as well, since the book truth tells which of them were published.
//   progress  called now and then with what share is done; not empty
// Every execution, in the order of the match numbers.
std::vector<Trade> audit_books(const Journal& journal, const BenchLog& log, RecordedFeed& feed, Verdict& verdict,
                               BenchFindings& findings, const std::function<void(double)>& progress);

}  // namespace kavo::companion
