// What every target stands on: a claim that ends the run when it does not hold, and a measure of the run.
#pragma once

#include <cstdint>
#include <string>

#include "common/bytes.h"

namespace kavo::fuzz {

// A claim about the simulator. When it does not hold, says what does not and aborts, so that the input is kept.
void require(bool holds, const char* what);
// The same for a comparison that describes what it has found: an empty text means that all is well.
void require_nothing_in(const std::string& differences);

// One thing that happened to the venue: a packet, a request, a tick. The targets with a memory are judged by these.
void count_step();

// Runs a target on one input, without the simulator's commentary. The slowest input is remembered, and told with the
// other figures when the process ends; under the fuzzer one that takes too long is a finding like any other.
int run(ByteView input, void (*target)(ByteView input));

}  // namespace kavo::fuzz
