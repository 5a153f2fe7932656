// What the simulator says about itself: the texts of its counters, and the lines made of them.
#pragma once

#include <string>

#include "app/bench.h"
#include "feed/dom_feed.h"

namespace kavo {

// Neither text ends a line.
std::string fault_summary(const FeedCounters& counters);
std::string bench_statistics(const BenchCounters& counters);

// The last words of a process that was stopped by a signal.
void print_final_report(const Bench& bench, const DomFeed& feed);

}  // namespace kavo
