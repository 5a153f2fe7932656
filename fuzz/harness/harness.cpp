#include "harness/harness.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace kavo::fuzz {

namespace {

constexpr double longest_input_ms = 100;

struct Figures {
    std::uint64_t inputs = 0;
    std::uint64_t steps = 0;
    double slowest_ms = 0;
    bool limited = false;  // an input that takes too long is a finding

    ~Figures() {
        dprintf(STDERR_FILENO, "fuzz: %llu inputs, %llu steps, slowest input %.2f ms\n",
                static_cast<unsigned long long>(inputs), static_cast<unsigned long long>(steps), slowest_ms);
    }
};

Figures& figures() {
    static Figures kept;
    return kept;
}

double now_ms(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

double run_ms(ByteView input, void (*target)(ByteView), clockid_t clock) {
    const double start_ms = now_ms(clock);
    target(input);
    return now_ms(clock) - start_ms;
}

}  // namespace

// Said to the descriptor itself, past the commentary that goes nowhere.
void require(bool holds, const char* what) {
    if (holds) return;
    dprintf(STDERR_FILENO, "fuzz: this does not hold: %s\n", what);
    std::abort();
}

void require_nothing_in(const std::string& differences) {
    require(differences.empty(), differences.c_str());
}

void count_step() {
    ++figures().steps;
}

// A busy machine makes any input look slow now and then, so a record by the wall clock is run once more and measured in
// the processor's time, which is too dear to be asked for every input.
int run(ByteView input, void (*target)(ByteView)) {
    Figures& all = figures();
    ++all.inputs;
    double ms = run_ms(input, target, CLOCK_MONOTONIC);
    if (ms > all.slowest_ms) {
        const std::uint64_t steps = all.steps;
        ms = std::min(ms, run_ms(input, target, CLOCK_THREAD_CPUTIME_ID));
        all.steps = steps;
    }
    all.slowest_ms = std::max(all.slowest_ms, ms);
    require(!all.limited || ms <= longest_input_ms, "no input takes longer than 100 ms");
    return 0;
}

}  // namespace kavo::fuzz

// Called by the fuzzer alone. A replay sets no limit: it runs in every build, beside other tests.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
    kavo::fuzz::figures().limited = true;
    return 0;
}
