// The final report of the venue against what was counted from truth, wire and commentary.
#pragma once

#include "kavo/audit/bench_feed.h"

namespace kavo::companion {

void audit_counters(const Journal& journal, const BenchLog& log, const RecordedFeed& feed, BenchFindings& findings);

}  // namespace kavo::companion
