// The order truth against what users were told, and against itself.
#pragma once

#include <vector>

#include "kavo/audit/bench_books.h"
#include "kavo/audit/bench_streams.h"

namespace kavo::companion {

void audit_orders_of_bench(const Journal& journal, const BenchLog& log, const RecordedFeed& feed,
                           const std::vector<Trade>& trades, const BenchStreams& streams, BenchFindings& findings);

}  // namespace kavo::companion
