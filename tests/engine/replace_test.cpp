#include <gtest/gtest.h>

#include "engine/meo_layout.h"
#include "support/said.h"
#include "support/venue.h"

namespace kavo::test {
namespace {

TEST(Replace, ThatCrossesNobodyIsAnsweredAndNotified) {
    Venue venue;
    venue.enter(buy("b1").at("189.95"));
    venue.published();
    EXPECT_EQ(venue.replace(replace("b1", "b2").shares(150).at("189.96")),
              "MR b2 for b1 accepted #1000 leaves 150 | MN b2 for b1 #1000 150@189.96 leaves 150 tif D");
    EXPECT_EQ(venue.published(), "modify 1 #1000 150@189.96 lost priority");
    EXPECT_EQ(venue.bids(), "150@189.96");
    EXPECT_EQ(venue.bench.counters.replaces, 1u);
    EXPECT_EQ(venue.bench.counters.cancels, 0u);
    EXPECT_EQ(venue.told(0), "");
}

TEST(Replace, KeepsItsPriorityOnTheFeedOnlyAtTheSamePriceWithNoMoreShares) {
    Venue venue;
    const auto shown = [&](const Replace& request) {
        venue.replace(request);
        return venue.published();
    };
    venue.enter(buy("b1").shares(300).at("189.95"));
    venue.published();
    EXPECT_EQ(shown(replace("b1", "b2").shares(200).at("189.95")), "modify 1 #1000 200@189.95");
    EXPECT_EQ(shown(replace("b2", "b3").shares(200).at("189.95")), "modify 1 #1000 200@189.95");
    EXPECT_EQ(shown(replace("b3", "b4").shares(201).at("189.95")), "modify 1 #1000 201@189.95 lost priority");
    EXPECT_EQ(shown(replace("b4", "b5").shares(100).at("189.96")), "modify 1 #1000 100@189.96 lost priority");
    EXPECT_EQ(shown(replace("b5", "b6").shares(100).at("189.95")), "modify 1 #1000 100@189.95 lost priority");
}

TEST(Replace, QueuesBehindItsLevelEvenWhenItKeepsItsPriority) {
    Venue venue;
    venue.enter(buy("b1").shares(200).at("189.95"));
    venue.enter(buy("c1").shares(200).at("189.95"), second_client);
    venue.replace(replace("b1", "b2").shares(100).at("189.95"));
    venue.enter(sell("s1").shares(250).at("189.95"));
    EXPECT_EQ(venue.told(second_client), "E1 c1 200@189.95 buy added AC match 1 exec 1");
    EXPECT_EQ(venue.told(0), "E1 b2 50@189.95 buy added AC match 2 exec 3");
}

TEST(Replace, ThatLosesItsPriorityQueuesBehindItsNewLevel) {
    Venue venue;
    venue.enter(buy("b1").at("189.95"));
    venue.enter(buy("c1").at("189.94"), second_client);
    venue.replace(replace("b1", "b2").at("189.94"));
    venue.enter(sell("s1").at("189.94"));
    EXPECT_EQ(venue.told(second_client), "E1 c1 100@189.94 buy added AC match 1 exec 1");
    EXPECT_EQ(venue.told(0), "");
}

TEST(Replace, CountsWhatHasExecutedIntoTheNewSize) {
    Venue venue;
    venue.enter(buy("b1").shares(300).at("189.95"));
    venue.enter(sell("s1").shares(100).at("189.95"), second_client);
    venue.published();
    EXPECT_EQ(venue.replace(replace("b1", "b2").shares(250).at("189.95")),
              "MR b2 for b1 accepted #1000 leaves 150 | MN b2 for b1 #1000 250@189.95 leaves 150 tif D");
    EXPECT_EQ(venue.published(), "modify 1 #1000 150@189.95");
    // What executed before stays executed under the new id.
    EXPECT_EQ(venue.replace(replace("b2", "b3").shares(101).at("189.95")),
              "MR b3 for b2 accepted #1000 leaves 1 | MN b3 for b2 #1000 101@189.95 leaves 1 tif D");
    EXPECT_EQ(venue.bids(), "1@189.95");
}

TEST(Replace, LosesItsPriorityWhenMoreIsOpenThanBefore) {
    Venue venue;
    venue.enter(buy("b1").shares(300).at("189.95"));
    venue.enter(sell("s1").shares(100).at("189.95"), second_client);  // 200 are open
    venue.published();
    venue.replace(replace("b1", "b2").shares(301).at("189.95"));
    EXPECT_EQ(venue.published(), "modify 1 #1000 201@189.95 lost priority");
    venue.replace(replace("b2", "b3").shares(301).at("189.95"));
    EXPECT_EQ(venue.published(), "modify 1 #1000 201@189.95");
}

TEST(Replace, ByNoMoreThanHasExecutedClosesTheOrder) {
    Venue venue;
    venue.enter(buy("b1").shares(300).at("189.95"));
    venue.enter(sell("s1").shares(100).at("189.95"), second_client);
    venue.told(0);
    venue.published();
    EXPECT_EQ(venue.replace(replace("b1", "b2").shares(100).at("189.90")),
              "XN b1 #1000 leaves 0 'U' | MR b2 for b1 accepted #1000 leaves 0 | "
              "MN b2 for b1 #1000 100@189.9 leaves 0 tif D");
    EXPECT_EQ(venue.published(), "delete 1 #1000");
    EXPECT_EQ(venue.bids(), "");
    EXPECT_EQ(venue.told(0), "");
    EXPECT_EQ(venue.bench.counters.cancels, 1u);
    EXPECT_EQ(venue.bench.counters.replaces, 0u);
    EXPECT_EQ(venue.bench.counters.replace_rejects, 0u);
}

TEST(Replace, ByLessThanHasExecutedClosesTheOrder) {
    Venue venue;
    venue.enter(buy("b1").shares(300).at("189.95"));
    venue.enter(sell("s1").shares(100).at("189.95"), second_client);
    EXPECT_EQ(venue.replace(replace("b1", "b2").shares(1).at("189.95")),
              "XN b1 #1000 leaves 0 'U' | MR b2 for b1 accepted #1000 leaves 0 | "
              "MN b2 for b1 #1000 1@189.95 leaves 0 tif D");
}

TEST(Replace, ThatClosesTheOrderLeavesTheOldIdLateAndTheNewOneUnknown) {
    Venue venue;
    venue.enter(buy("b1").shares(300).at("189.95"));
    venue.enter(sell("s1").shares(100).at("189.95"), second_client);
    venue.replace(replace("b1", "b2").shares(100).at("189.95"));
    EXPECT_EQ(said_during([&] { venue.cancel(cancel("b1")); }), "");
    EXPECT_EQ(venue.bench.counters.late_cancels, 1u);
    EXPECT_EQ(said_during([&] { venue.cancel(cancel("b2")); }),
              "bench: stale cancel for b2 (unknown client order id)\n");
}

TEST(Replace, LeavesTheOldIdLateAndFreeAndTheNewOneLive) {
    Venue venue;
    venue.enter(buy("b1").at("189.95"));
    venue.replace(replace("b1", "b2").at("189.95"));
    venue.cancel(cancel("b1"));
    EXPECT_EQ(venue.bench.counters.late_cancels, 1u);
    EXPECT_EQ(said_during(
                  [&] { EXPECT_EQ(venue.replace(replace("b1", "b3").at("189.95")), "MR b3 for b1 rejected 'D' #0"); }),
              "");
    EXPECT_EQ(venue.enter(buy("b2").at("189.90")), "NR b2 rejected 'A' 100@189.9");
    venue.enter(buy("b1").at("189.90"));
    EXPECT_EQ(venue.bids(), "100@189.95 100@189.9");
    EXPECT_EQ(venue.cancel(cancel("b2")), "CR xb2 of b2 accepted #1000 | XN b2 #1000 leaves 0 'U'");
}

// Everything is wrong at first, and then put right one thing after the other.
TEST(Replace, IsCheckedInAFixedOrder) {
    Venue venue;
    venue.enter(buy("b1").at("189.95"));
    venue.enter(buy("c1").at("189.90"), second_client);
    venue.published();
    venue.bench.replace_reject_next = 1;
    Replace request = replace("none", "c1").participant("FIRM").shares(0).at("0");
    EXPECT_EQ(venue.replace(request), "MR c1 for none rejected 'D' #0");
    request.orig_client_order_id = "c1";
    EXPECT_EQ(venue.replace(request), "MR c1 for c1 rejected 'D' #0");
    request.orig_client_order_id = "b1";
    EXPECT_EQ(venue.replace(request), "MR c1 for b1 rejected 'A' #1000");
    request.client_order_id = "b2";
    EXPECT_EQ(venue.replace(request), "MR b2 for b1 rejected 'Q' #1000");
    request.mpid = "TEST";
    EXPECT_EQ(venue.replace(request), "MR b2 for b1 rejected 'J' #1000");
    request.price = 1'900'500;
    EXPECT_EQ(venue.replace(request), "MR b2 for b1 rejected 'J' #1000");
    request.price = 1'900'000;
    EXPECT_EQ(venue.replace(request), "MR b2 for b1 rejected 'K' #1000");
    request.quantity = 1;
    EXPECT_EQ(venue.replace(request), "MR b2 for b1 rejected 'H' #1000");
    // Nothing has happened to the order so far.
    EXPECT_EQ(venue.published(), "");
    EXPECT_EQ(venue.bids(), "100@189.95 100@189.9");
    EXPECT_EQ(venue.replace(request), "MR b2 for b1 accepted #1000 leaves 1 | MN b2 for b1 #1000 1@1.9 leaves 1 tif D");
    EXPECT_EQ(venue.bench.counters.replace_rejects, 5u);
    EXPECT_EQ(venue.bench.counters.replaces, 1u);
}

TEST(Replace, ByItsOwnIdIsADuplicate) {
    Venue venue;
    venue.enter(buy("b1").at("189.95"));
    EXPECT_EQ(venue.replace(replace("b1", "b1").at("189.96")), "MR b1 for b1 rejected 'A' #1000");
}

TEST(Replace, IsCountedAsRejectedForFourReasonsOnly) {
    Venue venue;
    venue.enter(buy("b1").at("189.95"));
    const auto counted = [&](const Replace& request) {
        const std::uint64_t before = venue.bench.counters.replace_rejects;
        venue.replace(request);
        return venue.bench.counters.replace_rejects - before;
    };
    EXPECT_EQ(counted(replace("b1", "b1").at("189.96")), 1u);                      // 'A'
    EXPECT_EQ(counted(replace("b1", "b2").participant("FIRM").at("189.96")), 1u);  // 'Q'
    EXPECT_EQ(counted(replace("b1", "b2").at("0")), 1u);                           // 'J'
    EXPECT_EQ(counted(replace("b1", "b2").shares(0).at("189.96")), 1u);            // 'K'
    EXPECT_EQ(counted(replace("none", "b2").at("189.96")), 0u);                    // 'D'
    venue.bench.replace_reject_next = 1;
    EXPECT_EQ(counted(replace("b1", "b2").at("189.96")), 0u);  // 'H'
}

TEST(Replace, OfAnOrderThatJustEndedIsLateAndOfAnyOtherStale) {
    Venue venue;
    venue.enter(buy("b1").at("189.95"));
    venue.cancel(cancel("b1"));
    const auto said = [&](const Replace& request) {
        return said_during([&] { EXPECT_NE(venue.replace(request).find("rejected 'D' #0"), std::string::npos); });
    };
    venue.clock.advance_ms(1999);
    EXPECT_EQ(said(replace("b1", "b2").at("189.95")), "");
    venue.clock.advance_ms(1);
    EXPECT_EQ(said(replace("b1", "b2").at("189.95")), "bench: stale replace for b1\n");
    EXPECT_EQ(said(replace("none", "b2").at("189.95")), "bench: stale replace for none\n");
}

TEST(Replace, OfAnotherClientsOrderIsUnknown) {
    Venue venue;
    venue.enter(buy("c1").at("189.95"), second_client);
    EXPECT_EQ(said_during(
                  [&] { EXPECT_EQ(venue.replace(replace("c1", "c2").at("189.96")), "MR c2 for c1 rejected 'D' #0"); }),
              "bench: stale replace for c1\n");
    EXPECT_EQ(venue.bids(), "100@189.95");
}

TEST(Replace, AsksNeitherForTheMaximumSizeNorForATimeInForceNorForANewId) {
    Venue venue;
    venue.enter(buy("b1").at("189.95"));
    EXPECT_EQ(venue.replace(replace("b1", "b2").shares(30'000).at("189.95")),
              "MR b2 for b1 accepted #1000 leaves 30000 | MN b2 for b1 #1000 30000@189.95 leaves 30000 tif D");
    EXPECT_EQ(venue.replace(replace("b2", "b3").time_in_force('Z').at("189.95")),
              "MR b3 for b2 accepted #1000 leaves 100 | MN b3 for b2 #1000 100@189.95 leaves 100 tif Z");
    EXPECT_EQ(venue.replace(replace("b3", "").at("189.95")),
              "MR  for b3 accepted #1000 leaves 100 | MN  for b3 #1000 100@189.95 leaves 100 tif D");
    EXPECT_EQ(venue.replace(replace("", "b4").at("189.95")),
              "MR b4 for  accepted #1000 leaves 100 | MN b4 for  #1000 100@189.95 leaves 100 tif D");
}

TEST(Replace, NeverMakesAnOrderImmediate) {
    Venue venue;
    const auto resting_tif = [&] { return venue.engine.books.products()[0].bids.best()->first->tif; };
    venue.enter(buy("b1").time_in_force('R').at("189.95"));
    EXPECT_EQ(venue.replace(replace("b1", "b2").time_in_force('I').at("189.95")),
              "MR b2 for b1 accepted #1000 leaves 100 | MN b2 for b1 #1000 100@189.95 leaves 100 tif I");
    EXPECT_EQ(resting_tif(), meo::TimeInForce::day);
    venue.replace(replace("b2", "b3").time_in_force('E').at("189.95"));
    EXPECT_EQ(resting_tif(), meo::TimeInForce::extended);
}

TEST(Replace, NotifiesWithTheProductOfTheOrderWhateverTheRequestSays) {
    namespace layout = meo::layout;
    Venue venue({.symbols = {"AAPL", "MSFT"}});
    venue.enter(buy("b1").product(2).at("189.95"));
    Replace replacement = replace("b1", "b2").at("189.96");
    replacement.product_id = 77;
    const Bytes message = replacement.bytes();
    const auto request = meo::read_replace(message);
    ASSERT_TRUE(request);
    OutboundMessages answers;
    venue.engine.replace(0, *request, answers);
    ASSERT_EQ(answers.size(), 2u);
    EXPECT_EQ(get(answers[0].message.bytes(), layout::replace_response::product_id), 77u);
    EXPECT_EQ(get(answers[1].message.bytes(), layout::replace_notification::product_id), 2u);
}

TEST(Replace, ThatCrossesTradesAndRestsWhatIsLeft) {
    Venue venue;
    venue.enter(buy("b1").at("189.95"));
    venue.enter(sell("s1").shares(60).at("190.00"), second_client);
    venue.published();
    EXPECT_EQ(venue.replace(replace("b1", "b2").at("190.00")),
              "MR b2 for b1 accepted #1000 leaves 100 | MN b2 for b1 #1000 100@190 leaves 100 tif D | "
              "E1 b2 60@190 buy removed RC match 1 exec 2 | P1 b2 #1000 @190 touch");
    EXPECT_EQ(venue.told(second_client), "E1 s1 60@190 sell added AC match 1 exec 1");
    EXPECT_EQ(venue.published(),
              "modify 1 #1000 100@190 lost priority | delete 1 #1000 | executed 1 #1001 60@190 match 1 resting S | "
              "add 1 #1000 B 40@190");
    EXPECT_EQ(venue.bids(), "40@190");
    EXPECT_EQ(venue.asks(), "");
    EXPECT_EQ(venue.bench.counters.replaces, 1u);
    EXPECT_EQ(venue.bench.counters.accepts, 2u);
}

TEST(Replace, ThatCrossesMayFillCompletely) {
    Venue venue;
    venue.enter(sell("s1").at("190.00"));
    venue.enter(buy("b1").shares(60).at("189.95"), second_client);
    venue.enter(buy("b2").shares(60).at("189.90"), second_client);
    venue.published();
    EXPECT_EQ(venue.replace(replace("s1", "s2").at("189.90")),
              "MR s2 for s1 accepted #1000 leaves 100 | MN s2 for s1 #1000 100@189.9 leaves 100 tif D | "
              "E1 s2 60@189.95 sell removed RC match 1 exec 2 | E1 s2 40@189.9 sell removed RC match 2 exec 4");
    EXPECT_EQ(venue.published(),
              "modify 1 #1000 100@189.9 lost priority | delete 1 #1000 | "
              "executed 1 #1001 60@189.95 match 1 resting B | executed 1 #1002 40@189.9 match 2 resting B");
    EXPECT_EQ(venue.asks(), "");
    // Filled as the incoming side, so its end is not remembered.
    venue.cancel(cancel("s2"));
    EXPECT_EQ(venue.bench.counters.stale_cancels, 1u);
}

TEST(Replace, ThatCrossesIsNeverPostOnlyAllOrNothingOrImmediate) {
    Venue venue;
    venue.enter(sell("s1").shares(60).at("190.00"), second_client);
    venue.enter(buy("p1").post_only().at("189.95"));
    EXPECT_EQ(venue.replace(replace("p1", "p2").time_in_force('F').at("190.00")),
              "MR p2 for p1 accepted #1001 leaves 100 | MN p2 for p1 #1001 100@190 leaves 100 tif F | "
              "E1 p2 60@190 buy removed RC match 1 exec 2 | P1 p2 #1001 @190 touch");
    venue.enter(sell("s2").shares(60).at("190.01"), second_client);
    EXPECT_EQ(venue.replace(replace("p2", "p3").shares(160).time_in_force('I').at("190.01")),
              "MR p3 for p2 accepted #1001 leaves 100 | MN p3 for p2 #1001 160@190.01 leaves 100 tif I | "
              "E1 p3 60@190.01 buy removed RC match 2 exec 4 | P1 p3 #1001 @190.01 touch");
    EXPECT_EQ(venue.bids(), "40@190.01");
}

TEST(Replace, ThatCrossesKeepsItsAttribution) {
    constexpr std::uint16_t attributed_to_participant = 1 << 8;
    Venue venue;
    venue.enter(sell("s1").shares(60).at("190.00"), second_client);
    venue.enter(buy("b1").flags(attributed_to_participant).at("189.95"));
    venue.published();
    venue.replace(replace("b1", "b2").at("190.00"));
    EXPECT_EQ(venue.published(),
              "modify 1 #1001 100@190 lost priority | delete 1 #1001 | executed 1 #1000 60@190 match 1 resting S | "
              "add 1 #1001 B 40@190 TEST");
}

TEST(Replace, NeverSchedulesAnUnsolicitedCancel) {
    Venue venue;
    venue.enter(buy("b1").at("189.95"));
    venue.enter(sell("s1").shares(60).at("190.00"), second_client);
    venue.bench.unsolicited_cancel_every = 1;
    venue.bench.unsolicited_cancel_next = 1;
    venue.replace(replace("b1", "b2").at("190.00"));
    EXPECT_EQ(venue.bench.unsolicited_cancel_next, 1u);
    venue.clock.advance_ms(1000);
    venue.engine.cancel_unsolicited();
    EXPECT_EQ(venue.told(0), "");
    EXPECT_EQ(venue.bids(), "40@190");
}

TEST(Replace, MayMeetAPartialFillOfTheOtherSide) {
    Venue venue;
    venue.bench.partial_next = 1;
    venue.enter(buy("b1").at("189.95"));
    venue.enter(sell("s1").at("190.00"), second_client);
    EXPECT_EQ(venue.replace(replace("b1", "b2").at("190.00")),
              "MR b2 for b1 accepted #1000 leaves 100 | MN b2 for b1 #1000 100@190 leaves 100 tif D | "
              "E1 b2 100@190 buy removed RC match 1 exec 2");
    EXPECT_EQ(venue.asks(), "50@190");
}

TEST(ScriptedReplaceReject, SaysSoAndLeavesTheOrderAlone) {
    Venue venue;
    venue.enter(buy("b1").at("189.95"));
    venue.published();
    venue.bench.replace_reject_next = 1;
    EXPECT_EQ(said_during([&] {
                  EXPECT_EQ(venue.replace(replace("b1", "b2").at("190.00")), "MR b2 for b1 rejected 'H' #1000");
              }),
              "bench: scripted replace reject for b1 -> b2 (the order stands as it was)\n");
    EXPECT_EQ(venue.published(), "");
    EXPECT_EQ(venue.bids(), "100@189.95");
    EXPECT_EQ(venue.bench.replace_reject_next, 0u);
    EXPECT_EQ(venue.cancel(cancel("b1")), "CR xb1 of b1 accepted #1000 | XN b1 #1000 leaves 0 'U'");
}

TEST(ScriptedReplaceReject, ComesBeforeAReplaceThatWouldClose) {
    Venue venue;
    venue.enter(buy("b1").shares(300).at("189.95"));
    venue.enter(sell("s1").shares(100).at("189.95"), second_client);
    venue.bench.replace_reject_next = 1;
    EXPECT_EQ(venue.replace(replace("b1", "b2").shares(100).at("189.95")), "MR b2 for b1 rejected 'H' #1000");
}

TEST(ScriptedReplaceReject, HitsEveryNthReplaceThatCouldBeAccepted) {
    Venue venue;
    venue.enter(buy("b1").at("189.95"));
    venue.bench.replace_reject_every = 2;
    const auto rejected = [&](const Replace& request) {
        return venue.replace(request).find("'H'") != std::string::npos;
    };
    EXPECT_FALSE(rejected(replace("b1", "b2").at("189.95")));
    EXPECT_FALSE(rejected(replace("b2", "b2").at("189.95")));            // 'A'
    EXPECT_FALSE(rejected(replace("b2", "b3").shares(0).at("189.95")));  // 'K'
    EXPECT_FALSE(rejected(replace("b1", "b3").at("189.95")));            // 'D'
    EXPECT_TRUE(rejected(replace("b2", "b3").at("189.95")));
    EXPECT_FALSE(rejected(replace("b2", "b3").at("189.95")));
    EXPECT_TRUE(rejected(replace("b3", "b4").at("189.95")));
}

TEST(ScriptedReplaceReject, ThatIsDueAnywayUsesUpOneOfTheNext) {
    Venue venue;
    venue.enter(buy("b1").at("189.95"));
    venue.bench.replace_reject_every = 1;
    venue.bench.replace_reject_next = 1;
    venue.replace(replace("b1", "b2").at("189.95"));
    EXPECT_EQ(venue.bench.replace_reject_next, 0u);
    EXPECT_EQ(venue.replace(replace("b1", "b2").at("189.95")), "MR b2 for b1 rejected 'H' #1000");
}

}  // namespace
}  // namespace kavo::test
