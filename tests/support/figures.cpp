#include "support/figures.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace kavo::test {

std::size_t resident_bytes(const std::string& process) {
    std::ifstream status("/proc/" + process + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmRSS:")) return std::stoul(line.substr(6)) * 1024;
    }
    return 0;
}

std::size_t open_descriptors(pid_t process) {
    const std::filesystem::directory_iterator descriptors("/proc/" + std::to_string(process) + "/fd");
    return static_cast<std::size_t>(std::distance(begin(descriptors), end(descriptors)));
}

std::chrono::nanoseconds processor_time(pid_t process) {
    clockid_t clock{};
    timespec time{};
    if (clock_getcpuclockid(process, &clock) != 0 || clock_gettime(clock, &time) != 0) return {};
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

std::size_t unread_bytes(std::uint16_t port) {
    std::ifstream connections("/proc/net/tcp");
    std::size_t sum = 0;
    for (std::string line; std::getline(connections, line);) {
        unsigned local_port = 0;
        unsigned unread = 0;
        const char* const format = "%*d: %*8x:%x %*8x:%*x %*x %*x:%x";
        if (std::sscanf(line.c_str(), format, &local_port, &unread) == 2 && local_port == port) sum += unread;
    }
    return sum;
}

void report(std::string_view what, std::size_t figure) {
    std::printf("%s: %zu\n", std::string(what).c_str(), figure);
}

void report(std::string_view what, double figure, std::string_view unit) {
    std::printf("%s: %.3f %s\n", std::string(what).c_str(), figure, std::string(unit).c_str());
}

Durations::Duration Durations::percentile(unsigned hundredths) const {
    if (durations_.empty()) return {};
    std::vector<Duration> sorted = durations_;
    const std::size_t at = (sorted.size() - 1) * hundredths / 100;
    std::nth_element(sorted.begin(), sorted.begin() + static_cast<std::ptrdiff_t>(at), sorted.end());
    return sorted[at];
}

void Durations::report(std::string_view what) const {
    std::printf("%s: %zu times, median %.3f ms, p99 %.3f ms, longest %.3f ms\n", std::string(what).c_str(), count(),
                in_ms(percentile(50)), in_ms(percentile(99)), in_ms(longest()));
}

double in_ms(std::chrono::nanoseconds duration) {
    return std::chrono::duration<double, std::milli>(duration).count();
}

}  // namespace kavo::test
