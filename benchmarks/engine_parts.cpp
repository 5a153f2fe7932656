// What the simulator does between its system calls, part by part, with nothing, 100,000 and 1,000,000 client orders
// resting. Each full market runs in turn with an empty one: "ratio" is what the orders of others cost.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <numeric>
#include <random>

#include "client/requests.h"
#include "market.h"
#include "memory_parts.h"
#include "report.h"
#include "support/process.h"
#include "timing.h"

namespace kavo::benchmarks {

namespace {

constexpr int interleaved_runs = 9;

// Runs `once`, which gives processor seconds, in the full market and in the empty one in turn.
template <typename Once>
void time_beside_empty(benchmark::State& state, Once once) {
    Market& full = market_with(static_cast<std::size_t>(state.range(0)));
    Market& empty = market_with(0);
    std::vector<double> full_seconds;
    std::vector<double> empty_seconds;
    for (auto _ : state) {
        for (int i = 0; i < interleaved_runs; ++i) {
            empty_seconds.push_back(once(empty));
            full_seconds.push_back(once(full));
        }
        state.SetIterationTime(median(full_seconds));
    }
    state.counters["ratio"] = median_ratio(full_seconds, empty_seconds);
}

void sizes(benchmark::internal::Benchmark* benchmark) {
    benchmark->ArgName("resting")->Arg(0)->Arg(100'000)->Arg(1'000'000)->Iterations(1)->UseManualTime();
}

// A new order that rests, and the cancel of a random one: two whole requests but for the system calls.
double two_requests_seconds(Market& market) {
    constexpr int pairs = 5'000;
    return processor_seconds_of([&] {
               for (int i = 0; i < pairs; ++i) market.enter_and_cancel();
           }) /
           pairs;
}
void new_order_and_cancel(benchmark::State& state) {
    time_beside_empty(state, two_requests_seconds);
}
BENCHMARK(new_order_and_cancel)->Apply(sizes);

double tick_seconds(Market& market) {
    constexpr int ticks = 2'000;
    return processor_seconds_of([&] {
               for (int i = 0; i < ticks; ++i) market.engine.tick();
           }) /
           ticks;
}
void synthetic_tick(benchmark::State& state) {
    time_beside_empty(state, tick_seconds);
}
BENCHMARK(synthetic_tick)->Apply(sizes);

// A client with some orders goes away, and they with it.
template <std::size_t own_orders>
double disconnect_seconds(Market& market) {
    market.rest_orders(own_orders, Market::leaver);
    const double seconds = processor_seconds_of([&] { market.engine.client_dropped(Market::leaver, "leave"); });
    market.engine.outbox.clear();
    market.feed.flush();
    return seconds;
}
void disconnect_100_orders(benchmark::State& state) {
    time_beside_empty(state, disconnect_seconds<100>);
}
BENCHMARK(disconnect_100_orders)->Apply(sizes);
void disconnect_1000_orders(benchmark::State& state) {
    time_beside_empty(state, disconnect_seconds<1000>);
}
BENCHMARK(disconnect_1000_orders)->Apply(sizes);

// An all-or-nothing order beside 100,000 levels of a hundred shares each, entered in no order of their prices.
class DeepBook {
public:
    static constexpr std::uint32_t levels = 100'000;
    static constexpr std::uint32_t shares_a_level = 100;

    DeepBook() {
        engine_.books.add_product("DEEP", reference_price);
        std::vector<std::uint32_t> cents(levels);
        std::iota(cents.begin(), cents.end(), lowest_cents);
        std::shuffle(cents.begin(), cents.end(), std::minstd_rand(42));
        for (const std::uint32_t price : cents) {
            enter(client::sell("S" + std::to_string(price)).shares(shares_a_level), price * wire_cent);
        }
    }

    // Buys so much, or nothing, at prices that so many levels do not go beyond. Processor seconds of one order.
    double order_seconds(std::uint32_t shares, std::uint32_t levels_in_reach, int orders) {
        const client::NewOrder order = client::buy("B").shares(shares).all_or_nothing();
        const WirePrice limit = (lowest_cents + levels_in_reach - 1) * wire_cent;
        return processor_seconds_of([&] {
                   for (int i = 0; i < orders; ++i) enter(order, limit);
               }) /
               orders;
    }

private:
    static constexpr std::uint32_t lowest_cents = 1'000;

    void enter(client::NewOrder order, WirePrice price) {
        order.price = price;
        meo::NewOrderRequest request;
        const Bytes message = order.bytes();
        meo::parse_new_order(message, request);
        answers_.clear();
        engine_.new_order(0, request, answers_);
        engine_.outbox.clear();
        feed_.flush();
    }

    Clock clock_;
    Generator generator_{42};
    Bench bench_;
    Commentary commentary_{[](std::string_view) {}};
    DomFeed feed_{1, clock_, [](ByteView) {}, commentary_};
    Engine engine_{feed_, generator_, {.max_order_size = 0xFFFFFFFF}, bench_, clock_, commentary_};
    OutboundMessages answers_;
};

// Three orders: one that the best level serves, one for more than the whole side has, and one that must add up every
// level in its reach to find that they hold too little, while the side as a whole holds enough.
void all_or_nothing(benchmark::State& state) {
    static DeepBook book;
    const auto shares = static_cast<std::uint32_t>(state.range(0));
    const auto levels_in_reach = static_cast<std::uint32_t>(state.range(1));
    std::vector<double> seconds;
    for (auto _ : state) {
        for (int i = 0; i < interleaved_runs; ++i) seconds.push_back(book.order_seconds(shares, levels_in_reach, 50));
        state.SetIterationTime(median(seconds));
    }
}
BENCHMARK(all_or_nothing)
    ->ArgNames({"shares", "levels_in_reach"})
    ->Args({1, DeepBook::levels})
    ->Args({DeepBook::levels * DeepBook::shares_a_level + 1, DeepBook::levels})
    ->Args({99'900 * DeepBook::shares_a_level + 1, 99'900})
    ->Iterations(1)
    ->UseManualTime();

// What a truth log adds to two requests, for each of its lines. Both logs write two of them: one for each change of the
// book, one for each event of the order. The file is a real one, emptied between the runs.
void time_truth_lines(benchmark::State& state, void (*open)(Market& market, const std::string& path)) {
    const test::TemporaryFile file;
    auto written = std::make_unique<Market>();
    written->fill_stream();
    open(*written, file.path());
    std::vector<double> line_seconds;
    for (auto _ : state) {
        for (int i = 0; i < interleaved_runs; ++i) {
            const double without = two_requests_seconds(market_with(0));
            line_seconds.push_back((two_requests_seconds(*written) - without) / 2);
            std::filesystem::resize_file(file.path(), 0);
        }
        state.SetIterationTime(median(line_seconds));
    }
}
void book_change_line(benchmark::State& state) {
    time_truth_lines(state, [](Market& market, const std::string& path) { market.engine.books.truth.open(path); });
}
BENCHMARK(book_change_line)->Iterations(1)->UseManualTime();
void order_truth_line(benchmark::State& state) {
    time_truth_lines(state, [](Market& market, const std::string& path) { market.engine.order_truth.log.open(path); });
}
BENCHMARK(order_truth_line)->Iterations(1)->UseManualTime();

// Everything from nothing to seeded books and published definitions.
double start_seconds(std::int64_t products) {
    return processor_seconds_of([&] {
        const Clock clock;
        Generator generator(42);
        Bench bench;
        const Commentary commentary;
        DomFeed feed(
            1, clock, [](ByteView) {}, commentary);
        Engine engine(feed, generator, {}, bench, clock, commentary);
        for (std::int64_t i = 0; i < products; ++i) engine.books.add_product("S" + std::to_string(i), 100.0);
        engine.start_day();
    });
}
void start_of_day(benchmark::State& state) {
    std::vector<double> seconds;
    for (auto _ : state) {
        for (int i = 0; i < interleaved_runs; ++i) seconds.push_back(start_seconds(state.range(0)));
        state.SetIterationTime(median(seconds));
    }
}
BENCHMARK(start_of_day)->ArgName("products")->Arg(3)->Arg(2'000)->Iterations(1)->UseManualTime();

}  // namespace
}  // namespace kavo::benchmarks

// The program starts itself again to measure memory, so that no benchmark before has left any behind.
int main(int argc, char** argv) {
    if (kavo::benchmarks::measured_memory({argv, static_cast<std::size_t>(argc)})) return EXIT_SUCCESS;
    return kavo::benchmarks::run_benchmarks(argc, argv);
}
