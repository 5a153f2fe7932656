// Time as these benchmarks take it: what is compared runs in turn, several times, and only medians count, since a
// machine that others use as well is never the same for long.
#pragma once

#include <algorithm>
#include <chrono>
#include <ctime>
#include <vector>

namespace kavo::benchmarks {

// The middle one of an odd number of values, the upper one of the two in the middle of an even number; 0 of none.
inline double median(std::vector<double> values) {
    if (values.empty()) return 0;
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

// The median of value by value: of two things that ran in turn, neighbour against neighbour.
inline double median_ratio(const std::vector<double>& values, const std::vector<double>& baselines) {
    std::vector<double> ratios;
    for (std::size_t i = 0; i < values.size() && i < baselines.size(); ++i) ratios.push_back(values[i] / baselines[i]);
    return median(ratios);
}

// What this thread has used of a processor, its system calls included; what it had to wait for others is not in it.
inline double processor_seconds() {
    timespec used{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
    return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) * 1e-9;
}

template <typename Action>
double processor_seconds_of(Action action) {
    const double start = processor_seconds();
    action();
    return processor_seconds() - start;
}

// By the clock on the wall, for what happens in more than one thread or process.
template <typename Action>
double elapsed_seconds_of(Action action) {
    using Steady = std::chrono::steady_clock;
    const Steady::time_point start = Steady::now();
    action();
    return std::chrono::duration<double>(Steady::now() - start).count();
}

}  // namespace kavo::benchmarks
