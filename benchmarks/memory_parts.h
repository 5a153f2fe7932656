// Resident memory of what grows: orders, the feed's history, the users' streams.
#pragma once

#include <span>

namespace kavo::benchmarks {

// True when the arguments ask this process to measure memory and say what it found. A process measures one thing and
// ends: memory that an earlier measurement has left behind would be used again, and not be counted.
bool measured_memory(std::span<char*> arguments);

}  // namespace kavo::benchmarks
