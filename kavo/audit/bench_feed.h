// The feed as it was published, put together from every datagram and every message that was sent again, and held
// against its own rules.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "kavo/audit/bench_log.h"
#include "kavo/audit/bench_rules.h"

namespace kavo::companion {

// No venue gets that far, and all that is counted from a number stays within 64 bits.
inline constexpr std::uint64_t largest_number = std::uint64_t{1} << 62;

struct FeedMessage {
    std::uint64_t sequence = 0;
    ByteView bytes;
    Moment at;
    bool sent_again = false;  // it was not in any datagram, but the service gave it to somebody
};

// Numbers that are not in the recording.
struct FeedGap {
    std::uint64_t first = 0;
    std::uint64_t last = 0;
    bool planned = false;  // the venue said so
    // The book truth knows of one of them, so they were published: found out by audit_books.
    bool in_truth = false;
};

struct RecordedFeed {
    std::vector<FeedMessage> messages;  // ascending, each number once
    std::vector<FeedGap> gaps;          // ascending; of the multicast, what was sent again is not among them
    std::uint64_t datagrams = 0;        // with messages, as often as they came
    std::uint64_t last_used = 0;        // the largest number that anybody spoke of, in a message or a heartbeat
};

RecordedFeed audit_feed(const Journal& journal, const BenchLog& log, Verdict& verdict, BenchFindings& findings);

// The gaps that nobody planned: the venue has skipped numbers, unless something else may have swallowed them.
void judge_gaps(const BenchLog& log, const RecordedFeed& feed, BenchFindings& findings);

}  // namespace kavo::companion
