// Whatever clients send, in whatever order, under whatever scripted faults: the engine answers, trades, publishes and
// records exactly what the venue of the model does, and its feed always leads to its book.
#include <gtest/gtest.h>

#include <span>

#include "support/request_maker.h"
#include "support/side_by_side.h"

namespace kavo::model {
namespace {

constexpr int requests = 20'000;
constexpr std::size_t counters_of_sessions = 3;
constexpr int requests_between_full_comparisons = 500;

struct Run {
    std::uint64_t seed = 0;
    bool acod = false;
    bool wraps_prices = false;
    std::uint32_t max_order_size = 25'000;
};

void PrintTo(const Run& run, std::ostream* out) {
    *out << "seed " << run.seed;
}

class RandomRequests : public testing::TestWithParam<Run> {
protected:
    RandomRequests() : sides_(settings()), maker_(GetParam().seed, sides_.venue, sides_.world) {
        maker_.wraps_prices = GetParam().wraps_prices;
    }

    static Settings settings() {
        Settings settings;
        settings.seed = GetParam().seed;
        settings.acod = GetParam().acod;
        settings.max_order_size = GetParam().max_order_size;
        if (GetParam().wraps_prices) settings.symbols[1] = {"PENY", 0.05};
        return settings;
    }

    static testing::AssertionResult alike(const std::string& differences) {
        if (differences.empty()) return testing::AssertionSuccess();
        return testing::AssertionFailure() << differences;
    }

    // What a venue lives through between two requests.
    std::string pass_time() {
        if (maker_.one_in(2)) {
            const std::uint64_t ms = a_while();
            sides_.let_pass(ms, maker_.below(1000));
        }
        if (maker_.one_in(50)) sides_.arm(random_faults());
        if (maker_.one_in(300)) sides_.pause(maker_.one_in(3));
        std::string differences;
        if (maker_.one_in(25)) differences += sides_.tick();
        if (maker_.one_in(4)) differences += sides_.cancel_unsolicited();
        if (maker_.one_in(400)) differences += sides_.drop(maker_.drop_client());
        if (maker_.one_in(15)) sides_.deliver();
        return differences;
    }

    std::uint64_t a_while() {
        if (maker_.one_in(80)) return maker_.below(3001);
        return maker_.one_in(10) ? maker_.below(301) : maker_.below(20);
    }

    // Half of the settings are off, and each is off at one time or another.
    std::uint32_t every() { return static_cast<std::uint32_t>(maker_.one_in(2) ? 0 : 1 + maker_.below(12)); }
    std::uint32_t next() { return static_cast<std::uint32_t>(maker_.one_in(3) ? 1 + maker_.below(4) : 0); }

    Faults random_faults() {
        Faults faults;
        for (Bench::Fault& fault : faults) {
            fault.script.every = every();
            fault.script.next = next();
        }
        return faults;
    }

    // A run in which one of these never happened has not asked what it should.
    void expect_a_full_life() {
        const Bench& bench = sides_.venue.bench;
        const std::vector<Bench::Counter> counters = bench.counters();
        for (const Bench::Counter& counter : std::span(counters).first(counters.size() - counters_of_sessions)) {
            EXPECT_GT(counter.value, 20u) << counter.name;
        }
        EXPECT_EQ(bench.disconnect_cancels > 0, GetParam().acod);
    }

    SideBySide sides_;
    RequestMaker maker_;
};

TEST_P(RandomRequests, AreAnsweredAsTheModelAnswersThem) {
    ASSERT_TRUE(alike(sides_.start_day()));
    for (int step = 1; step <= requests; ++step) {
        ASSERT_TRUE(alike(pass_time())) << "before step " << step;
        const Request request = maker_.next();
        ASSERT_TRUE(alike(sides_.handle(request))) << "at step " << step << ": " << request.text;
        if (step % requests_between_full_comparisons == 0) {
            ASSERT_TRUE(alike(sides_.compare_all_books())) << "after step " << step;
        }
    }
    expect_a_full_life();
}

INSTANTIATE_TEST_SUITE_P(Model, RandomRequests,
                         testing::Values(Run{.seed = 1}, Run{.seed = 2, .acod = true}, Run{.seed = 3},
                                         Run{.seed = 4, .acod = true}, Run{.seed = 5, .max_order_size = 0xffffffff},
                                         Run{.seed = 6, .acod = true, .wraps_prices = true}),
                         [](const auto& run) { return "seed_" + std::to_string(run.param.seed); });

}  // namespace
}  // namespace kavo::model
