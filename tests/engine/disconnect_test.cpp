#include <gtest/gtest.h>

#include "support/said.h"
#include "support/venue.h"

namespace kavo::test {
namespace {

VenueSettings with_acod() {
    VenueSettings settings;
    settings.symbols = {"AAPL", "MSFT"};
    settings.engine.acod = true;
    return settings;
}

TEST(DroppedClient, WithoutAcodLeavesItsOrdersToTrade) {
    Venue venue;
    venue.enter(buy("b1").at("189.95"));
    venue.enter(sell("s1").at("190.00"));
    venue.enter(buy("c1").at("189.90"), second_client);
    venue.published();
    EXPECT_EQ(said_during([&] { venue.engine.client_dropped(0, "alice"); }),
              "bench: ACOD off (Do Not Cancel All Open Orders): 2 open order(s) of alice stay on the book\n");
    EXPECT_EQ(venue.published(), "");
    EXPECT_EQ(venue.told(0), "");
    EXPECT_EQ(venue.bids(), "100@189.95 100@189.9");
    venue.enter(sell("s2").at("189.95"), second_client);
    EXPECT_EQ(venue.told(0), "E1 b1 100@189.95 buy added AC match 1 exec 1");
}

TEST(DroppedClient, WithAcodLosesItsOrdersInTheOrderOfTheirIds) {
    Venue venue(with_acod());
    venue.enter(buy("b1").at("189.95"));
    venue.enter(buy("c1").at("189.95"), second_client);
    venue.enter(sell("s1").shares(300).product(2).at("410.00"));
    venue.enter(buy("b2").at("189.96"));
    venue.enter(sell("c2").shares(100).product(2).at("409.00"), second_client);
    venue.enter(buy("d1").shares(100).product(2).at("410.00"), 2);
    venue.replace(replace("b1", "b3").at("189.97"));
    venue.told(0);
    venue.published();
    EXPECT_EQ(said_during([&] { venue.engine.client_dropped(0, "alice"); }),
              "bench: ACOD (Cancel All Open Orders): cancelled 3 open order(s) of alice on disconnect\n");
    EXPECT_EQ(venue.told(0), "XN b3 #1000 leaves 0 'D' | XN s1 #1002 leaves 0 'D' | XN b2 #1003 leaves 0 'D'");
    EXPECT_EQ(venue.published(), "delete 1 #1000 | delete 2 #1002 | delete 1 #1003");
    EXPECT_EQ(venue.bids(1), "100@189.95");
    EXPECT_EQ(venue.asks(2), "");
    EXPECT_EQ(venue.bench.counters.cancels, 3u);
    EXPECT_EQ(venue.bench.counters.disconnect_cancels, 3u);
}

TEST(DroppedClient, WithAcodAndNoOrdersLosesNone) {
    Venue venue(with_acod());
    venue.enter(buy("b1").at("189.95"));
    venue.cancel(cancel("b1"));
    venue.enter(buy("c1").at("189.95"), second_client);
    EXPECT_EQ(said_during([&] { venue.engine.client_dropped(0, "alice"); }),
              "bench: ACOD (Cancel All Open Orders): cancelled 0 open order(s) of alice on disconnect\n");
    EXPECT_EQ(said_during([&] { venue.engine.client_dropped(7, ""); }),
              "bench: ACOD (Cancel All Open Orders): cancelled 0 open order(s) of  on disconnect\n");
    EXPECT_EQ(venue.bids(), "100@189.95");
}

TEST(DroppedClient, WithAcodLeavesClosedIdsBehind) {
    Venue venue(with_acod());
    venue.enter(buy("b1").at("189.95"));
    venue.engine.client_dropped(0, "alice");
    venue.cancel(cancel("b1"), second_client);
    EXPECT_EQ(venue.bench.counters.late_cancels, 1u);
    venue.enter(buy("b1").at("189.95"), second_client);
    EXPECT_EQ(venue.bids(), "100@189.95");
}

TEST(UnsolicitedCancel, ComesThreeHundredMillisecondsAfterTheOrder) {
    Venue venue;
    venue.bench.unsolicited_cancel_next = 1;
    venue.enter(buy("b1").at("189.95"));
    venue.published();
    EXPECT_EQ(venue.bench.unsolicited_cancel_next, 0u);
    venue.clock.advance_ms(299);
    EXPECT_EQ(said_during([&] { venue.engine.cancel_unsolicited(); }), "");
    EXPECT_EQ(venue.bids(), "100@189.95");
    venue.clock.advance_ms(1);
    EXPECT_EQ(said_during([&] { venue.engine.cancel_unsolicited(); }),
              "bench: unsolicited cancel of b1 (helpdesk; the client must mark it cancelled)\n");
    EXPECT_EQ(venue.told(0), "XN b1 #1000 leaves 0 'H'");
    EXPECT_EQ(venue.published(), "delete 1 #1000");
    EXPECT_EQ(venue.bids(), "");
    EXPECT_EQ(venue.bench.counters.unsolicited_cancels, 1u);
    EXPECT_EQ(venue.bench.counters.cancels, 1u);
    venue.cancel(cancel("b1"));
    EXPECT_EQ(venue.bench.counters.late_cancels, 1u);
}

TEST(UnsolicitedCancel, ComesOnceHoweverLateThePass) {
    Venue venue;
    venue.bench.unsolicited_cancel_next = 1;
    venue.enter(buy("b1").at("189.95"));
    venue.clock.advance_ms(5000);
    venue.engine.cancel_unsolicited();
    venue.enter(buy("b1").at("189.95"));
    venue.engine.cancel_unsolicited();
    EXPECT_EQ(venue.bids(), "100@189.95");
    EXPECT_EQ(venue.bench.counters.unsolicited_cancels, 1u);
}

TEST(UnsolicitedCancel, TakesWhatIsLeftOfTheOrder) {
    Venue venue;
    venue.bench.unsolicited_cancel_next = 1;
    venue.enter(sell("s1").shares(300).at("190.00"));
    venue.enter(buy("b1").shares(100).at("190.00"), second_client);
    venue.told(0);
    venue.clock.advance_ms(300);
    venue.engine.cancel_unsolicited();
    EXPECT_EQ(venue.told(0), "XN s1 #1000 leaves 0 'H'");
    EXPECT_EQ(venue.asks(), "");
}

TEST(UnsolicitedCancel, SkipsAnOrderThatHasEnded) {
    Venue venue;
    venue.bench.unsolicited_cancel_next = 3;
    venue.enter(sell("filled").at("190.00"));
    venue.enter(buy("cancelled").at("189.95"));
    venue.enter(buy("replaced").at("189.95"));
    venue.enter(buy("c1").at("190.00"), second_client);
    venue.cancel(cancel("cancelled"));
    venue.replace(replace("replaced", "renamed").at("189.95"));
    venue.told(0);
    venue.clock.advance_ms(300);
    EXPECT_EQ(said_during([&] { venue.engine.cancel_unsolicited(); }), "");
    EXPECT_EQ(venue.told(0), "");
    EXPECT_EQ(venue.bids(), "100@189.95");
    EXPECT_EQ(venue.bench.counters.unsolicited_cancels, 0u);
}

TEST(UnsolicitedCancel, OfAnOrderThatHasEndedIsForgotten) {
    Venue venue;
    venue.bench.unsolicited_cancel_next = 1;
    venue.enter(buy("b1").at("189.95"));
    venue.cancel(cancel("b1"));
    venue.clock.advance_ms(300);
    venue.engine.cancel_unsolicited();
    venue.enter(buy("b1").at("189.95"));
    venue.engine.cancel_unsolicited();
    EXPECT_EQ(venue.bids(), "100@189.95");
}

TEST(UnsolicitedCancel, HitsWhateverOrderUsesTheIdByThen) {
    Venue venue;
    venue.bench.unsolicited_cancel_next = 1;
    venue.enter(buy("b1").at("189.95"));
    venue.cancel(cancel("b1"));
    venue.clock.advance_ms(200);
    venue.enter(sell("b1").at("190.00"), second_client);
    venue.clock.advance_ms(100);
    venue.engine.cancel_unsolicited();
    EXPECT_EQ(venue.told(second_client), "XN b1 #1001 leaves 0 'H'");
    EXPECT_EQ(venue.told(0), "");
}

TEST(UnsolicitedCancel, ComesInTheOrderOfTheOrders) {
    Venue venue;
    venue.bench.unsolicited_cancel_next = 3;
    venue.enter(buy("b1").at("189.95"));
    venue.clock.advance_ms(100);
    venue.enter(buy("b2").at("189.94"));
    venue.enter(buy("b3").at("189.96"));
    venue.clock.advance_ms(200);
    venue.engine.cancel_unsolicited();
    EXPECT_EQ(venue.told(0), "XN b1 #1000 leaves 0 'H'");
    venue.clock.advance_ms(100);
    venue.engine.cancel_unsolicited();
    EXPECT_EQ(venue.told(0), "XN b2 #1001 leaves 0 'H' | XN b3 #1002 leaves 0 'H'");
}

TEST(UnsolicitedCancel, IsMeantForEveryNthAcceptedOrderThatRests) {
    Venue venue;
    venue.bench.unsolicited_cancel_every = 2;
    venue.enter(buy("b1").at("189.95"));
    venue.enter(buy("b2").at("189.95"));
    venue.enter(buy("b3").shares(0).at("189.95"));  // never accepted
    venue.bench.reject_next = 1;
    venue.enter(buy("b3").at("189.95"));  // nor this one
    venue.enter(buy("b3").at("189.95"));
    venue.enter(buy("b4").immediate().at("189.95"));  // the fourth one accepted, but it does not rest
    venue.enter(buy("b5").at("189.95"));
    venue.enter(buy("b6").at("189.95"));
    venue.clock.advance_ms(300);
    venue.engine.cancel_unsolicited();
    EXPECT_EQ(venue.told(0), "XN b2 #1001 leaves 0 'H' | XN b6 #1005 leaves 0 'H'");
}

TEST(UnsolicitedCancel, OfTheNextOrdersWaitsForOneThatRests) {
    Venue venue;
    venue.bench.unsolicited_cancel_next = 1;
    venue.enter(buy("i1").immediate().at("189.95"));
    EXPECT_EQ(venue.bench.unsolicited_cancel_next, 1u);
    venue.enter(sell("s1").at("190.00"), second_client);
    EXPECT_EQ(venue.bench.unsolicited_cancel_next, 0u);
}

TEST(UnsolicitedCancel, ThatIsDueAnywayUsesUpOneOfTheNext) {
    Venue venue;
    venue.bench.unsolicited_cancel_every = 1;
    venue.bench.unsolicited_cancel_next = 1;
    venue.enter(buy("b1").at("189.95"));
    EXPECT_EQ(venue.bench.unsolicited_cancel_next, 0u);
    venue.enter(buy("b2").at("189.95"));
    venue.clock.advance_ms(300);
    venue.engine.cancel_unsolicited();
    EXPECT_EQ(venue.bids(), "");
}

}  // namespace
}  // namespace kavo::test
