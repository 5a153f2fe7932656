#include <gtest/gtest.h>

#include "support/said.h"
#include "support/venue.h"

namespace kavo::test {
namespace {

TEST(Cancel, TakesTheOrderOffTheBook) {
    Venue venue;
    venue.enter(buy("b1").at("189.95"));
    venue.published();
    EXPECT_EQ(said_during([&] {
                  EXPECT_EQ(venue.cancel(cancel("b1")), "CR xb1 of b1 accepted #1000 | XN b1 #1000 leaves 0 'U'");
              }),
              "");
    EXPECT_EQ(venue.published(), "delete 1 #1000");
    EXPECT_EQ(venue.bids(), "");
    EXPECT_EQ(venue.told(0), "");
    EXPECT_EQ(venue.bench.counters.cancels, 1u);
}

TEST(Cancel, ByAnotherParticipantIsRejectedAndNothingElseHappens) {
    Venue venue;
    venue.enter(buy("b1").at("189.95"));
    venue.truth();
    venue.published();
    EXPECT_EQ(said_during([&] {
                  EXPECT_EQ(venue.cancel(cancel("b1").participant("FIRM")), "CR xb1 of b1 rejected 'Q' #1000");
                  EXPECT_EQ(venue.cancel(cancel("b1").participant("TES")), "CR xb1 of b1 rejected 'Q' #1000");
              }),
              "");
    EXPECT_TRUE(venue.truth().empty());
    EXPECT_EQ(venue.published(), "");
    EXPECT_EQ(venue.bids(), "100@189.95");
    EXPECT_EQ(venue.bench.counters.stale_cancels, 0u);
}

TEST(Cancel, ForAnotherProductIsRejectedAndNothingElseHappens) {
    Venue venue({.symbols = {"AAPL", "MSFT"}});
    venue.enter(buy("b1").at("189.95"));
    venue.truth();
    venue.published();
    EXPECT_EQ(venue.cancel(cancel("b1").product(2)), "CR xb1 of b1 rejected 'S' #1000");
    EXPECT_EQ(venue.cancel(cancel("b1").product(0)), "CR xb1 of b1 rejected 'S' #1000");
    EXPECT_TRUE(venue.truth().empty());
    EXPECT_EQ(venue.published(), "");
    EXPECT_EQ(venue.bids(), "100@189.95");
    EXPECT_EQ(venue.bench.counters.stale_cancels, 0u);
}

TEST(Cancel, IsCheckedForTheOrderThenTheParticipantThenTheProduct) {
    Venue venue;
    venue.enter(buy("b1").at("189.95"));
    venue.bench.fill_on_cancel_next = 1;
    EXPECT_EQ(venue.cancel(cancel("none").participant("FIRM").product(2)), "CR xnone of none rejected 'D'");
    EXPECT_EQ(venue.cancel(cancel("b1").participant("FIRM").product(2)), "CR xb1 of b1 rejected 'Q' #1000");
    EXPECT_EQ(venue.cancel(cancel("b1").product(2)), "CR xb1 of b1 rejected 'S' #1000");
    EXPECT_EQ(venue.bench.fill_on_cancel_next, 1u);
    EXPECT_EQ(venue.cancel(cancel("b1")), "E1 b1 100@189.95 buy added AC match 1 exec 1 | CR xb1 of b1 rejected 'D'");
}

TEST(Cancel, ThatLosesTheRaceIsAnsweredByTheFillThenByTheReject) {
    Venue venue;
    venue.bench.fill_on_cancel_next = 1;
    venue.enter(buy("b1").shares(100).at("189.95"));
    venue.published();
    EXPECT_EQ(said_during([&] {
                  EXPECT_EQ(venue.cancel(cancel("b1")),
                            "E1 b1 100@189.95 buy added AC match 1 exec 1 | CR xb1 of b1 rejected 'D'");
              }),
              "bench: cancel of b1 loses the race to a fill (executed in full; the cancel is rejected 'D')\n");
    EXPECT_EQ(venue.published(), "executed 1 #1000 100@189.95 match 1 resting B");
    EXPECT_EQ(venue.bids(), "");
    EXPECT_EQ(venue.told(0), "");
    EXPECT_EQ(venue.bench.counters.race_fills, 1u);
    EXPECT_EQ(venue.bench.counters.fills, 1u);
    EXPECT_EQ(venue.bench.counters.cancels, 0u);
    EXPECT_EQ(venue.bench.counters.late_cancels, 0u);
    EXPECT_EQ(venue.bench.counters.stale_cancels, 0u);
}

TEST(Cancel, ThatLosesTheRaceFillsWhatIsLeft) {
    Venue venue;
    venue.enter(sell("s1").shares(300).at("190.00"));
    venue.enter(buy("b1").shares(100).at("190.00"), second_client);
    venue.told(0);
    venue.bench.fill_on_cancel_next = 1;
    EXPECT_EQ(venue.cancel(cancel("s1")), "E1 s1 200@190 sell added AC match 2 exec 3 | CR xs1 of s1 rejected 'D'");
    EXPECT_EQ(venue.engine.books.products()[0].volume, 300u);
}

TEST(Cancel, ThatLosesTheRaceFillsTheOrderWhereverItQueues) {
    Venue venue;
    for (const char* id : {"b1", "b2", "b3"}) venue.enter(buy(id).at("189.95"));
    venue.enter(buy("b0").at("189.96"));
    venue.bench.fill_on_cancel_next = 1;
    EXPECT_EQ(venue.cancel(cancel("b2")), "E1 b2 100@189.95 buy added AC match 1 exec 1 | CR xb2 of b2 rejected 'D'");
    EXPECT_EQ(venue.bids(), "100@189.96 200@189.95");
}

TEST(Cancel, ThatLosesTheRaceIsNeverFilledInPart) {
    Venue venue;
    venue.bench.fill_on_cancel_next = 1;
    venue.bench.partial_next = 1;
    venue.bench.partial_fill_every = 1;
    venue.enter(buy("b1").at("189.95"));
    EXPECT_EQ(venue.cancel(cancel("b1")), "E1 b1 100@189.95 buy added AC match 1 exec 1 | CR xb1 of b1 rejected 'D'");
    EXPECT_EQ(venue.bench.partial_next, 1u);
    EXPECT_EQ(venue.bench.counters.partials, 0u);
}

TEST(Cancel, ThatLosesTheRaceBringsAlongWhatTheClientHasNotHeardYet) {
    Venue venue;
    venue.enter(buy("b1").at("189.95"));
    venue.enter(buy("b2").at("189.90"));
    venue.enter(buy("c1").at("189.93"), second_client);
    venue.enter(sell("s1").shares(300).at("189.90"), 2);  // fills all three
    venue.enter(buy("b3").at("189.80"));
    venue.bench.fill_on_cancel_next = 1;
    EXPECT_EQ(venue.cancel(cancel("b3")),
              "E1 b1 100@189.95 buy added AC match 1 exec 1 | E1 b2 100@189.9 buy added AC match 3 exec 5 | "
              "E1 b3 100@189.8 buy added AC match 4 exec 7 | CR xb3 of b3 rejected 'D'");
    EXPECT_EQ(venue.told(0), "");
    EXPECT_EQ(venue.told(second_client), "E1 c1 100@189.93 buy added AC match 2 exec 3");
}

TEST(Cancel, ThatLostTheRaceIsLateTheNextTime) {
    Venue venue;
    venue.bench.fill_on_cancel_next = 1;
    venue.enter(buy("b1").at("189.95"));
    venue.cancel(cancel("b1"));
    venue.cancel(cancel("b1"));
    EXPECT_EQ(venue.bench.counters.late_cancels, 1u);
}

TEST(Cancel, LosesTheRaceEveryNthTimeItCouldBeAccepted) {
    Venue venue({.symbols = {"AAPL", "MSFT"}});
    venue.bench.fill_on_cancel_every = 2;
    for (const char* id : {"b1", "b2", "b3", "b4"}) venue.enter(buy(id).at("189.95"));
    const auto loses = [&](const Cancel& request) { return venue.cancel(request).starts_with("E1"); };
    EXPECT_FALSE(loses(cancel("b1")));
    EXPECT_FALSE(loses(cancel("b1")));                      // late
    EXPECT_FALSE(loses(cancel("none")));                    // unknown
    EXPECT_FALSE(loses(cancel("b2").participant("FIRM")));  // 'Q'
    EXPECT_FALSE(loses(cancel("b2").product(2)));           // 'S'
    EXPECT_TRUE(loses(cancel("b2")));
    EXPECT_FALSE(loses(cancel("b3")));
    EXPECT_TRUE(loses(cancel("b4")));
    EXPECT_EQ(venue.bench.counters.race_fills, 2u);
    EXPECT_EQ(venue.bench.counters.cancels, 2u);
}

TEST(Cancel, ThatLosesTheRaceAnywayUsesUpOneOfTheNext) {
    Venue venue;
    venue.bench.fill_on_cancel_every = 1;
    venue.bench.fill_on_cancel_next = 1;
    venue.enter(buy("b1").at("189.95"));
    venue.cancel(cancel("b1"));
    EXPECT_EQ(venue.bench.fill_on_cancel_next, 0u);
    venue.enter(buy("b2").at("189.95"));
    EXPECT_TRUE(venue.cancel(cancel("b2")).starts_with("E1"));
}

TEST(Cancel, IsCommentedOnEvenWhenQuiet) {
    VenueSettings settings;
    settings.engine.quiet = true;
    Venue venue(settings);
    EXPECT_EQ(said_during([&] { venue.cancel(cancel("none")); }),
              "bench: stale cancel for none (unknown client order id)\n");
}

TEST(Cancel, OfAnOrderThatJustEndedIsLateAndAfterTwoSecondsStale) {
    Venue venue;
    venue.enter(buy("b1").at("189.95"));
    venue.cancel(cancel("b1"));
    const auto said = [&] {
        return said_during([&] { EXPECT_EQ(venue.cancel(cancel("b1")), "CR xb1 of b1 rejected 'D'"); });
    };
    EXPECT_EQ(said(), "");
    venue.clock.advance_ms(500);
    EXPECT_EQ(said(), "");
    venue.clock.advance_ms(1499);
    EXPECT_EQ(said(), "");
    EXPECT_EQ(venue.bench.counters.late_cancels, 3u);
    EXPECT_EQ(venue.bench.counters.stale_cancels, 0u);
    venue.clock.advance_ms(1);
    EXPECT_EQ(said(), "bench: stale cancel for b1 (closed more than 2 s ago)\n");
    venue.clock.advance_ms(500);
    EXPECT_EQ(said(), "bench: stale cancel for b1 (closed more than 2 s ago)\n");
    EXPECT_EQ(venue.bench.counters.late_cancels, 3u);
    EXPECT_EQ(venue.bench.counters.stale_cancels, 2u);
    EXPECT_EQ(venue.bench.counters.cancels, 1u);
}

TEST(Cancel, OfAFilledMakerIsLateAndOfAFilledTakerStaleAtOnce) {
    Venue venue;
    venue.enter(sell("s1").at("190.00"));
    venue.enter(buy("b1").at("190.00"), second_client);
    venue.clock.advance_ms(500);
    EXPECT_EQ(said_during([&] { EXPECT_EQ(venue.cancel(cancel("s1")), "CR xs1 of s1 rejected 'D'"); }), "");
    EXPECT_EQ(said_during([&] { EXPECT_EQ(venue.cancel(cancel("b1"), second_client), "CR xb1 of b1 rejected 'D'"); }),
              "bench: stale cancel for b1 (unknown client order id)\n");
}

TEST(Cancel, OfAnotherClientsOrderIsAnsweredLikeAnUnknownId) {
    Venue venue;
    venue.enter(buy("c1").at("189.95"), second_client);
    venue.published();
    EXPECT_EQ(said_during([&] { EXPECT_EQ(venue.cancel(cancel("c1")), "CR xc1 of c1 rejected 'D'"); }),
              "bench: stale cancel for c1 (unknown client order id)\n");
    EXPECT_EQ(said_during([&] { EXPECT_EQ(venue.cancel(cancel("none")), "CR xnone of none rejected 'D'"); }),
              "bench: stale cancel for none (unknown client order id)\n");
    EXPECT_EQ(venue.published(), "");
    EXPECT_EQ(venue.bids(), "100@189.95");
    EXPECT_EQ(venue.bench.counters.stale_cancels, 2u);
}

TEST(Cancel, OfAnotherClientsOrderThatJustEndedIsLate) {
    Venue venue;
    venue.enter(buy("c1").at("189.95"), second_client);
    venue.cancel(cancel("c1"), second_client);
    EXPECT_EQ(said_during([&] { EXPECT_EQ(venue.cancel(cancel("c1")), "CR xc1 of c1 rejected 'D'"); }), "");
    EXPECT_EQ(venue.bench.counters.late_cancels, 1u);
}

// The second life of the id ends as a filled taker, which is not remembered; so it is the first one that counts.
TEST(Cancel, OfAReusedIdGoesByTheLatestEndThatIsRemembered) {
    Venue venue;
    venue.enter(buy("b1").at("189.95"));
    venue.cancel(cancel("b1"));
    venue.clock.advance_ms(1000);
    venue.enter(sell("s1").at("190.00"), second_client);
    venue.enter(buy("b1").at("190.00"));
    venue.clock.advance_ms(999);
    EXPECT_EQ(said_during([&] { venue.cancel(cancel("b1")); }), "");
    venue.clock.advance_ms(1);
    EXPECT_EQ(said_during([&] { venue.cancel(cancel("b1")); }),
              "bench: stale cancel for b1 (closed more than 2 s ago)\n");
    venue.enter(buy("b1").immediate().at("1.00"));
    EXPECT_EQ(said_during([&] { venue.cancel(cancel("b1")); }), "");
}

}  // namespace
}  // namespace kavo::test
