// The book core beside a sketch of itself and beside a literal book on one flow, in million operations a second. The
// sketch says what the care of the core costs or is worth, the literal book what any care is. Before any time is taken,
// all must have made the same trades and must end with the same levels.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <span>

#include "core_book.h"
#include "flow.h"
#include "literal_book.h"
#include "report.h"
#include "sketch_book.h"
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
template <typename Book>
void expect_equal_to_core(const char* name, const Flow& flow, Operations operations) {
    auto core = filled_book<CoreBook>(flow);
    auto other = filled_book<Book>(flow);
    apply_all(core, operations);
    apply_all(other, operations);
    if (core.trades == other.trades && core.levels() == other.levels() && !core.trades.empty()) return;
    std::fprintf(stderr, "book_core: core and %s differ: %zu and %zu trades, %zu and %zu levels\n", name,
                 core.trades.size(), other.trades.size(), core.levels().size(), other.levels().size());
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
    expect_equal_to_core<SketchBook>("sketch", flow, flow.steady);
    expect_equal_to_core<LiteralBook>("literal", flow, for_literal_book(flow));
    std::vector<double> core;
    std::vector<double> sketch;
    std::vector<double> literal;
    for (auto _ : state) {
        for (int i = 0; i < interleaved_runs; ++i) {
            core.push_back(million_operations_a_second<CoreBook>(flow, flow.steady));
            sketch.push_back(million_operations_a_second<SketchBook>(flow, flow.steady));
            literal.push_back(million_operations_a_second<LiteralBook>(flow, for_literal_book(flow)));
        }
        state.SetIterationTime(1e-6 / median(core));
    }
    state.counters["core_Mops"] = median(core);
    state.counters["sketch_Mops"] = median(sketch);
    state.counters["core/sketch"] = median_ratio(core, sketch);
    state.counters["literal_Mops"] = median(literal);
    state.counters["core/literal"] = median_ratio(core, literal);
}
BENCHMARK(book_core)->ArgName("live")->Arg(1'000)->Arg(100'000)->Arg(1'000'000)->Iterations(1)->UseManualTime();

}  // namespace
}  // namespace kavo::benchmarks

int main(int argc, char** argv) {
    return kavo::benchmarks::run_benchmarks(argc, argv);
}
