// Whatever clients send, in whatever order, under whatever scripted faults: the engine answers, trades, publishes and
// records exactly what the literal venue does, and its feed always leads to its book.
#include <gtest/gtest.h>

#include "model/request_maker.h"
#include "model/side_by_side.h"

namespace kavo::model {
namespace {

constexpr int requests = 20'000;
constexpr int requests_between_full_comparisons = 500;

struct Run {
    std::uint64_t seed = 0;
    bool acod = false;
    bool wraps_prices = false;
};

void PrintTo(const Run& run, std::ostream* out) {
    *out << "seed " << run.seed;
}

class RandomRequests : public testing::TestWithParam<Run> {
protected:
    RandomRequests() : sides_(settings()), maker_(GetParam().seed, sides_.venue) {
        maker_.wraps_prices = GetParam().wraps_prices;
    }

    static Settings settings() {
        Settings settings;
        settings.seed = GetParam().seed;
        settings.acod = GetParam().acod;
        return settings;
    }

    // What a venue lives through between two requests.
    std::string pass_time() {
        if (maker_.one_in(2)) sides_.let_pass(a_while(), maker_.below(1000));
        if (maker_.one_in(50)) sides_.arm(random_faults());
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
        faults.reject_every = every();
        faults.reject_next = next();
        faults.partial_fill_every = every();
        faults.partial_next = next();
        faults.fill_on_cancel_every = every();
        faults.fill_on_cancel_next = next();
        faults.unsolicited_cancel_every = every();
        faults.unsolicited_cancel_next = next();
        faults.replace_reject_every = every();
        faults.replace_reject_next = next();
        return faults;
    }

    WithoutCommentary without_commentary_;
    SideBySide sides_;
    RequestMaker maker_;
};

TEST_P(RandomRequests, AreAnsweredAsTheLiteralVenueAnswersThem) {
    ASSERT_EQ(sides_.start_day(), "");
    for (int step = 1; step <= requests; ++step) {
        ASSERT_EQ(pass_time(), "") << "before step " << step;
        const Request request = maker_.next();
        ASSERT_EQ(sides_.handle(request), "") << "at step " << step << ": " << request.text;
        if (step % requests_between_full_comparisons == 0) {
            ASSERT_EQ(sides_.compare_all_books(), "") << "after step " << step;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Model, RandomRequests,
                         testing::Values(Run{.seed = 1}, Run{.seed = 2, .acod = true}, Run{.seed = 3},
                                         Run{.seed = 4, .acod = true}, Run{.seed = 5},
                                         Run{.seed = 6, .acod = true, .wraps_prices = true}),
                         [](const auto& run) { return "seed_" + std::to_string(run.param.seed); });

}  // namespace
}  // namespace kavo::model
