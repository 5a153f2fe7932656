#include <gtest/gtest.h>

#include "support/venue.h"

namespace kavo::test {
namespace {

// What an order is told of its trades, without the acceptance in front of them.
std::string trades(const std::string& answers) {
    const std::size_t start = answers.find("E1");
    return start == std::string::npos ? "" : answers.substr(start);
}

TEST(Matching, TakesTheBetterPriceFirst) {
    Venue venue;
    venue.enter(sell("s2").at("190.05"), second_client);
    venue.enter(sell("s1").at("190.00"), second_client);
    venue.published();
    EXPECT_EQ(venue.enter(buy("b1").shares(150).at("190.05")),
              "NR b1 accepted #1002 150@190.05 | O1 b1 #1002 buy 150@190.05 tif D type 1 | "
              "E1 b1 100@190 buy removed RC match 1 exec 2 | E1 b1 50@190.05 buy removed RC match 2 exec 4");
    EXPECT_EQ(venue.told(second_client),
              "E1 s1 100@190 sell added AC match 1 exec 1 | E1 s2 50@190.05 sell added AC match 2 exec 3");
    EXPECT_EQ(venue.published(),
              "executed 1 #1001 100@190 match 1 resting S | executed 1 #1000 50@190.05 match 2 resting S");
    EXPECT_EQ(venue.asks(), "50@190.05");
    EXPECT_EQ(venue.bids(), "");
}

TEST(Matching, OfASellTakesTheHighestBidFirst) {
    Venue venue;
    venue.enter(buy("b1").at("189.95"), second_client);
    venue.enter(buy("b2").at("190.00"), second_client);
    venue.published();
    EXPECT_EQ(trades(venue.enter(sell("s1").shares(150).at("189.95"))),
              "E1 s1 100@190 sell removed RC match 1 exec 2 | E1 s1 50@189.95 sell removed RC match 2 exec 4");
    EXPECT_EQ(venue.told(second_client),
              "E1 b2 100@190 buy added AC match 1 exec 1 | E1 b1 50@189.95 buy added AC match 2 exec 3");
    EXPECT_EQ(venue.published(),
              "executed 1 #1001 100@190 match 1 resting B | executed 1 #1000 50@189.95 match 2 resting B");
    EXPECT_EQ(venue.bids(), "50@189.95");
}

TEST(Matching, ServesThoseFirstWhoCameFirst) {
    Venue venue;
    venue.enter(sell("s1").at("190.00"), second_client);
    venue.enter(sell("s2").at("190.00"), second_client);
    venue.enter(sell("s3").at("190.00"), second_client);
    venue.cancel(cancel("s2"), second_client);
    venue.enter(buy("b1").shares(150).at("190.00"));
    EXPECT_EQ(venue.told(second_client),
              "E1 s1 100@190 sell added AC match 1 exec 1 | E1 s3 50@190 sell added AC match 2 exec 3");
}

TEST(Matching, LeavesAPartlyFilledOrderAtTheFront) {
    Venue venue;
    venue.enter(sell("s1").shares(300).at("190.00"), second_client);
    venue.enter(sell("s2").at("190.00"), second_client);
    venue.enter(buy("b1").at("190.00"));
    venue.enter(buy("b2").at("190.00"));
    EXPECT_EQ(venue.told(second_client),
              "E1 s1 100@190 sell added AC match 1 exec 1 | E1 s1 100@190 sell added AC match 2 exec 3");
    EXPECT_EQ(venue.asks(), "200@190");
}

TEST(Matching, StopsAtTheLimit) {
    Venue venue;
    venue.enter(sell("s1").at("190.01"), second_client);
    EXPECT_EQ(trades(venue.enter(buy("b1").at("190.00"))), "");
    EXPECT_EQ(trades(venue.enter(sell("s2").at("190.00"))), "E1 s2 100@190 sell removed RC match 1 exec 2");
    venue.enter(buy("b2").at("189.99"));
    EXPECT_EQ(trades(venue.enter(sell("s3").at("190.00"))), "");
    EXPECT_EQ(venue.bids(), "100@189.99");
    EXPECT_EQ(venue.asks(), "100@190 100@190.01");
}

TEST(Matching, TradesAtTheRestingPrice) {
    Venue venue;
    venue.enter(sell("s1").at("189.00"), second_client);
    EXPECT_EQ(trades(venue.enter(buy("b1").at("190.00"))), "E1 b1 100@189 buy removed RC match 1 exec 2");
}

TEST(Matching, RestsTheRemainderAtItsOwnPrice) {
    Venue venue;
    venue.enter(sell("s1").at("190.00"), second_client);
    venue.enter(sell("s2").at("190.01"), second_client);
    venue.published();
    EXPECT_EQ(trades(venue.enter(buy("b1").shares(250).at("190.02"))),
              "E1 b1 100@190 buy removed RC match 1 exec 2 | E1 b1 100@190.01 buy removed RC match 2 exec 4 | "
              "P1 b1 #1002 @190.02 touch");
    EXPECT_EQ(venue.published(),
              "executed 1 #1000 100@190 match 1 resting S | executed 1 #1001 100@190.01 match 2 resting S | "
              "add 1 #1002 B 50@190.02");
    EXPECT_EQ(venue.bids(), "50@190.02");
    EXPECT_EQ(venue.asks(), "");
}

TEST(Matching, OfAMarketOrderGoesThroughEveryLevel) {
    Venue venue;
    venue.enter(sell("s1").at("190.00"), second_client);
    venue.enter(sell("s2").at("400000.00"), second_client);
    EXPECT_EQ(trades(venue.enter(buy("m1").shares(300).market())),
              "E1 m1 100@190 buy removed RC match 1 exec 2 | E1 m1 100@400000 buy removed RC match 2 exec 4 | "
              "XN m1 #1002 leaves 0 'C'");
    venue.enter(buy("b1").at("0.01"), second_client);
    EXPECT_EQ(trades(venue.enter(sell("m2").shares(100).market())), "E1 m2 100@0.01 sell removed RC match 3 exec 6");
}

TEST(Matching, NeverAsksWhoseOrdersMeet) {
    Venue venue;
    venue.enter(sell("s1").at("190.00"));
    EXPECT_EQ(venue.enter(buy("b1").at("190.00")),
              "NR b1 accepted #1001 100@190 | O1 b1 #1001 buy 100@190 tif D type 1 | "
              "E1 b1 100@190 buy removed RC match 1 exec 2");
    EXPECT_EQ(venue.told(0), "E1 s1 100@190 sell added AC match 1 exec 1");
}

TEST(Matching, KeepsTheBooksApart) {
    Venue venue({.symbols = {"AAPL", "MSFT"}});
    venue.enter(sell("s1").product(1).at("190.00"), second_client);
    EXPECT_EQ(trades(venue.enter(buy("b1").product(2).at("190.00"))), "");
    EXPECT_EQ(venue.asks(1), "100@190");
    EXPECT_EQ(venue.bids(2), "100@190");
}

TEST(Matching, TakesAnEmptiedLevelOffTheBook) {
    Venue venue;
    venue.enter(sell("s1").at("190.00"), second_client);
    venue.enter(sell("s2").at("190.01"), second_client);
    venue.cancel(cancel("s1"), second_client);
    EXPECT_EQ(venue.asks(), "100@190.01");
    venue.enter(buy("b1").at("190.01"));
    EXPECT_EQ(venue.asks(), "");
    EXPECT_EQ(venue.engine.books.resting_orders(), 0u);
}

// 10,737,418.24 in ten-thousandths is a multiple of 2^32. What rests there has no price to trade at, and stands in
// front of its whole side.
TEST(Matching, StopsInFrontOfAPriceThatWrappedToNothing) {
    Venue venue;
    venue.enter(sell("s1").at("190.00"), second_client);
    NewOrder wrapped = sell("s0");
    wrapped.price = 10'737'418'240'000;
    venue.enter(wrapped, second_client);
    EXPECT_EQ(venue.asks(), "100@0 100@190");
    EXPECT_EQ(trades(venue.enter(buy("b1").at("190.00"))), "");
    EXPECT_EQ(trades(venue.enter(buy("m1").market())), "");
    EXPECT_EQ(venue.bids(), "100@190");
    venue.cancel(cancel("s0"), second_client);
    EXPECT_EQ(trades(venue.enter(buy("b2").at("190.00"))), "E1 b2 100@190 buy removed RC match 1 exec 2");
}

TEST(AllOrNothing, WithTooLittleInReachExpiresWithoutATrade) {
    Venue venue;
    venue.enter(sell("s1").at("190.00"), second_client);
    venue.enter(sell("s2").at("190.01"), second_client);
    venue.published();
    EXPECT_EQ(venue.enter(buy("f1").all_or_nothing().shares(300).at("190.01")),
              "NR f1 accepted #1002 300@190.01 | O1 f1 #1002 buy 300@190.01 tif F type 1 | XN f1 #1002 leaves 0 'C'");
    EXPECT_EQ(venue.published(), "");
    EXPECT_EQ(venue.told(second_client), "");
    EXPECT_EQ(venue.asks(), "100@190 100@190.01");
}

TEST(AllOrNothing, WithEnoughInReachTakesTheBetterLevelFirst) {
    Venue venue;
    venue.enter(sell("s2").shares(200).at("190.01"), second_client);
    venue.enter(sell("s1").at("190.00"), second_client);
    EXPECT_EQ(trades(venue.enter(buy("f1").all_or_nothing().shares(300).at("190.01"))),
              "E1 f1 100@190 buy removed RC match 1 exec 2 | E1 f1 200@190.01 buy removed RC match 2 exec 4");
    EXPECT_EQ(venue.asks(), "");
}

TEST(AllOrNothing, CountsEveryOrderOfALevelWithWhatIsLeftOfIt) {
    Venue venue;
    venue.enter(sell("s1").at("190.00"), second_client);
    venue.enter(sell("s2").at("190.00"), second_client);
    venue.enter(sell("s3").at("190.00"), second_client);
    venue.enter(buy("b1").shares(40).at("190.00"));  // s1 keeps 60
    venue.cancel(cancel("s2"), second_client);
    EXPECT_EQ(trades(venue.enter(buy("f1").all_or_nothing().shares(161).at("190.00"))), "");
    EXPECT_EQ(trades(venue.enter(buy("f2").all_or_nothing().shares(160).at("190.00"))),
              "E1 f2 60@190 buy removed RC match 2 exec 4 | E1 f2 100@190 buy removed RC match 3 exec 6");
}

TEST(AllOrNothing, DoesNotCountWhatLiesBeyondItsLimit) {
    Venue venue;
    venue.enter(sell("s1").at("190.00"), second_client);
    venue.enter(sell("s2").at("190.01"), second_client);
    EXPECT_EQ(trades(venue.enter(buy("f1").all_or_nothing().shares(101).at("190.00"))), "");
    venue.enter(buy("b1").at("189.99"), second_client);
    venue.enter(buy("b2").at("189.98"), second_client);
    EXPECT_EQ(trades(venue.enter(sell("f2").all_or_nothing().shares(101).at("189.99"))), "");
    EXPECT_EQ(trades(venue.enter(sell("f3").all_or_nothing().shares(101).at("189.98"))),
              "E1 f3 100@189.99 sell removed RC match 1 exec 2 | E1 f3 1@189.98 sell removed RC match 2 exec 4");
}

TEST(AllOrNothing, ThatDoesNotCrossExpires) {
    Venue venue;
    EXPECT_EQ(venue.enter(buy("f1").all_or_nothing().shares(1).at("190.00")),
              "NR f1 accepted #1000 1@190 | O1 f1 #1000 buy 1@190 tif F type 1 | XN f1 #1000 leaves 0 'C'");
    venue.enter(sell("s1").at("190.01"), second_client);
    EXPECT_EQ(venue.enter(buy("f2").all_or_nothing().shares(1).at("190.00")),
              "NR f2 accepted #1002 1@190 | O1 f2 #1002 buy 1@190 tif F type 1 | XN f2 #1002 leaves 0 'C'");
    EXPECT_EQ(venue.bench.counters.cancels, 2u);
}

TEST(AllOrNothing, AtTheMarketReachesEveryLevel) {
    Venue venue;
    venue.enter(sell("s1").at("190.00"), second_client);
    venue.enter(sell("s2").at("400000.00"), second_client);
    EXPECT_EQ(trades(venue.enter(buy("f1").all_or_nothing().shares(201).market())), "");
    EXPECT_EQ(trades(venue.enter(buy("f2").all_or_nothing().shares(200).market())),
              "E1 f2 100@190 buy removed RC match 1 exec 2 | E1 f2 100@400000 buy removed RC match 2 exec 4");
    venue.enter(buy("b1").at("190.00"), second_client);
    venue.enter(buy("b2").at("0.01"), second_client);
    EXPECT_EQ(trades(venue.enter(sell("f3").all_or_nothing().shares(201).market())), "");
    EXPECT_EQ(trades(venue.enter(sell("f4").all_or_nothing().shares(200).market())),
              "E1 f4 100@190 sell removed RC match 3 exec 6 | E1 f4 100@0.01 sell removed RC match 4 exec 8");
}

TEST(AllOrNothing, ThatExpiresIsRememberedAsClosed) {
    Venue venue;
    venue.enter(buy("f1").all_or_nothing().at("190.00"));
    venue.cancel(cancel("f1"));
    EXPECT_EQ(venue.bench.counters.late_cancels, 1u);
}

}  // namespace
}  // namespace kavo::test
