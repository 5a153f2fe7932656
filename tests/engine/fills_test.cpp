#include <gtest/gtest.h>

#include "support/said.h"
#include "support/venue.h"

namespace kavo::test {
namespace {

TEST(Fill, NumbersTheMakersReportBeforeTheTakers) {
    Venue venue;
    venue.enter(sell("s1").at("190.00"), second_client);
    const std::string answers = venue.enter(buy("b1").at("190.00"));
    EXPECT_EQ(answers.substr(answers.find("E1")), "E1 b1 100@190 buy removed RC match 1 exec 2");
    EXPECT_EQ(venue.told(second_client), "E1 s1 100@190 sell added AC match 1 exec 1");
}

TEST(Fill, IsCountedOnceForEachSideThatIsAClient) {
    Venue venue({.seeded = true});
    venue.enter(buy("b1").shares(1).market());  // against the synthetic market
    EXPECT_EQ(venue.bench.counters.fills, 1u);
    venue.enter(sell("s1").at("150.00").shares(25'000));
    const std::uint64_t before = venue.bench.counters.fills;
    venue.enter(buy("b2").shares(1).at("150.00"), second_client);
    EXPECT_EQ(venue.bench.counters.fills, before + 2);
}

TEST(Fill, CarriesTheMarketOfTheProduct) {
    Venue venue({.symbols = {"AAPL", "SPY"}});
    venue.enter(sell("s1").product(2).at("190.00"), second_client);
    const std::string answers = venue.enter(buy("b1").product(2).at("190.00"));
    EXPECT_EQ(answers.substr(answers.find("E1")), "E1 b1 100@190 buy removed RB match 1 exec 2");
    EXPECT_EQ(venue.told(second_client), "E1 s1 100@190 sell added AB match 1 exec 1");
}

TEST(Fill, OfAMakerIsRememberedAsItsClose) {
    Venue venue;
    venue.enter(sell("s1").at("190.00"), second_client);
    venue.enter(buy("b1").shares(60).at("190.00"));
    venue.clock.advance_ms(5000);
    venue.enter(buy("b2").shares(40).at("190.00"));
    EXPECT_EQ(venue.asks(), "");
    venue.clock.advance_ms(1999);
    venue.cancel(cancel("s1"), second_client);
    EXPECT_EQ(venue.bench.counters.late_cancels, 1u);
}

TEST(Fill, OfATakerIsNotRemembered) {
    Venue venue;
    venue.enter(sell("s1").at("190.00"), second_client);
    venue.enter(buy("b1").at("190.00"));
    EXPECT_EQ(said_during([&] { venue.cancel(cancel("b1")); }),
              "bench: stale cancel for b1 (unknown client order id)\n");
}

TEST(Fill, OfPartOfAMakerIsNotItsClose) {
    Venue venue;
    venue.enter(sell("s1").at("190.00"), second_client);
    venue.enter(buy("b1").shares(60).at("190.00"));
    // A stranger to the order learns what is remembered of its id.
    EXPECT_EQ(said_during([&] { venue.cancel(cancel("s1")); }),
              "bench: stale cancel for s1 (unknown client order id)\n");
}

TEST(Fill, OfPartOfAMakerLeavesTheRestToBeCancelled) {
    Venue venue;
    venue.enter(sell("s1").at("190.00"), second_client);
    venue.enter(buy("b1").shares(60).at("190.00"));
    venue.published();
    EXPECT_EQ(venue.cancel(cancel("s1"), second_client), "CR xs1 of s1 accepted #1000 | XN s1 #1000 leaves 0 'U'");
    EXPECT_EQ(venue.published(), "delete 1 #1000");
}

TEST(Fill, MovesLastPriceAndVolumeOfTheProduct) {
    Venue venue;
    venue.enter(sell("s1").at("190.00"), second_client);
    venue.enter(sell("s2").at("190.05"), second_client);
    EXPECT_EQ(venue.engine.books.products()[0].last, 0u);
    EXPECT_EQ(venue.engine.books.products()[0].volume, 0u);
    venue.enter(buy("b1").shares(150).at("190.05"));
    EXPECT_EQ(venue.engine.books.products()[0].last, 1'900'500u);
    EXPECT_EQ(venue.engine.books.products()[0].volume, 150u);
    venue.cancel(cancel("s2"), second_client);  // no trade
    EXPECT_EQ(venue.engine.books.products()[0].volume, 150u);
}

TEST(Fill, OfTheSyntheticMarketMovesLastPriceAndVolumeToo) {
    Venue venue({.seeded = true});
    const Price best = venue.engine.books.products()[0].asks.best()->price;
    venue.enter(buy("m1").shares(1).market());
    EXPECT_EQ(venue.engine.books.products()[0].last, best);
    EXPECT_EQ(venue.engine.books.products()[0].volume, 1u);
}

// A client's whole resting order meets one of the same size while the fault is armed.
struct CutOrder {
    std::uint32_t size;
    std::uint32_t filled;
};
class PartialFillBySize : public testing::TestWithParam<CutOrder> {};

TEST_P(PartialFillBySize, CutsTheMakerAlone) {
    const std::uint32_t size = GetParam().size;
    const std::uint32_t filled = GetParam().filled;
    const std::string sizes = std::to_string(filled) + " of " + std::to_string(size);
    Venue venue;
    venue.bench.partial_next = 1;
    venue.enter(sell("s1").shares(size).at("190.00"), second_client);
    venue.published();
    std::string answers;
    EXPECT_EQ(said_during([&] { answers = venue.enter(buy("b1").shares(size).at("190.00")); }),
              "bench: partial fill of s1: " + sizes + "\n");
    EXPECT_EQ(answers.substr(answers.find("E1")),
              "E1 b1 " + std::to_string(size) + "@190 buy removed RC match 1 exec 2");
    EXPECT_EQ(venue.told(second_client), "E1 s1 " + std::to_string(filled) + "@190 sell added AC match 1 exec 1");
    EXPECT_EQ(venue.published(), "executed 1 #1000 " + std::to_string(filled) + "@190 match 1 resting S");
    EXPECT_EQ(venue.asks(), std::to_string(size - filled) + "@190");
    EXPECT_EQ(venue.engine.books.products()[0].volume, filled);
    EXPECT_EQ(venue.bench.counters.partials, 1u);
    EXPECT_EQ(venue.bench.partial_next, 0u);
}

INSTANTIATE_TEST_SUITE_P(Sizes, PartialFillBySize,
                         testing::Values(CutOrder{2, 1}, CutOrder{3, 1}, CutOrder{100, 50}, CutOrder{150, 75},
                                         CutOrder{199, 99}, CutOrder{200, 100}, CutOrder{250, 100}, CutOrder{300, 100},
                                         CutOrder{399, 100}, CutOrder{400, 200}, CutOrder{25'000, 12'500}),
                         [](const auto& order) { return "Of" + std::to_string(order.param.size); });

TEST(PartialFill, NeverCutsASingleShare) {
    Venue venue;
    venue.bench.partial_next = 1;
    venue.enter(sell("s1").shares(1).at("190.00"), second_client);
    EXPECT_EQ(said_during([&] { venue.enter(buy("b1").shares(1).at("190.00")); }), "");
    EXPECT_EQ(venue.asks(), "");
    EXPECT_EQ(venue.bench.partial_next, 1u);
}

TEST(PartialFill, OnlyHitsWhatWouldEmptyTheOrder) {
    Venue venue;
    venue.bench.partial_next = 1;
    venue.enter(sell("s1").shares(300).at("190.00"), second_client);
    EXPECT_EQ(said_during([&] { venue.enter(buy("b1").shares(299).at("190.00")); }), "");
    EXPECT_EQ(venue.asks(), "1@190");
    EXPECT_EQ(venue.bench.partial_next, 1u);
}

TEST(PartialFill, MeetsTheRestOfTheIncomingOrderAgain) {
    Venue venue;
    venue.bench.partial_next = 1;
    venue.enter(sell("s1").at("190.00"), second_client);
    const std::string answers = venue.enter(buy("b1").shares(150).at("190.00"));
    // Told of 100 although the maker gave 50; the 50 that are left of both then meet.
    EXPECT_EQ(answers.substr(answers.find("E1")),
              "E1 b1 100@190 buy removed RC match 1 exec 2 | E1 b1 50@190 buy removed RC match 2 exec 4");
    EXPECT_EQ(venue.told(second_client),
              "E1 s1 50@190 sell added AC match 1 exec 1 | E1 s1 50@190 sell added AC match 2 exec 3");
    EXPECT_EQ(venue.asks(), "");
}

TEST(PartialFill, LeavesTheMakerOpen) {
    Venue venue;
    venue.bench.partial_next = 1;
    venue.enter(sell("s1").at("190.00"), second_client);
    venue.enter(buy("b1").at("190.00"));
    EXPECT_EQ(venue.cancel(cancel("s1"), second_client), "CR xs1 of s1 accepted #1000 | XN s1 #1000 leaves 0 'U'");
}

TEST(PartialFill, HitsEveryNthOrderThatWouldBeEmptied) {
    Venue venue;
    venue.bench.partial_fill_every = 2;
    venue.enter(sell("s1").shares(200).at("190.00"), second_client);
    venue.enter(buy("b1").at("190.00"));  // does not empty it, and is not counted
    EXPECT_EQ(venue.asks(), "100@190");
    venue.enter(buy("b2").at("190.00"));  // the first of two
    EXPECT_EQ(venue.asks(), "");
    venue.enter(sell("s2").shares(1).at("190.00"), second_client);
    venue.enter(buy("b3").shares(1).at("190.00"));  // cannot be cut, and is not counted
    EXPECT_EQ(venue.asks(), "");
    venue.enter(sell("s3").at("190.00"), second_client);
    venue.enter(buy("b4").at("190.00"));
    EXPECT_EQ(venue.asks(), "50@190");
    venue.enter(buy("b5").shares(50).at("190.00"));  // the third
    EXPECT_EQ(venue.asks(), "");
    EXPECT_EQ(venue.bench.counters.partials, 1u);
}

TEST(PartialFill, ThatIsDueAnywayUsesUpOneOfTheNext) {
    Venue venue;
    venue.bench.partial_fill_every = 1;
    venue.bench.partial_next = 1;
    venue.enter(sell("s1").at("190.00"), second_client);
    venue.enter(buy("b1").at("190.00"));
    EXPECT_EQ(venue.bench.partial_next, 0u);
    venue.enter(buy("b2").shares(50).at("190.00"));
    EXPECT_EQ(venue.asks(), "25@190");
}

TEST(PartialFill, NeverCutsTheSyntheticMarket) {
    Venue venue({.seeded = true});
    venue.bench.partial_next = 1;
    venue.enter(buy("m1").shares(25'000).market());
    EXPECT_EQ(venue.asks(), "");
    EXPECT_EQ(venue.bench.partial_next, 1u);
    EXPECT_EQ(venue.bench.counters.partials, 0u);
}

}  // namespace
}  // namespace kavo::test
