// The lines of the order truth by themselves: each follows from those before it.
#pragma once

#include "kavo/audit/bench_rules.h"

namespace kavo::companion {

void audit_order_lives(const Journal& journal, BenchFindings& findings);

// "fill b1 #1040 AAPL B 300@189.95 cum 100 leaves 200 last 100 ..."
std::string line_text(const OrderLine& line);

}  // namespace kavo::companion
