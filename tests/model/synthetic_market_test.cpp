// The synthetic market is a promise: one seed is one market, down to the last byte of the feed. The venue of the model
// makes the same draws in its own way and predicts it.
#include <gtest/gtest.h>

#include "support/side_by_side.h"

namespace kavo::model {
namespace {

constexpr int ticks = 2500;

struct Market {
    std::string name;
    Settings settings;
};

void PrintTo(const Market& market, std::ostream* out) {
    *out << market.name;
}

Market default_market(std::uint64_t seed) {
    Settings settings;
    settings.seed = seed;
    return {"seed_" + std::to_string(seed), settings};
}

// A reference of two cents cannot carry quotes ten cents below it: their prices run through zero and wrap.
Market penny_market() {
    Settings settings;
    settings.symbols = {{"PENY", 0.02}, {"", 100.0}, {"ALONGTICKERX", 3.999}, {"SPY", 0.51}};
    settings.session = 255;
    settings.seed = 4'294'967'295;
    settings.step_bps = 50.0;
    settings.touch_hit = 1.0;
    return {"pennies", settings};
}

Market still_market() {
    Settings settings;
    settings.symbols = {{"FLAT", 12.345}};
    settings.step_bps = 0.0;
    settings.touch_hit = 0.0;
    return {"standing_still", settings};
}

testing::AssertionResult alike(const std::string& differences) {
    if (differences.empty()) return testing::AssertionSuccess();
    return testing::AssertionFailure() << differences;
}

class PredictedMarket : public testing::TestWithParam<Market> {};

TEST_P(PredictedMarket, IsTheEnginesMessageByMessage) {
    SideBySide market(GetParam().settings);
    ASSERT_TRUE(alike(market.start_day()));
    for (int tick = 1; tick <= ticks; ++tick) {
        // Mostly the usual step, now and then a pause of seconds; a few odd nanoseconds show in every timestamp.
        market.let_pass(tick % 100 == 0 ? 2500 : 40, 977);
        ASSERT_TRUE(alike(market.tick())) << "at tick " << tick;
    }
    EXPECT_TRUE(alike(market.compare_all_books()));
}

TEST_P(PredictedMarket, GreetsUsersAsTheEngineDoes) {
    SideBySide market(GetParam().settings);
    EXPECT_TRUE(alike(market.start_session()));
}

INSTANTIATE_TEST_SUITE_P(Model, PredictedMarket,
                         testing::Values(default_market(42), default_market(7), default_market(20261), penny_market(),
                                         still_market()),
                         [](const auto& run) { return run.param.name; });

}  // namespace
}  // namespace kavo::model
