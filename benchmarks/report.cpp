#include "report.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace kavo::benchmarks {

namespace {

// The library's own table has a column of processor time, which here would be that of all runs and preparations
// together.
class LineReporter : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context&) override { return true; }

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.run_type == Run::RT_Aggregate) continue;  // each line is a median already
            std::string name = run.run_name.function_name;
            if (!run.run_name.args.empty()) name += " " + run.run_name.args;
            if (!run.report_label.empty()) name += " " + run.report_label;
            std::printf("%-40s", name.c_str());
            if (run.error_occurred) {
                std::printf("  FAILED: %s", run.error_message.c_str());
            } else {
                print_time(run.real_accumulated_time / static_cast<double>(run.iterations));
                for (const auto& [counter, value] : run.counters) print_counter(counter, value.value);
            }
            std::printf("\n");
        }
        std::fflush(stdout);
    }

private:
    static void print_time(double seconds) {
        if (seconds == 0) return;
        if (seconds < 1e-6) std::printf(" %9.1f ns", seconds * 1e9);
        if (seconds >= 1e-6 && seconds < 1e-3) std::printf(" %9.2f us", seconds * 1e6);
        if (seconds >= 1e-3) std::printf(" %9.2f ms", seconds * 1e3);
    }
    static void print_counter(const std::string& name, double value) {
        std::printf("   %s %.*f", name.c_str(), value < 0.1 ? 4 : 2, value);
    }
};

}  // namespace

int run_benchmarks(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return EXIT_FAILURE;
    LineReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    return EXIT_SUCCESS;
}

}  // namespace kavo::benchmarks
