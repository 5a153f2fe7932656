// The clock of a recording: wall-clock nanoseconds since the Unix epoch, as the kernel stamps datagrams and the
// simulator stamps its answers.
#pragma once

#include <cstdint>

namespace kavo::companion {

std::uint64_t now_ns();

inline constexpr std::uint64_t ns_per_ms = 1'000'000;

}  // namespace kavo::companion
