#include "common/clock.h"

#include <gtest/gtest.h>

#include <chrono>

namespace kavo {
namespace {

std::uint64_t chrono_wall_ns() {
    const auto since_epoch = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(since_epoch).count());
}

std::uint64_t chrono_steady_ms() {
    const auto since_start = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(since_start).count());
}

TEST(Clock, TellsWallTimeInNanosecondsSinceTheEpoch) {
    const Clock clock;
    const std::uint64_t before = chrono_wall_ns();
    const std::uint64_t now = clock.wall_ns();
    const std::uint64_t after = chrono_wall_ns();
    EXPECT_LE(before, now);
    EXPECT_LE(now, after);
}

TEST(Clock, TellsSteadyTimeInWholeMilliseconds) {
    const Clock clock;
    const std::uint64_t before = chrono_steady_ms();
    const std::uint64_t now = clock.steady_ms();
    const std::uint64_t after = chrono_steady_ms();
    EXPECT_LE(before, now);
    EXPECT_LE(now, after);
}

TEST(Clock, StandsStillWhereItIsPut) {
    Clock clock;
    clock.stand_at(17, 1'700'000'000'123'456'789);
    EXPECT_EQ(clock.steady_ms(), 17u);
    EXPECT_EQ(clock.wall_ns(), 1'700'000'000'123'456'789u);
    clock.stand_at(3, 4);
    EXPECT_EQ(clock.steady_ms(), 3u);
    EXPECT_EQ(clock.wall_ns(), 4u);
}

TEST(Clock, AdvancesBothItsTimesTogether) {
    Clock clock;
    clock.stand_at(17, 1'700'000'000'999'999'999);
    clock.advance_ms(1);
    EXPECT_EQ(clock.steady_ms(), 18u);
    EXPECT_EQ(clock.wall_ns(), 1'700'000'001'000'999'999u);
    clock.advance_ms(60'000);
    EXPECT_EQ(clock.steady_ms(), 60'018u);
    EXPECT_EQ(clock.wall_ns(), 1'700'000'061'000'999'999u);
}

TEST(ElapsedMs, IsTheDifference) {
    EXPECT_EQ(elapsed_ms(1000, 1), 999u);
    EXPECT_EQ(elapsed_ms(1000, 0), 1000u);
    EXPECT_EQ(elapsed_ms(1000, 1000), 0u);
}

TEST(ElapsedMs, IsNothingForAMomentThatLiesAfterNow) {
    EXPECT_EQ(elapsed_ms(1000, 1001), 0u);
    EXPECT_EQ(elapsed_ms(0, 0xFFFFFFFFFFFFFFFF), 0u);
}

TEST(IsDue, OnceInEveryInterval) {
    std::uint64_t last_ms = 1000;
    EXPECT_FALSE(take_if_due(1249, last_ms, 250));
    EXPECT_TRUE(take_if_due(1250, last_ms, 250));
    EXPECT_FALSE(take_if_due(1250, last_ms, 250));
    EXPECT_FALSE(take_if_due(1499, last_ms, 250));
    EXPECT_TRUE(take_if_due(1500, last_ms, 250));
}

TEST(IsDue, OnceForAllThatWasMissed) {
    std::uint64_t last_ms = 1000;
    EXPECT_TRUE(take_if_due(1990, last_ms, 250));
    EXPECT_FALSE(take_if_due(2239, last_ms, 250));
    EXPECT_TRUE(take_if_due(2240, last_ms, 250));
}

TEST(IsDue, AlwaysWithoutAnInterval) {
    std::uint64_t last_ms = 1000;
    EXPECT_TRUE(take_if_due(1000, last_ms, 0));
    EXPECT_TRUE(take_if_due(1000, last_ms, 0));
}

}  // namespace
}  // namespace kavo
