#include "memory_parts.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <string_view>

#include "feed/dom_messages.h"
#include "market.h"
#include "support/process.h"

namespace kavo::benchmarks {

namespace {

constexpr std::string_view memory_flag = "--measure-memory";

double resident_bytes() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmRSS:")) return std::stod(line.substr(6)) * 1024;
    }
    return 0;
}

template <typename Growth>
double bytes_grown_by(Growth grow) {
    const double before = resident_bytes();
    grow();
    return resident_bytes() - before;
}

// With a history that is full already, all that grows is what the orders need.
double resting_orders(std::size_t count) {
    Market market;
    return bytes_grown_by([&] { market.rest_orders(count, Market::crowd); });
}

double history_messages(std::size_t count) {
    const Clock clock;
    const Commentary commentary;
    DomFeed feed(
        1, clock, [](ByteView) {}, commentary);
    return bytes_grown_by([&] {
        for (std::size_t i = 0; i < count; ++i) feed.publish(dom::build(dom::AddOrder{}));
    });
}

// Five messages for a new order that rests and its cancel.
double stream_messages(std::size_t count) {
    Market market;
    return bytes_grown_by([&] {
        for (std::size_t i = 0; i < count / 5; ++i) market.enter_and_cancel();
    });
}

struct Measurement {
    std::string_view name;
    std::size_t count;
    double (*bytes)(std::size_t count);
};
constexpr Measurement few_orders{"100k_orders", 100'000, resting_orders};
constexpr Measurement many_orders{"1M_orders", 1'000'000, resting_orders};
constexpr Measurement full_history{"full_history", DomFeed::history_limit_messages, history_messages};
constexpr Measurement full_stream{"full_stream", SessionStream::limit_messages, stream_messages};

// The answer comes on standard error, among what the venue has to say.
constexpr std::string_view answer_start = "grown by ";

double bytes_in_fresh_process(const Measurement& measurement) {
    test::Process process("/proc/self/exe", {std::string(memory_flag), std::string(measurement.name)});
    process.wait();
    const std::string said = process.said();
    const std::size_t answer = said.find(answer_start);
    return answer == std::string::npos ? 0 : std::stod(said.substr(answer + answer_start.size()));
}

void resident(benchmark::State& state, const Measurement& measurement) {
    double bytes = 0;
    for (auto _ : state) {
        bytes = bytes_in_fresh_process(measurement);
        state.SetIterationTime(0);
    }
    if (bytes == 0) return state.SkipWithError("the measuring process gave no answer");
    state.counters["bytes_each"] = bytes / static_cast<double>(measurement.count);
    state.counters["MB"] = bytes / 1e6;
}
BENCHMARK_CAPTURE(resident, 100k_orders, few_orders)->Iterations(1)->UseManualTime();
BENCHMARK_CAPTURE(resident, 1M_orders, many_orders)->Iterations(1)->UseManualTime();
BENCHMARK_CAPTURE(resident, full_history, full_history)->Iterations(1)->UseManualTime();
BENCHMARK_CAPTURE(resident, full_stream, full_stream)->Iterations(1)->UseManualTime();

}  // namespace

bool measured_memory(std::span<char*> arguments) {
    if (arguments.size() != 3 || arguments[1] != memory_flag) return false;
    for (const Measurement& measurement : {few_orders, many_orders, full_history, full_stream}) {
        if (arguments[2] != measurement.name) continue;
        std::fprintf(stderr, "%.*s%.0f\n", static_cast<int>(answer_start.size()), answer_start.data(),
                     measurement.bytes(measurement.count));
    }
    return true;
}

}  // namespace kavo::benchmarks
