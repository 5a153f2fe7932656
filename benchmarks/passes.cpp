// How long the passes of the simulator's loop take on a busy day: the market moves in every millisecond, a hundred
// thousand orders of a client rest, and the client goes on entering and cancelling, one request at a time. The floor is
// asked the same in turn: what holds up its passes, which do nothing but make system calls, is the machine.
//
// Takes --benchmark_min_time=<seconds> (10); what is meant for the other benchmarks is taken and ignored.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "support/process.h"
#include "target.h"
#include "traffic.h"

namespace kavo::benchmarks {

namespace {

constexpr std::size_t resting_orders = 100'000;

using Passes = std::vector<std::pair<std::uint64_t, std::uint64_t>>;  // microseconds, and how many took so long

Passes read_passes(const test::TemporaryFile& file) {
    Passes passes;
    std::istringstream lines(file.content());
    for (std::uint64_t us = 0, count = 0; lines >> us >> count;) passes.emplace_back(us, count);
    return passes;
}

std::uint64_t count_of(const Passes& passes) {
    std::uint64_t sum = 0;
    for (const auto& [us, count] : passes) sum += count;
    return sum;
}

std::uint64_t percentile(const Passes& passes, double part) {
    auto left = static_cast<std::uint64_t>(part * static_cast<double>(count_of(passes)));
    for (const auto& [us, count] : passes) {
        if (left < count) return us;
        left -= count;
    }
    return passes.back().first;
}

// A server and the one client that keeps it busy.
class BusyServer {
public:
    BusyServer(std::string name, ServerKind kind)
        : name_(std::move(name)), target_({.kind = kind, .tick_interval_ms = 1, .pass_times = times_.path()}) {
        for (std::size_t rested = 0; rested < resting_orders; ++rested) {
            traffic_.rest_orders(1);
            if (rested % 1'000 == 0) target_.tidy();
        }
    }

    void trade() {
        constexpr std::size_t requests = 20;
        traffic_.run(requests);
        target_.tidy();
    }

    void report() {
        target_.stop();
        const Passes passes = read_passes(times_);
        if (passes.empty()) throw std::runtime_error("no passes");
        std::printf("%-32s %10llu %8llu %8llu %8llu %8llu\n", name_.c_str(),
                    static_cast<unsigned long long>(count_of(passes)),
                    static_cast<unsigned long long>(percentile(passes, 0.5)),
                    static_cast<unsigned long long>(percentile(passes, 0.99)),
                    static_cast<unsigned long long>(percentile(passes, 0.9999)),
                    static_cast<unsigned long long>(passes.back().first));
    }

private:
    std::string name_;
    test::TemporaryFile times_;
    Target target_;
    Traffic traffic_{target_.port(), {.busy_clients = 1, .window = 1}};
};

void trade_for(double seconds, BusyServer& one, BusyServer& other) {
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + std::chrono::duration<double>(seconds);
    while (Clock::now() < end) {
        one.trade();
        other.trade();
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

double seconds_asked(int argc, char** argv) {
    constexpr std::string_view flag = "--benchmark_min_time=";
    double seconds = 10;
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (argument.starts_with(flag)) seconds = std::stod(std::string(argument.substr(flag.size())));
    }
    return seconds;
}

}  // namespace
}  // namespace kavo::benchmarks

int main(int argc, char** argv) {
    using namespace kavo::benchmarks;
    try {
        BusyServer simulator("kavo_me", ServerKind::simulator);
        BusyServer floor("floor, a request at once", ServerKind::request_floor);
        trade_for(seconds_asked(argc, argv), simulator, floor);
        std::printf("%-32s %10s %8s %8s %8s %8s\n", "passes, processor time, us", "count", "p50", "p99", "p99.99",
                    "longest");
        simulator.report();
        floor.report();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "passes: %s\n", error.what());
        return EXIT_FAILURE;
    }
}
