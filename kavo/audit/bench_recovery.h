// The service behind the feed, as far as anybody has asked it.
#pragma once

#include <vector>

#include "kavo/audit/bench_feed.h"

namespace kavo::companion {

// Every message that the service has sent again.
void add_messages_sent_again(const Journal& journal, std::vector<FeedMessage>& messages);

// Each request that was answered to the end, against what had been published.
void audit_recovery_service(const Journal& journal, const RecordedFeed& feed, Verdict& verdict,
                            BenchFindings& findings);

// A snapshot of all books that somebody was given whole.
struct FeedSnapshot {
    std::uint64_t as_of = 0;
    std::vector<ByteView> orders;  // Add Order messages
    Moment at;
};
// In the order of their numbers.
std::vector<FeedSnapshot> snapshots_of(const Journal& journal);

}  // namespace kavo::companion
