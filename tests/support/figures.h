// What a running process costs, as the system tells it, and the figures that a test shows to its reader.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kavo::test {

// Of the process with this number, "self" for the test itself.
std::size_t resident_bytes(const std::string& process);
inline std::size_t resident_bytes(pid_t process) {
    return resident_bytes(std::to_string(process));
}
std::size_t open_descriptors(pid_t process);
std::chrono::nanoseconds processor_time(pid_t process);
// What has been sent to a TCP port, and waits there to be read.
std::size_t unread_bytes(std::uint16_t port);

// A figure for whoever reads the test's output; nothing depends on it.
void report(std::string_view what, std::size_t figure);
void report(std::string_view what, double figure, std::string_view unit);

// How long something took, many times over.
class Durations {
public:
    using Duration = std::chrono::steady_clock::duration;

    void add(Duration duration) { durations_.push_back(duration); }
    // The duration that so many hundredths of all do not exceed; 100 is the longest. 0 when there are none.
    Duration percentile(unsigned hundredths) const;
    Duration longest() const { return percentile(100); }
    std::size_t count() const { return durations_.size(); }

    // "what: 1000 times, median 0.041 ms, p99 0.102 ms, longest 1.2 ms"
    void report(std::string_view what) const;

private:
    std::vector<Duration> durations_;
};

double in_ms(std::chrono::nanoseconds duration);

}  // namespace kavo::test
