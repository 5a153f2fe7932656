#include "common/clock.h"

#include <ctime>

namespace kavo {

namespace {

std::uint64_t read_ns(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * ns_per_second + static_cast<std::uint64_t>(now.tv_nsec);
}

}  // namespace

std::uint64_t Clock::steady_ms() const {
    return steady_ns() / ns_per_ms;
}

std::uint64_t Clock::steady_ns() const {
    return standing_ ? standing_->steady_ms * ns_per_ms : read_ns(CLOCK_MONOTONIC);
}

std::uint64_t Clock::wall_ns() const {
    return standing_ ? standing_->wall_ns : read_ns(CLOCK_REALTIME);
}

void Clock::stand_at(std::uint64_t steady_ms, std::uint64_t wall_ns) {
    standing_ = Moment{steady_ms, wall_ns};
}

void Clock::advance_ms(std::uint64_t ms) {
    stand_at(steady_ms() + ms, wall_ns() + ms * ns_per_ms);
}

}  // namespace kavo
