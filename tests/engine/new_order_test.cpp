#include <gtest/gtest.h>

#include "support/venue.h"

namespace kavo::test {
namespace {

constexpr std::uint64_t now_ms = Venue::start_wall_ns / 1'000'000;
constexpr std::uint16_t sell_bit = 1;
constexpr std::uint16_t first_short_sale_bit = 2;
constexpr std::uint16_t second_short_sale_bit = 4;
constexpr std::uint16_t both_short_sale_bits = 6;

TEST(NewOrder, ThatMeetsNobodyRestsAndShowsOnTheFeed) {
    Venue venue;
    EXPECT_EQ(venue.enter(buy("b1").shares(100).at("189.95")),
              "NR b1 accepted #1000 100@189.95 | O1 b1 #1000 buy 100@189.95 tif D type 1 | P1 b1 #1000 @189.95 touch");
    EXPECT_EQ(venue.published(), "add 1 #1000 B 100@189.95");
    EXPECT_EQ(venue.bids(), "100@189.95");
}

// One request in which everything is wrong, repaired one thing after the other. Two pairs cannot be wrong together: a
// size is never both zero and too large, and no order is live under an empty id.
TEST(NewOrder, IsCheckedInAFixedOrder) {
    Venue venue;
    venue.enter(buy("live").at("150.00"));
    venue.bench.reject_next = 1;
    NewOrder order;
    order.product_id = 2;
    order.client_order_id = "";
    order.mpid = "ABC";
    order.quantity = 0;
    order.order_type = '3';
    order.price = 1'900'500;
    order.tif = 'X';
    order.expire_time = 1;
    order.order_flags = sell_bit;
    EXPECT_EQ(venue.enter(order), "NR  rejected 'S' 0@1.9005");
    order.product_id = 1;
    EXPECT_EQ(venue.enter(order), "NR  rejected 'O' 0@1.9005");
    order.client_order_id = "live";
    EXPECT_EQ(venue.enter(order), "NR live rejected 'I' 0@1.9005");
    order.mpid = "TEST";
    EXPECT_EQ(venue.enter(order), "NR live rejected 'K' 0@1.9005");
    order.quantity = 25'001;
    EXPECT_EQ(venue.enter(order), "NR live rejected 'M' 25001@1.9005");
    order.quantity = 25'000;
    EXPECT_EQ(venue.enter(order), "NR live rejected 'T' 25000@1.9005");
    order.order_type = '1';
    EXPECT_EQ(venue.enter(order), "NR live rejected 'J' 25000@1.9005");
    order.price = 1'900'000;
    EXPECT_EQ(venue.enter(order), "NR live rejected 'b' 25000@1.9");
    order.tif = 'D';
    EXPECT_EQ(venue.enter(order), "NR live rejected '@' 25000@1.9");
    order.expire_time = 0;
    EXPECT_EQ(venue.enter(order), "NR live rejected 'V' 25000@1.9");
    order.order_flags = sell_bit | first_short_sale_bit;
    EXPECT_EQ(venue.enter(order), "NR live rejected 'A' 25000@1.9");
    order.client_order_id = "next";
    EXPECT_EQ(venue.enter(order), "NR next rejected 'R' 25000@1.9");
    EXPECT_EQ(venue.enter(order.market()),
              "NR next accepted #1001 25000@0 | O1 next #1001 sell 25000@0 tif D type 2 | "
              "E1 next 100@150 sell removed RC match 1 exec 2 | XN next #1001 leaves 0 'C'");
}

TEST(NewOrder, ThatFailsACheckLeavesNoTrace) {
    Venue venue;
    EXPECT_EQ(venue.enter(buy("b1").at("189.95").shares(0)), "NR b1 rejected 'K' 0@189.95");
    EXPECT_EQ(venue.published(), "");
    EXPECT_EQ(venue.bids(), "");
    EXPECT_TRUE(venue.truth().empty());
    EXPECT_EQ(venue.bench.counters.orders, 0u);
    EXPECT_EQ(venue.bench.counters.rejects, 0u);
    EXPECT_EQ(venue.told(0), "");
}

TEST(NewOrder, NamesAProductOfTheList) {
    Venue venue({.symbols = {"AAPL", "MSFT"}});
    EXPECT_EQ(venue.enter(buy("b0").product(0).at("1.00")), "NR b0 rejected 'S' 100@1");
    EXPECT_EQ(venue.enter(buy("b3").product(3).at("1.00")), "NR b3 rejected 'S' 100@1");
    EXPECT_EQ(venue.enter(buy("b9").product(4'294'967'295).at("1.00")), "NR b9 rejected 'S' 100@1");
    venue.enter(buy("b2").product(2).at("1.00"));
    EXPECT_EQ(venue.bids(1), "");
    EXPECT_EQ(venue.bids(2), "100@1");
}

TEST(NewOrder, NeedsAParticipantOfFourCharacters) {
    Venue venue;
    EXPECT_EQ(venue.enter(buy("b1").participant("").at("1.00")), "NR b1 rejected 'I' 100@1");
    EXPECT_EQ(venue.enter(buy("b1").participant("AB").at("1.00")), "NR b1 rejected 'I' 100@1");
    EXPECT_EQ(venue.enter(buy("b1").participant(std::string("AB\0", 3)).at("1.00")), "NR b1 rejected 'I' 100@1");
    // Blanks in front belong to the code.
    venue.enter(buy("b1").participant(" ABC").at("1.00"));
    EXPECT_EQ(venue.bids(), "100@1");
}

TEST(NewOrder, OfTheLargestSizeIsAcceptedAndOneShareMoreIsNot) {
    VenueSettings settings;
    settings.engine.max_order_size = 300;
    Venue venue(settings);
    EXPECT_EQ(venue.enter(buy("b1").shares(301).at("1.00")), "NR b1 rejected 'M' 301@1");
    EXPECT_EQ(venue.enter(buy("b1").shares(4'294'967'295).at("1.00")), "NR b1 rejected 'M' 4294967295@1");
    venue.enter(buy("b1").shares(300).at("1.00"));
    venue.enter(buy("b2").shares(1).at("1.00"));
    EXPECT_EQ(venue.bids(), "301@1");
}

TEST(NewOrder, WithALimitNeedsAPriceOfWholeCents) {
    Venue venue;
    const auto enter_at = [&](WirePrice price) {
        NewOrder order = buy("b1");
        order.price = price;
        return venue.enter(order);
    };
    EXPECT_EQ(enter_at(0), "NR b1 rejected 'J' 100@0");
    EXPECT_EQ(enter_at(9'999), "NR b1 rejected 'J' 100@0.0099");
    EXPECT_EQ(enter_at(1'900'500), "NR b1 rejected 'J' 100@1.9005");
    EXPECT_EQ(enter_at(190'000'001), "NR b1 rejected 'J' 100@190");
    EXPECT_EQ(enter_at(1'900'000),
              "NR b1 accepted #1000 100@1.9 | O1 b1 #1000 buy 100@1.9 tif D type 1 | P1 b1 #1000 @1.9 touch");
    venue.enter(buy("b2").at("0.01"));
    EXPECT_EQ(venue.bids(), "100@1.9 100@0.01");
}

TEST(NewOrder, AtTheMarketNeedsThePriceZero) {
    Venue venue;
    NewOrder order = buy("b1").market();
    order.price = 10'000;
    EXPECT_EQ(venue.enter(order), "NR b1 rejected 'J' 100@0.01");
}

// 429,496.73 in ten-thousandths is four more than 32 bits hold.
TEST(NewOrder, BeyondTheLargestPriceWraps) {
    Venue venue;
    venue.enter(buy("b1").at("429496.73"));
    EXPECT_EQ(venue.published(), "add 1 #1000 B 100@0.0004");
}

TEST(NewOrder, KnowsSixTimesInForce) {
    Venue venue;
    for (const char letter : {'D', 'E', 'F', 'I', 'R'}) {
        const std::string answers = venue.enter(buy({&letter, 1}).time_in_force(letter).at("1.00"));
        EXPECT_EQ(answers.find("rejected"), std::string::npos) << answers;
    }
    venue.enter(buy("T").time_in_force('T').expires(now_ms + 1).at("1.00"));
    EXPECT_EQ(venue.bids(), "400@1");  // all but the two that never rest
    for (const char letter : {'\0', ' ', 'A', 'd', 'i', 'G', '1'}) {
        EXPECT_EQ(venue.enter(buy("other").time_in_force(letter).at("1.00")), "NR other rejected 'b' 100@1");
    }
}

TEST(NewOrder, WithAnExpiryMustStillHaveTimeToLive) {
    Venue venue;
    const NewOrder order = buy("b1").time_in_force('T').at("1.00");
    EXPECT_EQ(venue.enter(order), "NR b1 rejected '@' 100@1");
    EXPECT_EQ(venue.enter(order.expires(now_ms - 1)), "NR b1 rejected '@' 100@1");
    EXPECT_EQ(venue.enter(order.expires(now_ms)), "NR b1 rejected '@' 100@1");
    EXPECT_EQ(venue.enter(order.expires(now_ms + 1)),
              "NR b1 accepted #1000 100@1 | O1 b1 #1000 buy 100@1 tif T type 1 | P1 b1 #1000 @1 touch");
}

TEST(NewOrder, WithoutAnExpiryMustNotNameOne) {
    Venue venue;
    for (const char letter : {'D', 'E', 'F', 'I', 'R'}) {
        EXPECT_EQ(venue.enter(buy("b1").time_in_force(letter).expires(now_ms + 1000).at("1.00")),
                  "NR b1 rejected '@' 100@1");
    }
}

TEST(NewOrder, StaysOnTheBookWhenItsExpiryHasPassed) {
    Venue venue;
    venue.enter(buy("b1").time_in_force('T').expires(now_ms + 1).at("1.00"));
    venue.clock.advance_ms(60'000);
    venue.pass();
    EXPECT_EQ(venue.bids(), "100@1");
}

TEST(NewOrder, DeclaresAShortSaleExactlyWhenItSells) {
    Venue venue;
    NewOrder order = buy("b1").at("1.00");
    for (const std::uint16_t bits : {first_short_sale_bit, second_short_sale_bit, both_short_sale_bits}) {
        EXPECT_EQ(venue.enter(order.flags(bits)), "NR b1 rejected 'V' 100@1");
    }
    order = order.flags(sell_bit);
    EXPECT_EQ(venue.enter(order), "NR b1 rejected 'V' 100@1");
    venue.enter(order.flags(first_short_sale_bit));
    order.client_order_id = "b2";
    venue.enter(order.flags(second_short_sale_bit));
    order.client_order_id = "b3";
    venue.enter(order.flags(both_short_sale_bits));
    EXPECT_EQ(venue.asks(), "300@1");
}

TEST(NewOrder, UnderTheIdOfALiveOrderIsADuplicateForEveryClient) {
    Venue venue;
    venue.enter(buy("b1").at("189.95"), 0);
    EXPECT_EQ(venue.enter(buy("b1").at("189.90"), 0), "NR b1 rejected 'A' 100@189.9");
    EXPECT_EQ(venue.enter(buy("b1").at("189.90"), 1), "NR b1 rejected 'A' 100@189.9");
}

TEST(NewOrder, MayUseTheIdOfAnOrderThatHasEnded) {
    Venue venue;
    venue.enter(buy("b1").at("189.95"));
    venue.cancel(cancel("b1"));
    venue.enter(buy("b1").at("189.96"));
    venue.enter(sell("s1").at("189.96"));  // fills both
    venue.enter(sell("s1").at("189.97"));
    venue.enter(buy("b1").immediate().at("189.90"));  // expires
    venue.enter(buy("b1").post_only().at("189.97"));  // would have traded
    venue.enter(buy("b1").at("189.94"));
    EXPECT_EQ(venue.bids(), "100@189.94");
    EXPECT_EQ(venue.asks(), "100@189.97");
}

TEST(NewOrder, UnderAReusedIdStartsWithNothingExecuted) {
    Venue venue;
    venue.enter(buy("b1").shares(300).at("189.95"));
    venue.enter(sell("s1").shares(100).at("189.95"), 1);
    venue.cancel(cancel("b1"));
    venue.enter(buy("b1").shares(300).at("189.95"));
    EXPECT_EQ(venue.replace(replace("b1", "b2").shares(50).at("189.95")),
              "MR b2 for b1 accepted #1002 leaves 50 | MN b2 for b1 #1002 50@189.95 leaves 50 tif D");
}

TEST(NewOrder, GetsTheNextOrderIdOnlyWhenItIsAccepted) {
    Venue venue;
    venue.bench.reject_every = 2;
    EXPECT_EQ(venue.enter(buy("b1").shares(0).at("1.00")), "NR b1 rejected 'K' 0@1");
    venue.enter(buy("b1").at("1.00"));
    EXPECT_EQ(venue.enter(buy("b2").at("1.00")), "NR b2 rejected 'R' 100@1");
    venue.enter(buy("b3").at("1.00"));
    EXPECT_EQ(venue.published(), "add 1 #1000 B 100@1 | add 1 #1001 B 100@1");
}

TEST(NewOrder, SharesItsIdsWithTheSyntheticMarket) {
    Venue venue({.seeded = true});
    EXPECT_EQ(venue.enter(buy("b1").at("1.00")),
              "NR b1 accepted #1040 100@1 | O1 b1 #1040 buy 100@1 tif D type 1 | P1 b1 #1040 @1 behind");
}

TEST(NewOrder, IsCountedWhenItPassesTheChecksAndWhenItIsAccepted) {
    Venue venue;
    venue.bench.reject_next = 1;
    venue.enter(buy("b1").shares(0).at("1.00"));
    venue.enter(buy("b2").at("1.00"));
    venue.enter(buy("b3").at("1.00"));
    venue.enter(buy("b4").immediate().at("1.00"));
    EXPECT_EQ(venue.bench.counters.orders, 3u);
    EXPECT_EQ(venue.bench.counters.rejects, 1u);
    EXPECT_EQ(venue.bench.counters.accepts, 2u);
}

TEST(ScriptedReject, HitsEveryNthOrderThatPassesTheChecks) {
    Venue venue;
    venue.bench.reject_every = 2;
    const auto rejected = [&](const NewOrder& order) { return venue.enter(order).find("'R'") != std::string::npos; };
    EXPECT_FALSE(rejected(buy("b1").at("1.00")));
    EXPECT_FALSE(rejected(buy("b2").at("1.00").shares(0)));
    EXPECT_TRUE(rejected(buy("b2").at("1.00")));
    EXPECT_FALSE(rejected(buy("b2").at("1.00")));
    EXPECT_TRUE(rejected(buy("b3").at("1.00")));
    EXPECT_EQ(venue.bench.counters.rejects, 2u);
}

TEST(ScriptedReject, HitsTheNextOrdersAndThenNoMore) {
    Venue venue;
    venue.bench.reject_next = 2;
    EXPECT_EQ(venue.enter(buy("b1").at("1.00")), "NR b1 rejected 'R' 100@1");
    EXPECT_EQ(venue.enter(buy("b1").at("1.00")), "NR b1 rejected 'R' 100@1");
    venue.enter(buy("b1").at("1.00"));
    EXPECT_EQ(venue.bids(), "100@1");
}

TEST(ScriptedReject, ThatIsDueAnywayUsesUpOneOfTheNext) {
    Venue venue;
    venue.bench.reject_every = 1;
    venue.bench.reject_next = 2;
    venue.enter(buy("b1").at("1.00"));
    EXPECT_EQ(venue.bench.reject_next, 1u);
    venue.enter(buy("b1").at("1.00"));
    EXPECT_EQ(venue.bench.reject_next, 0u);
    EXPECT_EQ(venue.enter(buy("b1").at("1.00")), "NR b1 rejected 'R' 100@1");
    EXPECT_EQ(venue.bench.reject_next, 0u);
}

TEST(PostOnly, ThatWouldTradeIsCancelledWhole) {
    Venue venue;
    venue.enter(sell("s1").at("190.00"));
    venue.published();
    EXPECT_EQ(venue.enter(buy("p1").post_only().shares(300).at("190.00")),
              "NR p1 accepted #1001 300@190 | O1 p1 #1001 buy 300@190 tif D type 1 | XN p1 #1001 leaves 300 'E'");
    EXPECT_EQ(venue.published(), "");
    EXPECT_EQ(venue.bids(), "");
    EXPECT_EQ(venue.asks(), "100@190");
    EXPECT_EQ(venue.bench.counters.cancels, 1u);
    EXPECT_EQ(venue.bench.counters.fills, 0u);
}

TEST(PostOnly, ToSellThatWouldTradeIsCancelledWhole) {
    Venue venue;
    venue.enter(buy("b1").at("190.00"));
    EXPECT_EQ(venue.enter(sell("p1").post_only().at("189.99")),
              "NR p1 accepted #1001 100@189.99 | O1 p1 #1001 sell 100@189.99 tif D type 1 | "
              "XN p1 #1001 leaves 100 'E'");
}

TEST(PostOnly, ThatTouchesNobodyRests) {
    Venue venue;
    venue.enter(sell("s1").at("190.00"));
    venue.enter(buy("p1").post_only().at("189.99"));
    EXPECT_EQ(venue.bids(), "100@189.99");
}

TEST(PostOnly, AtTheMarketIsCancelledWholeOrExpires) {
    Venue venue;
    EXPECT_EQ(venue.enter(buy("p1").post_only().market()),
              "NR p1 accepted #1000 100@0 | O1 p1 #1000 buy 100@0 tif D type 2 | XN p1 #1000 leaves 0 'C'");
    venue.enter(sell("s1").at("190.00"));
    EXPECT_EQ(venue.enter(buy("p2").post_only().market()),
              "NR p2 accepted #1002 100@0 | O1 p2 #1002 buy 100@0 tif D type 2 | XN p2 #1002 leaves 100 'E'");
}

TEST(PostOnly, ComesBeforeAllOrNothing) {
    Venue venue;
    venue.enter(sell("s1").at("190.00"));
    EXPECT_EQ(venue.enter(buy("p1").post_only().all_or_nothing().shares(300).at("190.00")),
              "NR p1 accepted #1001 300@190 | O1 p1 #1001 buy 300@190 tif F type 1 | XN p1 #1001 leaves 300 'E'");
    EXPECT_EQ(venue.enter(buy("p2").post_only().all_or_nothing().shares(300).at("189.99")),
              "NR p2 accepted #1002 300@189.99 | O1 p2 #1002 buy 300@189.99 tif F type 1 | XN p2 #1002 leaves 0 'C'");
}

TEST(PostOnly, ThatWasCancelledIsRememberedAsClosed) {
    Venue venue;
    venue.enter(sell("s1").at("190.00"));
    venue.enter(buy("p1").post_only().at("190.00"));
    venue.cancel(cancel("p1"));
    EXPECT_EQ(venue.bench.counters.late_cancels, 1u);
}

TEST(ImmediateOrder, LosesWhatDoesNotTrade) {
    Venue venue;
    venue.enter(sell("s1").shares(60).at("190.00"));
    venue.published();
    EXPECT_EQ(venue.enter(buy("i1").immediate().at("190.00")),
              "NR i1 accepted #1001 100@190 | O1 i1 #1001 buy 100@190 tif I type 1 | "
              "E1 i1 60@190 buy removed RC match 1 exec 2 | XN i1 #1001 leaves 0 'C'");
    EXPECT_EQ(venue.published(), "executed 1 #1000 60@190 match 1 resting S");
    EXPECT_EQ(venue.bids(), "");
    EXPECT_EQ(venue.bench.counters.cancels, 1u);
}

TEST(ImmediateOrder, ThatExpiresIsRememberedAsClosed) {
    Venue venue;
    EXPECT_EQ(venue.enter(buy("i1").immediate().at("190.00")),
              "NR i1 accepted #1000 100@190 | O1 i1 #1000 buy 100@190 tif I type 1 | XN i1 #1000 leaves 0 'C'");
    venue.cancel(cancel("i1"));
    EXPECT_EQ(venue.bench.counters.late_cancels, 1u);
}

TEST(MarketOrder, WithNobodyOnTheOtherSideExpiresUnseen) {
    Venue venue;
    venue.enter(buy("b1").at("189.95"));
    venue.published();
    EXPECT_EQ(venue.enter(buy("m1").market()),
              "NR m1 accepted #1001 100@0 | O1 m1 #1001 buy 100@0 tif D type 2 | XN m1 #1001 leaves 0 'C'");
    EXPECT_EQ(venue.published(), "");
}

TEST(MarketOrder, NeverRestsWhateverItsTimeInForce) {
    Venue venue;
    venue.enter(buy("b1").shares(60).at("189.95"));
    for (const char letter : {'D', 'E', 'R'}) {
        const std::string id{letter};
        EXPECT_NE(venue.enter(sell(id).time_in_force(letter).market()).find("leaves 0 'C'"), std::string::npos);
    }
    EXPECT_EQ(venue.asks(), "");
    EXPECT_EQ(venue.bids(), "");
}

TEST(RestingOrder, IsToldWhetherItIsAtTheTouch) {
    Venue venue;
    const auto place = [&](const NewOrder& order) {
        const std::string answers = venue.enter(order);
        return answers.substr(answers.find("P1"));
    };
    EXPECT_EQ(place(buy("b1").at("189.95")), "P1 b1 #1000 @189.95 touch");
    EXPECT_EQ(place(buy("b2").at("189.94")), "P1 b2 #1001 @189.94 behind");
    EXPECT_EQ(place(buy("b3").at("189.95")), "P1 b3 #1002 @189.95 touch");
    EXPECT_EQ(place(buy("b4").at("189.96")), "P1 b4 #1003 @189.96 touch");
    EXPECT_EQ(place(sell("s1").at("190.00")), "P1 s1 #1004 @190 touch");
    EXPECT_EQ(place(sell("s2").at("190.01")), "P1 s2 #1005 @190.01 behind");
    EXPECT_EQ(place(sell("s3").at("189.99")), "P1 s3 #1006 @189.99 touch");
}

TEST(RestingOrder, IsAttributedOnTheFeedAsItAsksFor) {
    Venue venue;
    const auto attributed = [](unsigned bits) { return static_cast<std::uint16_t>(bits << 8); };
    venue.enter(buy("b0").participant("FIRM").at("1.00"));
    venue.enter(buy("b1").participant("FIRM").flags(attributed(1)).at("1.00"));
    venue.enter(buy("b2").participant("FIRM").flags(attributed(2)).at("1.00"));
    venue.enter(buy("b3").participant("FIRM").flags(attributed(3)).at("1.00"));
    EXPECT_EQ(venue.published(),
              "add 1 #1000 B 100@1 | add 1 #1001 B 100@1 FIRM | add 1 #1002 B 100@1 RTAL | add 1 #1003 B 100@1");
}

TEST(ClientOrderId, IsTrimmedBehindAndNowhereElse) {
    Venue venue;
    venue.enter(buy("ab").at("1.00"));
    EXPECT_EQ(venue.enter(buy(std::string("ab  \0\0", 6)).at("1.00")), "NR ab rejected 'A' 100@1");
    venue.enter(buy("a b").at("1.00"));
    venue.enter(buy(" ab").at("1.00"));
    EXPECT_EQ(venue.bids(), "300@1");
    EXPECT_EQ(venue.enter(buy("   ").at("1.00")), "NR  rejected 'O' 100@1");
}

TEST(ClientOrderId, HasTwentyCharacters) {
    Venue venue;
    venue.enter(buy("abcdefghijklmnopqrst").at("1.00"));
    venue.enter(buy("abcdefghijklmnopqrs").at("1.00"));
    EXPECT_EQ(venue.bids(), "200@1");
    EXPECT_EQ(venue.enter(buy("abcdefghijklmnopqrstu").at("1.00")), "NR abcdefghijklmnopqrst rejected 'A' 100@1");
}

}  // namespace
}  // namespace kavo::test
