// New orders of real clients: what they are told, what the feed shows, and whom they trade with.
#include <ctime>

#include "model/bench.h"
#include "support/scene.h"
#include "system/live_venue.h"

namespace kavo::test {
namespace {

constexpr std::uint16_t attributed = 1 << 8;
constexpr std::uint16_t retail = 2 << 8;
constexpr std::uint16_t short_sale = 1 << 1;

std::uint64_t ms_since_epoch() {
    return static_cast<std::uint64_t>(std::time(nullptr)) * 1000;
}

TEST(LiveOrder, ThatMeetsNobodyRestsAndShowsOnTheFeed) {
    LiveVenue venue;
    venue.empty_the_books();
    User alice(venue, "alice");

    alice.send(buy("b1").shares(300).at("189.95"));
    EXPECT_EQ(alice.next(3),
              "3: NR b1 accepted #1042 300@189.95 | 4: O1 b1 #1042 buy 300@189.95 tif D type 1 | "
              "5: P1 b1 #1042 @189.95 touch");
    alice.send(buy("b2").shares(100).at("189.94").flags(attributed));
    EXPECT_EQ(alice.next(3),
              "6: NR b2 accepted #1043 100@189.94 | 7: O1 b2 #1043 buy 100@189.94 tif D type 1 | "
              "8: P1 b2 #1043 @189.94 behind");
    alice.send(sell("s1").shares(200).at("190.05").flags(retail));
    EXPECT_EQ(alice.next(3),
              "9: NR s1 accepted #1044 200@190.05 | 10: O1 s1 #1044 sell 200@190.05 tif D type 1 | "
              "11: P1 s1 #1044 @190.05 touch");

    EXPECT_EQ(venue.feed.next(3),
              "add 1 #1042 B 300@189.95 | add 1 #1043 B 100@189.94 TEST | "
              "add 1 #1044 S 200@190.05 RTAL");
}

TEST(LiveOrder, TakesTheBestLevelFirstAndWithinALevelTheFirstToArrive) {
    LiveVenue venue;
    venue.empty_the_books();
    User alice(venue, "alice");
    User bob(venue, "bob");

    alice.send(sell("s1").shares(100).at("190.00"));
    alice.send(sell("s2").shares(100).at("190.05"));
    alice.send(sell("s3").shares(100).at("190.00"));
    EXPECT_EQ(
        alice.next(9),
        "3: NR s1 accepted #1042 100@190 | 4: O1 s1 #1042 sell 100@190 tif D type 1 | 5: P1 s1 #1042 @190 touch | "
        "6: NR s2 accepted #1043 100@190.05 | 7: O1 s2 #1043 sell 100@190.05 tif D type 1 | "
        "8: P1 s2 #1043 @190.05 behind | "
        "9: NR s3 accepted #1044 100@190 | 10: O1 s3 #1044 sell 100@190 tif D type 1 | "
        "11: P1 s3 #1044 @190 touch");

    bob.send(buy("b1").shares(350).at("190.05"));
    EXPECT_EQ(bob.next(6),
              "3: NR b1 accepted #1045 350@190.05 | 4: O1 b1 #1045 buy 350@190.05 tif D type 1 | "
              "5: E1 b1 100@190 buy removed RC match 41 exec 42 | 6: E1 b1 100@190 buy removed RC match 42 exec 44 | "
              "7: E1 b1 100@190.05 buy removed RC match 43 exec 46 | 8: P1 b1 #1045 @190.05 touch");
    EXPECT_EQ(alice.next(3),
              "12: E1 s1 100@190 sell added AC match 41 exec 41 | 13: E1 s3 100@190 sell added AC match 42 exec 43 | "
              "14: E1 s2 100@190.05 sell added AC match 43 exec 45");

    EXPECT_EQ(venue.feed.next(7),
              "add 1 #1042 S 100@190 | add 1 #1043 S 100@190.05 | add 1 #1044 S 100@190 | "
              "executed 1 #1042 100@190 match 41 resting S | executed 1 #1044 100@190 match 42 resting S | "
              "executed 1 #1043 100@190.05 match 43 resting S | add 1 #1045 B 50@190.05");
}

TEST(LiveOrder, OfTwoUsersTradeBothWaysAndLeaveWhatDidNotTrade) {
    LiveVenue venue;
    venue.empty_the_books();
    User alice(venue, "alice");
    User bob(venue, "bob");

    alice.send(buy("a1").shares(500).at("190.00"));
    alice.next(3);
    bob.send(sell("b1").shares(200).at("190.00"));
    EXPECT_EQ(bob.next(3),
              "3: NR b1 accepted #1043 200@190 | 4: O1 b1 #1043 sell 200@190 tif D type 1 | "
              "5: E1 b1 200@190 sell removed RC match 41 exec 42");
    EXPECT_EQ(alice.next(), "6: E1 a1 200@190 buy added AC match 41 exec 41");
    bob.send(sell("b1").shares(400).at("189.99"));  // the id of an order that has ended may come again
    EXPECT_EQ(bob.next(4),
              "6: NR b1 accepted #1044 400@189.99 | 7: O1 b1 #1044 sell 400@189.99 tif D type 1 | "
              "8: E1 b1 300@190 sell removed RC match 42 exec 44 | 9: P1 b1 #1044 @189.99 touch");
    EXPECT_EQ(alice.next(), "7: E1 a1 300@190 buy added AC match 42 exec 43");
    alice.send(buy("a2").shares(100).at("190.00"));
    EXPECT_EQ(alice.next(3),
              "8: NR a2 accepted #1045 100@190 | 9: O1 a2 #1045 buy 100@190 tif D type 1 | "
              "10: E1 a2 100@189.99 buy removed RC match 43 exec 46");
    EXPECT_EQ(bob.next(), "10: E1 b1 100@189.99 sell added AC match 43 exec 45");

    venue.stop();
    EXPECT_EQ(venue.feed.waiting(),
              "add 1 #1042 B 500@190 | executed 1 #1042 200@190 match 41 resting B | "
              "executed 1 #1042 300@190 match 42 resting B | add 1 #1044 S 100@189.99 | "
              "executed 1 #1044 100@189.99 match 43 resting S");
}

TEST(LiveOrder, MayTradeWithAnotherOneOfItsOwnUser) {
    LiveVenue venue({"--symbols", "SPY:520.00"});  // listed elsewhere, which the liquidity code shows
    venue.empty_the_books();
    User alice(venue, "alice");

    alice.send(sell("s1").shares(100).at("520.00"));
    alice.next(3);
    alice.send(buy("b1").shares(100).at("520.00"));
    EXPECT_EQ(alice.next(4),
              "6: NR b1 accepted #1043 100@520 | 7: O1 b1 #1043 buy 100@520 tif D type 1 | "
              "8: E1 b1 100@520 buy removed RB match 41 exec 42 | "
              "9: E1 s1 100@520 sell added AB match 41 exec 41");
}

TEST(LiveOrder, MeetsOnlyTheBookOfItsSymbol) {
    LiveVenue venue({"--symbols", "AAPL:190.00,MSFT:410.00"});
    venue.empty_the_books();  // by #1080 to #1083, behind twice forty quotes
    User alice(venue, "alice");
    User bob(venue, "bob");

    alice.send(sell("s1").shares(100).at("190.00").product(1));
    EXPECT_EQ(alice.next(3),
              "4: NR s1 accepted #1084 100@190 | 5: O1 s1 #1084 sell 100@190 tif D type 1 | "
              "6: P1 s1 #1084 @190 touch");
    bob.send(buy("b1").shares(100).at("410.00").product(2));
    EXPECT_EQ(bob.next(3),
              "4: NR b1 accepted #1085 100@410 | 5: O1 b1 #1085 buy 100@410 tif D type 1 | "
              "6: P1 b1 #1085 @410 touch");
    alice.send(sell("s2").shares(100).at("190.00").product(2));
    EXPECT_EQ(alice.next(3),
              "7: NR s2 accepted #1086 100@190 | 8: O1 s2 #1086 sell 100@190 tif D type 1 | "
              "9: E1 s2 100@410 sell removed RC match 81 exec 82");
    EXPECT_EQ(bob.next(), "7: E1 b1 100@410 buy added AC match 81 exec 81");
    EXPECT_EQ(venue.feed.next(3),
              "add 1 #1084 S 100@190 | add 2 #1085 B 100@410 | executed 2 #1085 100@410 match 81 resting B");
}

TEST(LiveOrder, AtTheMarketTakesEveryLevelAndNeverRests) {
    LiveVenue venue;
    venue.empty_the_books();
    User alice(venue, "alice");
    User bob(venue, "bob");

    bob.send(buy("b1").shares(100).market());
    EXPECT_EQ(bob.next(3),
              "3: NR b1 accepted #1042 100@0 | 4: O1 b1 #1042 buy 100@0 tif D type 2 | "
              "5: XN b1 #1042 leaves 0 'C'");
    alice.send(sell("s1").shares(100).at("190.00"));
    alice.send(sell("s2").shares(100).at("250.00"));
    alice.next(6);
    bob.send(buy("b2").shares(300).market());
    EXPECT_EQ(bob.next(5),
              "6: NR b2 accepted #1045 300@0 | 7: O1 b2 #1045 buy 300@0 tif D type 2 | "
              "8: E1 b2 100@190 buy removed RC match 41 exec 42 | "
              "9: E1 b2 100@250 buy removed RC match 42 exec 44 | 10: XN b2 #1045 leaves 0 'C'");

    venue.stop();
    EXPECT_EQ(venue.feed.waiting(),
              "add 1 #1043 S 100@190 | add 1 #1044 S 100@250 | "
              "executed 1 #1043 100@190 match 41 resting S | "
              "executed 1 #1044 100@250 match 42 resting S");
}

TEST(LiveOrder, ThatIsImmediateTradesAtOnceAndLosesItsRest) {
    LiveVenue venue;
    venue.empty_the_books();
    User alice(venue, "alice");
    User bob(venue, "bob");

    alice.send(sell("s1").shares(100).at("190.00"));
    alice.next(3);
    bob.send(buy("b1").shares(300).at("189.99").immediate());
    EXPECT_EQ(bob.next(3),
              "3: NR b1 accepted #1043 300@189.99 | 4: O1 b1 #1043 buy 300@189.99 tif I type 1 | "
              "5: XN b1 #1043 leaves 0 'C'");
    bob.send(buy("b2").shares(300).at("190.00").immediate());
    EXPECT_EQ(bob.next(4),
              "6: NR b2 accepted #1044 300@190 | 7: O1 b2 #1044 buy 300@190 tif I type 1 | "
              "8: E1 b2 100@190 buy removed RC match 41 exec 42 | 9: XN b2 #1044 leaves 0 'C'");

    venue.stop();
    EXPECT_EQ(venue.feed.waiting(), "add 1 #1042 S 100@190 | executed 1 #1042 100@190 match 41 resting S");
}

TEST(LiveOrder, AllOrNothingTradesWholeOrNotAtAll) {
    LiveVenue venue;
    venue.empty_the_books();
    User alice(venue, "alice");
    User bob(venue, "bob");

    alice.send(sell("s1").shares(200).at("190.01"));
    alice.send(sell("s2").shares(100).at("190.00"));
    alice.send(sell("s3").shares(500).at("190.02"));
    alice.next(9);
    bob.send(buy("b1").shares(301).at("190.01").all_or_nothing());  // the 500 are out of its reach
    EXPECT_EQ(bob.next(3),
              "3: NR b1 accepted #1045 301@190.01 | 4: O1 b1 #1045 buy 301@190.01 tif F type 1 | "
              "5: XN b1 #1045 leaves 0 'C'");
    bob.send(buy("b2").shares(300).at("190.01").all_or_nothing());
    EXPECT_EQ(bob.next(4),
              "6: NR b2 accepted #1046 300@190.01 | 7: O1 b2 #1046 buy 300@190.01 tif F type 1 | "
              "8: E1 b2 100@190 buy removed RC match 41 exec 42 | "
              "9: E1 b2 200@190.01 buy removed RC match 42 exec 44");
    bob.send(buy("b3").shares(100).at("190.00").all_or_nothing());  // meets nobody
    EXPECT_EQ(bob.next(3),
              "10: NR b3 accepted #1047 100@190 | 11: O1 b3 #1047 buy 100@190 tif F type 1 | "
              "12: XN b3 #1047 leaves 0 'C'");
}

TEST(LiveOrder, PostOnlyIsCancelledInsteadOfTakingLiquidity) {
    LiveVenue venue;
    venue.empty_the_books();
    User alice(venue, "alice");

    alice.send(sell("s1").shares(100).at("190.00").post_only());
    EXPECT_EQ(alice.next(3),
              "3: NR s1 accepted #1042 100@190 | 4: O1 s1 #1042 sell 100@190 tif D type 1 | "
              "5: P1 s1 #1042 @190 touch");
    alice.send(buy("b1").shares(300).at("190.00").post_only());
    EXPECT_EQ(alice.next(3),
              "6: NR b1 accepted #1043 300@190 | 7: O1 b1 #1043 buy 300@190 tif D type 1 | "
              "8: XN b1 #1043 leaves 300 'E'");
    alice.send(buy("b2").shares(300).at("190.00").post_only().all_or_nothing());
    EXPECT_EQ(alice.next(3),
              "9: NR b2 accepted #1044 300@190 | 10: O1 b2 #1044 buy 300@190 tif F type 1 | "
              "11: XN b2 #1044 leaves 300 'E'");

    venue.stop();
    EXPECT_EQ(venue.feed.waiting(), "add 1 #1042 S 100@190");
}

// Everything is wrong with the order at first, and each answer has one thing put right.
TEST(LiveOrder, IsRejectedForTheFirstThingThatIsWrong) {
    LiveVenue venue;
    venue.empty_the_books();
    User alice(venue, "alice");
    alice.send(buy("b1").shares(100).at("1.00"));
    alice.next(3);

    NewOrder order = NewOrder{}.participant("AB").product(2).time_in_force('X').expires(1).flags(1);
    order.quantity = 0;
    order.order_type = '3';
    order.price = 1'900'500;
    const auto answer = [&] {
        alice.send(order);
        return alice.next();
    };
    EXPECT_EQ(answer(), "6: NR  rejected 'S' 0@1.9005");
    order.product_id = 0;
    EXPECT_EQ(answer(), "7: NR  rejected 'S' 0@1.9005");
    order.product_id = 1;
    EXPECT_EQ(answer(), "8: NR  rejected 'O' 0@1.9005");
    order.client_order_id = "b1";
    EXPECT_EQ(answer(), "9: NR b1 rejected 'I' 0@1.9005");
    order.mpid = "TEST";
    EXPECT_EQ(answer(), "10: NR b1 rejected 'K' 0@1.9005");
    order.quantity = 25'001;
    EXPECT_EQ(answer(), "11: NR b1 rejected 'M' 25001@1.9005");
    order.quantity = 25'000;
    EXPECT_EQ(answer(), "12: NR b1 rejected 'T' 25000@1.9005");
    order.order_type = '1';
    EXPECT_EQ(answer(), "13: NR b1 rejected 'J' 25000@1.9005");
    order.price = 1'900'000;
    EXPECT_EQ(answer(), "14: NR b1 rejected 'b' 25000@1.9");
    order.tif = 'D';
    EXPECT_EQ(answer(), "15: NR b1 rejected '@' 25000@1.9");
    order.expire_time = 0;
    EXPECT_EQ(answer(), "16: NR b1 rejected 'V' 25000@1.9");
    order.order_flags = 1 | short_sale;
    EXPECT_EQ(answer(), "17: NR b1 rejected 'A' 25000@1.9");
    order.client_order_id = "s1";
    EXPECT_EQ(answer(), "18: NR s1 accepted #1043 25000@1.9");
    EXPECT_EQ(alice.next(2), "19: O1 s1 #1043 sell 25000@1.9 tif D type 1 | 20: P1 s1 #1043 @1.9 touch");

    venue.stop();
    EXPECT_EQ(venue.feed.waiting(), "add 1 #1042 B 100@1 | add 1 #1043 S 25000@1.9");
    // The two orders that emptied the books count, the rejected ones do not.
    const model::Bench counted{.orders = 4, .accepts = 4, .fills = 40, .cancels = 2, .logins = 2};
    EXPECT_TRUE(venue.process.says("bench: stats " + counted.statistics() + " next_seq="));
}

TEST(LiveOrder, IsHeldToTheRulesOfItsTypeItsSideAndItsTimeInForce) {
    LiveVenue venue({"--max-order-size", "500"});
    User alice(venue, "alice");
    const auto answer = [&](const NewOrder& order) {
        alice.send(order);
        return alice.next();
    };
    NewOrder priced_market_order = buy("b1").market();
    priced_market_order.price = 10'000;
    EXPECT_EQ(answer(priced_market_order), "3: NR b1 rejected 'J' 100@0.01");
    EXPECT_EQ(answer(buy("b1").at("0")), "4: NR b1 rejected 'J' 100@0");
    EXPECT_EQ(answer(buy("b1").at("1.00").flags(short_sale)), "5: NR b1 rejected 'V' 100@1");
    EXPECT_EQ(answer(buy("b1").at("1.00").time_in_force('T')), "6: NR b1 rejected '@' 100@1");
    EXPECT_EQ(answer(buy("b1").at("1.00").time_in_force('T').expires(ms_since_epoch() - 60'000)),
              "7: NR b1 rejected '@' 100@1");
    EXPECT_EQ(answer(buy("b1").at("1.00").shares(501)), "8: NR b1 rejected 'M' 501@1");

    alice.send(buy("b1").at("1.00").time_in_force('T').expires(ms_since_epoch() + 3'600'000));
    EXPECT_EQ(alice.next(3),
              "9: NR b1 accepted #1040 100@1 | 10: O1 b1 #1040 buy 100@1 tif T type 1 | "
              "11: P1 b1 #1040 @1 behind");
    for (const char tif : {'D', 'E', 'R'}) {
        alice.send(buy(std::string("b") + tif).at("1.00").shares(500).time_in_force(tif));
        EXPECT_TRUE(alice.next(3).ends_with(" @1 behind")) << tif;
    }
    User bob(venue, "bob");
    bob.send(buy("bD").at("1.00"));  // an id is taken for everybody
    EXPECT_EQ(bob.next(), "3: NR bD rejected 'A' 100@1");
}

}  // namespace
}  // namespace kavo::test
