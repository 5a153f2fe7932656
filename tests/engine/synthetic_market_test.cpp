#include <gtest/gtest.h>

#include "engine/meo_layout.h"
#include "feed/dom_messages.h"
#include "support/bytes_of_feed.h"
#include "support/venue.h"

namespace kavo::test {
namespace {

// A market that stands where it is: quotes come and go around a reference that never moves.
VenueSettings standing_market() {
    VenueSettings settings;
    settings.seeded = true;
    settings.engine.step_bps = 0;
    settings.engine.touch_hit = 0;
    return settings;
}

// The id that an order gets now, far from the market. The next one gets a later id.
std::uint64_t next_order_id(Venue& venue) {
    meo::NewOrderRequest request;
    OutboundMessages answers;
    const Bytes message = buy("probe").immediate().at("0.01").bytes();
    EXPECT_TRUE(meo::parse_new_order(message, request));
    venue.engine.new_order(0, request, answers);
    return get(answers.front().message.bytes(), meo::layout::new_order_response::order_id);
}

TEST(SyntheticMarket, WithoutAStepKeepsItsReferenceAndGoesOnQuoting) {
    Venue venue(standing_market());
    for (int i = 0; i < 20; ++i) {
        venue.published();
        venue.engine.tick();
        EXPECT_EQ(venue.engine.books.products()[0].reference, 190.0);
        EXPECT_NE(venue.published().find("add 1 #"), std::string::npos);
    }
}

TEST(SyntheticMarket, WithAStepMovesItsReference) {
    VenueSettings settings = standing_market();
    settings.engine.step_bps = 0.8;
    Venue venue(settings);
    venue.engine.tick();
    EXPECT_NE(venue.engine.books.products()[0].reference, 190.0);
    EXPECT_NEAR(venue.engine.books.products()[0].reference, 190.0, 0.2);  // more than ten standard deviations
}

TEST(SyntheticMarket, PlacesThreeQuotesATickWhileItsBookIsDeep) {
    Venue venue(standing_market());
    for (int i = 0; i < 20; ++i) {
        // Two quotes at most are withdrawn first, and at a standing reference none trades.
        ASSERT_GE(venue.engine.books.products()[0].bids.levels().size(), 6u);
        ASSERT_GE(venue.engine.books.products()[0].asks.levels().size(), 6u);
        const std::uint64_t before = next_order_id(venue);
        venue.engine.tick();
        EXPECT_EQ(next_order_id(venue), before + 1 + 3);
    }
}

TEST(SyntheticMarket, PlacesAQuoteMoreOnEachSideThatIsShallow) {
    VenueSettings settings = standing_market();
    settings.seeded = false;
    Venue venue(settings);
    const std::uint64_t before = next_order_id(venue);
    venue.engine.tick();
    // Three quotes cannot make four levels of either side.
    EXPECT_EQ(next_order_id(venue), before + 1 + 5);
}

// Three levels of bids are too few and four of asks are enough; so a fourth quote comes, to buy, exactly when none of
// the three random ones has bought.
TEST(SyntheticMarket, FillsASideUpFromThreeLevelsToFour) {
    int filled_up = 0;
    for (std::uint32_t seed = 1; seed <= 40; ++seed) {
        VenueSettings settings = standing_market();
        settings.seeded = false;
        settings.seed = seed;
        Venue venue(settings);
        for (const char* price : {"1.00", "2.00", "3.00"}) venue.enter(buy(price).at(price));
        for (const char* price : {"400.00", "401.00", "402.00", "403.00"}) venue.enter(sell(price).at(price));
        venue.published();
        venue.engine.tick();
        std::string sides;
        for (const Bytes& message : venue.published_bytes()) {
            dom::AddOrder added;
            ASSERT_TRUE(read(message, added));
            sides += added.side;
        }
        if (sides.starts_with("SSS")) {
            EXPECT_EQ(sides, "SSSB");
            ++filled_up;
        } else {
            EXPECT_EQ(sides.size(), 3u) << sides;
        }
    }
    EXPECT_GT(filled_up, 0);
}

TEST(SyntheticMarket, QuotesBuysBelowTheMiddleAndSellsFromTheMiddleUp) {
    Venue venue(standing_market());
    for (int i = 0; i < 100; ++i) venue.engine.tick();
    EXPECT_EQ(venue.engine.books.products()[0].bids.levels().begin()->second.price, 1'899'900u);
    EXPECT_EQ(venue.engine.books.products()[0].bids.levels().rbegin()->second.price, 1'899'000u);
    EXPECT_EQ(venue.engine.books.products()[0].asks.levels().begin()->second.price, 1'900'000u);
    EXPECT_EQ(venue.engine.books.products()[0].asks.levels().rbegin()->second.price, 1'900'900u);
}

TEST(SyntheticMarket, SellsToAClientWhoBidsTheMiddle) {
    VenueSettings settings = standing_market();
    settings.seeded = false;
    Venue venue(settings);
    venue.enter(buy("b1").at("190.00"));
    std::string told;
    for (int i = 0; i < 500 && told.empty(); ++i) {
        venue.engine.tick();
        told = venue.told(0);
    }
    EXPECT_EQ(told, "E1 b1 100@190 buy added AC match 1 exec 1");
}

TEST(SyntheticMarket, SendsNothingToAnybodyForItsOwnOrders) {
    VenueSettings settings = standing_market();
    settings.engine.touch_hit = 1;
    Venue venue(settings);
    for (int i = 0; i < 50; ++i) venue.engine.tick();
    EXPECT_NE(venue.published().find("executed"), std::string::npos);
    EXPECT_TRUE(venue.engine.outbox.empty());
    EXPECT_TRUE(venue.truth().empty());
    EXPECT_EQ(venue.bench.counters.fills, 0u);
    EXPECT_EQ(venue.bench.counters.cancels, 0u);
}

TEST(SyntheticMarket, IsNeverAttributedOnTheFeed) {
    Venue venue(standing_market());
    for (int i = 0; i < 20; ++i) venue.engine.tick();
    EXPECT_EQ(venue.published().find("SYNT"), std::string::npos);
}

TEST(SyntheticMarket, TakesNoOrderIdToHitTheTouch) {
    VenueSettings settings = standing_market();
    settings.engine.touch_hit = 1;
    settings.seeded = false;
    Venue venue(settings);
    const std::uint64_t before = next_order_id(venue);
    venue.engine.tick();
    EXPECT_EQ(next_order_id(venue), before + 1 + 5);
    EXPECT_NE(venue.published().find("executed"), std::string::npos);
}

// Its quotes to sell begin a cent higher, so nothing but a hit of the touch can reach this bid.
TEST(SyntheticMarket, HitsAClientAtTheTouch) {
    VenueSettings settings = standing_market();
    settings.seeded = false;
    settings.engine.touch_hit = 1;
    Venue venue(settings);
    venue.enter(buy("b1").shares(25'000).at("189.99"));
    std::string told;
    for (int i = 0; i < 50 && told.empty(); ++i) {
        venue.engine.tick();
        told = venue.told(0);
    }
    EXPECT_TRUE(told.starts_with("E1 b1 ")) << told;
    EXPECT_NE(told.find("00@189.99 buy added AC"), std::string::npos) << told;
    EXPECT_TRUE(told.ends_with("exec 1")) << told;
}

TEST(SyntheticMarket, StandsStillWhilePausedAndGoesOnAsIfNothingHadBeen) {
    Venue paused(standing_market());
    Venue running(standing_market());
    paused.published();
    running.published();
    paused.engine.market.paused = true;
    for (int i = 0; i < 3; ++i) paused.engine.tick();
    EXPECT_EQ(paused.published(), "");
    EXPECT_EQ(paused.bids(), running.bids());
    paused.engine.market.paused = false;
    paused.engine.tick();
    running.engine.tick();
    EXPECT_EQ(paused.published(), running.published());
}

TEST(SyntheticMarket, IsTheSameForTheSameSeed) {
    const auto market = [](std::uint32_t seed) {
        VenueSettings settings;
        settings.seeded = true;
        settings.seed = seed;
        Venue venue(settings);
        for (int i = 0; i < 20; ++i) venue.engine.tick();
        return venue.published();
    };
    EXPECT_EQ(market(42), market(42));
    EXPECT_NE(market(42), market(43));
}

TEST(SyntheticMarket, FlushesWhatATickPublished) {
    Venue venue(standing_market());
    venue.datagrams.clear();
    venue.engine.tick();
    ASSERT_FALSE(venue.datagrams.empty());
    const std::string carried = carried_by(venue.datagrams.back());
    EXPECT_TRUE(carried.ends_with(std::to_string(venue.feed.last_sequence()))) << carried;
}

// In the pass in which its cancel falls due, the market fills the order first, and the cancel finds it gone.
TEST(SyntheticMarket, TicksBeforeAnUnsolicitedCancelOfTheSamePass) {
    VenueSettings settings = standing_market();
    settings.seeded = false;
    Venue venue(settings);
    const ClientHandle alice = venue.log_in("alice");
    venue.bench.unsolicited_cancel_next = 1;
    venue.request(alice, buy("b1").at("400.00").bytes());
    venue.heard(alice);
    venue.clock.advance_ms(300);
    venue.engine.tick();  // places a sell at least, since its side is empty
    venue.pass();
    EXPECT_EQ(venue.heard(alice), "6: E1 b1 100@400 buy added AC match 1 exec 1");
    EXPECT_EQ(venue.bench.counters.unsolicited_cancels, 0u);
}

}  // namespace
}  // namespace kavo::test
