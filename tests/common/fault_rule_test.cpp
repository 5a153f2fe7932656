#include "common/fault_rule.h"

#include <gtest/gtest.h>

#include <string>

namespace kavo {
namespace {

// The numbers of the events, from 1 to `events`, on which the rule fires.
std::string firings(int events, std::uint32_t every, std::uint32_t& next) {
    std::string list;
    for (int count = 1; count <= events; ++count) {
        if (fault_fires(static_cast<std::uint64_t>(count), every, next)) list += std::to_string(count) + " ";
    }
    return list;
}

TEST(FaultRule, NeverFiresWhenNothingIsSet) {
    std::uint32_t next = 0;
    EXPECT_EQ(firings(100, 0, next), "");
    EXPECT_EQ(next, 0u);
}

TEST(FaultRule, FiresOnEachMultipleOfEvery) {
    std::uint32_t next = 0;
    EXPECT_EQ(firings(10, 3, next), "3 6 9 ");
    EXPECT_EQ(firings(4, 1, next), "1 2 3 4 ");
    EXPECT_EQ(next, 0u);
}

TEST(FaultRule, FiresOnEachOfTheNextEventsAndUsesThemUp) {
    std::uint32_t next = 2;
    EXPECT_EQ(firings(5, 0, next), "1 2 ");
    EXPECT_EQ(next, 0u);
}

TEST(FaultRule, UsesUpOneOfTheNextEventsWhenItFiresPeriodically) {
    std::uint32_t next = 3;
    EXPECT_EQ(firings(8, 2, next), "1 2 3 4 6 8 ");
    EXPECT_EQ(next, 0u);
}

TEST(FaultRule, FiresOnAnEventThatIsDueAnywayAndUsesUpOneOfTheNext) {
    std::uint32_t next = 0;
    EXPECT_TRUE(fault_fires(7, 0, next, true));
    EXPECT_EQ(next, 0u);

    next = 2;
    EXPECT_TRUE(fault_fires(8, 0, next, true));
    EXPECT_EQ(next, 1u);
}

TEST(FaultRule, UsesUpOnlyOneWhenEverythingIsDueAtOnce) {
    std::uint32_t next = 5;
    EXPECT_TRUE(fault_fires(10, 10, next, true));
    EXPECT_EQ(next, 4u);
}

TEST(FaultRule, CountsBeyondThirtyTwoBits) {
    std::uint32_t next = 0;
    EXPECT_TRUE(fault_fires(3 * 0xFFFFFFFFull, 0xFFFFFFFF, next));
    EXPECT_FALSE(fault_fires(3 * 0xFFFFFFFFull + 1, 0xFFFFFFFF, next));
}

}  // namespace
}  // namespace kavo
