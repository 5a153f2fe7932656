// The book core beside a literal book on one flow, in million operations a second. Before any time is taken, both must
// have made the same trades and must end with the same levels.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <span>

#include "core_book.h"
#include "flow.h"
#include "literal_book.h"
#include "report.h"
#include "timing.h"

namespace kavo::benchmarks {

namespace {

constexpr std::uint64_t seed = 42;
constexpr std::size_t steady_operations = 1'000'000;
constexpr int interleaved_runs = 7;

using Operations = std::span<const Operation>;

// The fuller a literal book, the longer each of its operations takes; it gets no more of them than a user has patience.
Operations for_literal_book(const Flow& flow) {
    if (flow.prefill.size() <= 1'000) return flow.steady;
    return Operations(flow.steady).first(flow.prefill.size() <= 100'000 ? 200'000 : 20'000);
}

template <typename Book>
void apply_all(Book& book, Operations operations) {
    for (const Operation& operation : operations) book.apply(operation);
}

template <typename Book>
Book filled_book(const Flow& flow) {
    Book book;
    book.trades.reserve(flow.steady.size());
    apply_all(book, flow.prefill);
    return book;
}

// Nothing is worth timing that does not do the same.
void expect_equal_books(const Flow& flow) {
    auto core = filled_book<CoreBook>(flow);
    auto literal = filled_book<LiteralBook>(flow);
    apply_all(core, for_literal_book(flow));
    apply_all(literal, for_literal_book(flow));
    if (core.trades == literal.trades && core.levels() == literal.levels() && !core.trades.empty()) return;
    std::fprintf(stderr, "book_core: the two books differ: %zu and %zu trades, %zu and %zu levels\n",
                 core.trades.size(), literal.trades.size(), core.levels().size(), literal.levels().size());
    std::exit(EXIT_FAILURE);
}

template <typename Book>
double million_operations_a_second(const Flow& flow, Operations operations) {
    auto book = filled_book<Book>(flow);
    const double seconds = processor_seconds_of([&] { apply_all(book, operations); });
    return static_cast<double>(operations.size()) / seconds / 1e6;
}

void book_core(benchmark::State& state) {
    const Flow flow = make_flow(static_cast<std::size_t>(state.range(0)), steady_operations, seed);
    expect_equal_books(flow);
    std::vector<double> core;
    std::vector<double> literal;
    for (auto _ : state) {
        for (int i = 0; i < interleaved_runs; ++i) {
            core.push_back(million_operations_a_second<CoreBook>(flow, flow.steady));
            literal.push_back(million_operations_a_second<LiteralBook>(flow, for_literal_book(flow)));
        }
        state.SetIterationTime(1e-6 / median(core));
    }
    state.counters["core_Mops"] = median(core);
    state.counters["literal_Mops"] = median(literal);
    state.counters["ratio"] = median_ratio(core, literal);
}
BENCHMARK(book_core)->ArgName("live")->Arg(1'000)->Arg(100'000)->Arg(1'000'000)->Iterations(1)->UseManualTime();

}  // namespace
}  // namespace kavo::benchmarks

int main(int argc, char** argv) {
    return kavo::benchmarks::run_benchmarks(argc, argv);
}
