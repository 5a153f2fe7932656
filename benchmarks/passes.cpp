// How long the passes of the simulator's loop take on a busy day: the market moves in every millisecond, a hundred
// thousand orders of a client rest, and the client goes on entering and cancelling, one request at a time.
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

#include "support/feed_reader.h"
#include "support/process.h"
#include "timing.h"
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

class BusyDay {
public:
    BusyDay()
        : process_(KAVO_ME_PATH,
                   {"--meo-port", std::to_string(port_.number()), "--mcast", "127.0.0.1", "--port",
                    std::to_string(feed_.port()), "--retrans-port", "0", "--interval-ms", "1", "--quiet", "--symbols",
                    "AAPL:190.00", "--max-order-size", "1000000"},
                   {{"LD_PRELOAD", PASS_CLOCK_PATH}, {"PASS_TIMES", times_.path()}}) {
        if (!process_.says("[kavo_me] DoM/MACH")) throw std::runtime_error(process_.said());
    }

    void run(double seconds) {
        Traffic traffic(port_.number(), {.busy_clients = 1, .window = 1});
        for (std::size_t rested = 0; rested < resting_orders; ++rested) {
            traffic.rest_orders(1);
            if (rested % 1'000 == 0) process_.said();
        }
        using Clock = std::chrono::steady_clock;
        const auto end = Clock::now() + std::chrono::duration<double>(seconds);
        while (Clock::now() < end) {
            traffic.run(20);
            process_.said();
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }

    Passes stop() {
        process_.stop();
        return read_passes(times_);
    }

private:
    test::ReservedPort port_;
    test::FeedReader feed_;  // holds the port to which the feed goes; what comes is not read
    test::TemporaryFile times_;
    test::Process process_;
};

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
        BusyDay day;
        day.run(seconds_asked(argc, argv));
        const Passes passes = day.stop();
        if (passes.empty()) throw std::runtime_error("no passes");
        std::printf(
            "passes, processor time               count %llu   p50 %llu us   p99 %llu us   p99.99 %llu us   "
            "longest %llu us\n",
            static_cast<unsigned long long>(count_of(passes)), static_cast<unsigned long long>(percentile(passes, 0.5)),
            static_cast<unsigned long long>(percentile(passes, 0.99)),
            static_cast<unsigned long long>(percentile(passes, 0.9999)),
            static_cast<unsigned long long>(passes.back().first));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "passes: %s\n", error.what());
        return EXIT_FAILURE;
    }
}
