// The two clocks of the process, in one object that a test can stop and set.
#pragma once

#include <cstdint>
#include <optional>

namespace kavo {

inline constexpr std::uint64_t ns_per_second = 1'000'000'000;
inline constexpr std::uint64_t ns_per_ms = 1'000'000;

class Clock {
public:
    // Monotonic time in whole milliseconds: every timer compares these.
    std::uint64_t steady_ms() const;
    // The same clock as it is, for what is shorter than a millisecond.
    std::uint64_t steady_ns() const;
    // Wall time in nanoseconds since the Unix epoch: every timestamp that leaves the process.
    std::uint64_t wall_ns() const;

    // From here on both clocks stand still until the next call.
    void stand_at(std::uint64_t steady_ms, std::uint64_t wall_ns);
    // Moves both clocks of a standing clock together.
    void advance_ms(std::uint64_t ms);

private:
    struct Moment {
        std::uint64_t steady_ms;
        std::uint64_t wall_ns;
    };
    std::optional<Moment> standing_;
};

// How long since: 0 for a moment that lies after now, so a clock read twice never makes a timer fire early.
constexpr std::uint64_t elapsed_ms(std::uint64_t now_ms, std::uint64_t since_ms) {
    return now_ms > since_ms ? now_ms - since_ms : 0;
}

// True, and taken, once in every interval; the interval begins anew at the moment that finds it over, so what is late
// is done once and nothing is caught up on.
constexpr bool take_if_due(std::uint64_t now_ms, std::uint64_t& last_ms, std::uint64_t interval_ms) {
    if (elapsed_ms(now_ms, last_ms) < interval_ms) return false;
    last_ms = now_ms;
    return true;
}

}  // namespace kavo
