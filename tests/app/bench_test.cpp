#include "app/bench.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "support/said.h"

namespace kavo {
namespace {

using test::said_during;
using test::standard_error;

// Arms a scenario and keeps what was said about it.
struct Armed {
    explicit Armed(const std::string& text) {
        said = said_during([&] { bench.arm_scenario(text, standard_error); });
    }
    Bench bench;
    std::string said;
};

constexpr char nothing_armed[] =
    "bench: scenario '' armed (disconnect after 0 orders, lapse 0 ms, reject every 0, partial every 0, fill-on-cancel "
    "every 0, unsolicited cancel every 0, replace reject every 0)\n";

TEST(ScenarioText, SetsEveryKnobAndSaysSo) {
    const Armed armed(
        "name=all of it,disconnect_after=1,lapse_ms=2,reject_every=3,partial_fill_every=4,fill_on_cancel_every=5,"
        "unsolicited_cancel_every=6,replace_reject_every=7");
    EXPECT_EQ(armed.bench.name, "all of it");
    EXPECT_EQ(armed.bench.disconnect_after, 1u);
    EXPECT_EQ(armed.bench.lapse_ms, 2);
    EXPECT_EQ(armed.bench.reject_every, 3u);
    EXPECT_EQ(armed.bench.partial_fill_every, 4u);
    EXPECT_EQ(armed.bench.fill_on_cancel_every, 5u);
    EXPECT_EQ(armed.bench.unsolicited_cancel_every, 6u);
    EXPECT_EQ(armed.bench.replace_reject_every, 7u);
    EXPECT_EQ(armed.said,
              "bench: scenario 'all of it' armed (disconnect after 1 orders, lapse 2 ms, reject every 3, partial every "
              "4, fill-on-cancel every 5, unsolicited cancel every 6, replace reject every 7)\n");
}

TEST(ScenarioText, LeavesKnobsAloneThatItDoesNotName) {
    const Armed armed("reject_every=10");
    EXPECT_EQ(armed.bench.reject_every, 10u);
    EXPECT_EQ(armed.bench.name, "");
    EXPECT_EQ(armed.bench.disconnect_after, 0u);
    EXPECT_EQ(armed.bench.lapse_ms, 0);
    EXPECT_EQ(armed.bench.partial_fill_every, 0u);
    EXPECT_EQ(armed.bench.fill_on_cancel_every, 0u);
    EXPECT_EQ(armed.bench.unsolicited_cancel_every, 0u);
    EXPECT_EQ(armed.bench.replace_reject_every, 0u);
}

TEST(ScenarioText, OfOnlyCommasArmsNothing) {
    EXPECT_EQ(Armed(",").said, nothing_armed);
    EXPECT_EQ(Armed(",,,").said, nothing_armed);
}

TEST(ScenarioText, SkipsEmptyItems) {
    const Armed armed(",name=x,,lapse_ms=5000,");
    EXPECT_EQ(armed.bench.name, "x");
    EXPECT_EQ(armed.bench.lapse_ms, 5000);
}

TEST(ScenarioText, TakesTheLaterOfTwoValues) {
    const Armed armed("reject_every=3,name=first,reject_every=5,name=second");
    EXPECT_EQ(armed.bench.reject_every, 5u);
    EXPECT_EQ(armed.bench.name, "second");
}

TEST(ScenarioText, IgnoresKeysItDoesNotKnow) {
    EXPECT_EQ(Armed("colour=red,reject=5,reject_every_=5, reject_every=5,reject_every =5").said, nothing_armed);
}

TEST(ScenarioText, IgnoresKeysInCapitals) {
    EXPECT_EQ(Armed("REJECT_EVERY=5,Name=x,Lapse_Ms=5").said, nothing_armed);
}

TEST(ScenarioText, IgnoresItemsWithoutAnEqualsSign) {
    EXPECT_EQ(Armed("reject_every,5,name").said, nothing_armed);
}

TEST(ScenarioText, IgnoresAValueWithoutAKey) {
    EXPECT_EQ(Armed("=5,=name=x").said, nothing_armed);
}

TEST(ScenarioText, EndsAKeyAtTheFirstEqualsSign) {
    EXPECT_EQ(Armed("name=a=b==").bench.name, "a=b==");
    EXPECT_EQ(Armed("reject_every=5=6").bench.reject_every, 5u);
}

TEST(ScenarioText, MayHaveAnEmptyName) {
    EXPECT_EQ(Armed("name=x,name=").bench.name, "");
}

TEST(ScenarioText, ReadsNumbersAsTheStandardConversionsDo) {
    EXPECT_EQ(Armed("reject_every= 7 and so on").bench.reject_every, 7u);
    EXPECT_EQ(Armed("reject_every=+7").bench.reject_every, 7u);
    EXPECT_EQ(Armed("lapse_ms=-1").bench.lapse_ms, -1);
}

TEST(ScenarioText, KeepsCountsToThirtyTwoBits) {
    EXPECT_EQ(Armed("reject_every=4294967295").bench.reject_every, 4'294'967'295u);
    EXPECT_EQ(Armed("reject_every=4294967296").bench.reject_every, 0u);
    EXPECT_EQ(Armed("reject_every=4294967301").bench.reject_every, 5u);
    EXPECT_EQ(Armed("reject_every=-1").bench.reject_every, 4'294'967'295u);
}

TEST(ScenarioText, ThrowsAtAValueThatIsNoNumber) {
    for (const char* key : {"disconnect_after", "lapse_ms", "reject_every", "partial_fill_every",
                            "fill_on_cancel_every", "unsolicited_cancel_every", "replace_reject_every"}) {
        Bench bench;
        EXPECT_THROW(bench.arm_scenario(std::string(key) + "=often", standard_error), std::invalid_argument) << key;
        EXPECT_THROW(bench.arm_scenario(std::string(key) + "=", standard_error), std::invalid_argument) << key;
    }
}

TEST(ScenarioText, ThrowsAtANumberThatIsTooLarge) {
    Bench bench;
    EXPECT_THROW(bench.arm_scenario("reject_every=18446744073709551616", standard_error), std::out_of_range);
    EXPECT_THROW(bench.arm_scenario("lapse_ms=2147483648", standard_error), std::out_of_range);
}

TEST(ScenarioText, SaysNothingWhenItBreaksOff) {
    Bench bench;
    const std::string said = said_during([&] {
        EXPECT_THROW(bench.arm_scenario("reject_every=3,lapse_ms=long", standard_error), std::invalid_argument);
    });
    EXPECT_EQ(said, "");
}

TEST(ScenarioText, OfALapseShowsItsSign) {
    EXPECT_EQ(Armed("name=x,lapse_ms=-5").said,
              "bench: scenario 'x' armed (disconnect after 0 orders, lapse -5 ms, reject every 0, partial every 0, "
              "fill-on-cancel every 0, unsolicited cancel every 0, replace reject every 0)\n");
}

TEST(ScriptedBench, IsOneWithAnyKnobOfItsScenarioSet) {
    EXPECT_FALSE(Bench().scripted());
    for (const char* knob :
         {"disconnect_after=1", "lapse_ms=1", "lapse_ms=-1", "reject_every=1", "partial_fill_every=1",
          "fill_on_cancel_every=1", "unsolicited_cancel_every=1", "replace_reject_every=1"}) {
        EXPECT_TRUE(Armed(knob).bench.scripted()) << knob;
    }
}

TEST(ScriptedBench, IsNotMadeByANameOrByRequestsWhileRunning) {
    Armed armed("name=x,reject_every=0");
    armed.bench.reject_next = 5;
    armed.bench.disconnect_requested = true;
    EXPECT_FALSE(armed.bench.scripted());
}

TEST(LapseWindow, LastsUntilItsLengthHasPassed) {
    Bench bench;
    EXPECT_FALSE(bench.in_lapse(0));
    bench.start_lapse(1000, 250);
    EXPECT_EQ(bench.lapse_until_ms, 1250u);
    EXPECT_TRUE(bench.in_lapse(1000));
    EXPECT_TRUE(bench.in_lapse(1249));
    EXPECT_FALSE(bench.in_lapse(1250));
}

TEST(LapseWindow, IsAnnouncedAnewEachTimeItStarts) {
    Bench bench;
    bench.lapse_announced = true;
    bench.start_lapse(1000, 250);
    EXPECT_FALSE(bench.lapse_announced);
}

TEST(BenchCounters, BeginAtZero) {
    const Bench bench;
    for (const ReportedCounter& counter : reported_counters)
        EXPECT_EQ(bench.counters.*counter.value, 0u) << counter.label;
}

TEST(BenchCounters, AreReportedUnderTheirNamesInAFixedOrder) {
    BenchCounters counters;
    counters.orders = 1;
    counters.accepts = 2;
    counters.fills = 3;
    counters.partials = 4;
    counters.cancels = 5;
    counters.replaces = 6;
    counters.rejects = 7;
    counters.replace_rejects = 8;
    counters.unsolicited_cancels = 9;
    counters.race_fills = 10;
    counters.late_cancels = 11;
    counters.stale_cancels = 12;
    counters.logins = 13;
    counters.replays = 14;
    counters.replayed = 15;
    std::ostringstream report;
    for (const ReportedCounter& counter : reported_counters) report << counter.label << counters.*counter.value << ' ';
    EXPECT_EQ(report.str(),
              "orders1 accepts2 fills3 partials4 cancels5 replaces6 rejects7 replace_rejects8 unsolicited_cancels9 "
              "race_fills10 late_cancels11 stale_cancels12 logins13 replays14 replayed15 ");
}

}  // namespace
}  // namespace kavo
