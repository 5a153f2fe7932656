#include <gtest/gtest.h>

#include "client/feed_messages.h"
#include "feed/dom_messages.h"
#include "support/bytes_of_feed.h"
#include "support/venue.h"

namespace kavo::test {
namespace {

constexpr std::size_t seeding_quotes = 40;

std::vector<std::string> lines(const std::vector<Bytes>& messages) {
    std::vector<std::string> texts;
    for (const Bytes& message : messages) texts.push_back(dom_text(message));
    return texts;
}

// What a state builder hands to a client who asks for a refresh.
std::string built(const DomFeed::StateBuilder& builder) {
    std::vector<std::string> texts;
    builder([&](ByteView message) { texts.push_back(dom_text(message)); });
    return joined(texts);
}

TEST(StartOfDay, TellsTheStateThenEachProductThenTheFirstQuotes) {
    VenueSettings settings;
    settings.symbols = {"AAPL", "SPY"};
    settings.seeded = true;
    settings.engine.session = 9;
    Venue venue(settings);
    const std::vector<std::string> published = lines(venue.published_bytes());
    const std::vector<std::string> definitions = {"time 1700000000",    "state session 9", "definition 1 AAPL Q",
                                                  "definition 2 SPY P", "open 1",          "open 2",
                                                  "status 1",           "status 2"};
    ASSERT_EQ(published.size(), definitions.size() + 2 * seeding_quotes);
    for (std::size_t i = 0; i < definitions.size(); ++i) EXPECT_EQ(published[i], definitions[i]);
    // At a standing reference no quote meets another, so each of them rests, under the ids from 1000 on.
    for (std::size_t i = 0; i < 2 * seeding_quotes; ++i) {
        const std::string product = i < seeding_quotes ? "1" : "2";
        const std::string start = "add " + product + " #" + std::to_string(1000 + i) + " ";
        EXPECT_TRUE(published[definitions.size() + i].starts_with(start)) << published[definitions.size() + i];
    }
}

TEST(StartOfDay, IsFlushed) {
    Venue venue({.seeded = true});
    ASSERT_FALSE(venue.datagrams.empty());
    const std::string carried = carried_by(venue.datagrams.back());
    EXPECT_TRUE(carried.ends_with(std::to_string(venue.feed.last_sequence()))) << carried;
    EXPECT_TRUE(carried_by(venue.datagrams.front()).starts_with("1 2 3"));
}

TEST(StartOfDay, SeedsAroundTheReferenceRoundedToCents) {
    VenueSettings settings;
    settings.reference = 12.3456;  // the middle is 12.35
    settings.seeded = true;
    Venue venue(settings);
    EXPECT_LE(venue.engine.books.products()[0].bids.best()->price, 123'400u);
    EXPECT_GE(venue.engine.books.products()[0].bids.levels().rbegin()->second.price, 122'500u);
    EXPECT_GE(venue.engine.books.products()[0].asks.best()->price, 123'500u);
    EXPECT_LE(venue.engine.books.products()[0].asks.levels().rbegin()->second.price, 124'400u);
}

TEST(StartOfDay, WithoutProductsTellsTheStateAlone) {
    VenueSettings settings;
    settings.symbols = {};
    settings.seeded = true;
    Venue venue(settings);
    EXPECT_EQ(venue.published(), "state session 1");
}

TEST(SeriesDefinition, ListsOneTickerElsewhereByItsNameAlone) {
    Venue venue({.symbols = {"SPY", "SPYX", "spy", "SP", ""}});
    EXPECT_EQ(built(venue.feed.state.series_definitions),
              "definition 1 SPY P | definition 2 SPYX Q | definition 3 spy Q | definition 4 SP Q | definition 5  Q");
}

TEST(SeriesDefinition, CutsASymbolAtElevenCharacters) {
    Venue venue({.symbols = {"ABCDEFGHIJKL"}});
    EXPECT_EQ(built(venue.feed.state.series_definitions), "definition 1 ABCDEFGHIJK Q");
}

TEST(SystemTime, StandsInFrontOfTheFirstBookChangeOfEachSecond) {
    Venue venue;
    const auto published = [&] { return joined(lines(venue.published_bytes())); };
    venue.enter(buy("b1").at("1.00"));
    venue.enter(buy("b2").at("1.00"));
    EXPECT_EQ(published(), "time 1700000000 | add 1 #1000 B 100@1 | add 1 #1001 B 100@1");
    venue.clock.advance_ms(876);  // the last millisecond of the second
    venue.cancel(cancel("b1"));
    EXPECT_EQ(published(), "delete 1 #1000");
    venue.clock.advance_ms(1);
    venue.replace(replace("b2", "b3").at("1.01"));
    venue.enter(sell("s1").shares(50).at("1.01"));
    EXPECT_EQ(published(),
              "time 1700000001 | modify 1 #1001 100@1.01 lost priority | "
              "executed 1 #1001 50@1.01 match 1 resting B");
    venue.clock.advance_ms(5000);
    venue.enter(sell("s2").shares(50).at("1.01"));
    EXPECT_EQ(published(), "time 1700000006 | executed 1 #1001 50@1.01 match 2 resting B");
    venue.clock.advance_ms(1000);
    EXPECT_EQ(published(), "");
}

TEST(SystemTime, StandsInFrontOfEveryKindOfBookChange) {
    Venue venue;
    const auto published = [&] {
        venue.clock.advance_ms(1000);
        return joined(lines(venue.published_bytes()));
    };
    venue.enter(buy("b1").at("1.00"));
    EXPECT_EQ(published(), "time 1700000000 | add 1 #1000 B 100@1");
    venue.replace(replace("b1", "b2").shares(90).at("1.00"));
    EXPECT_EQ(published(), "time 1700000001 | modify 1 #1000 90@1");
    venue.enter(sell("s1").shares(50).at("1.00"));
    EXPECT_EQ(published(), "time 1700000002 | executed 1 #1000 50@1 match 1 resting B");
    venue.cancel(cancel("b2"));
    EXPECT_EQ(published(), "time 1700000003 | delete 1 #1000");
}

TEST(BookChange, IsStampedWithTheNanosecondsOfItsSecond) {
    Venue venue;
    venue.enter(buy("b1").at("1.00"));
    const auto added = client::read_add_order(venue.published_bytes().back());
    ASSERT_TRUE(added);
    EXPECT_EQ(added->timestamp, 123'456'789u);
    venue.clock.advance_ms(1000);
    venue.enter(sell("s1").shares(50).at("1.00"));
    const auto executed = client::read_order_executed(venue.published_bytes().back());
    ASSERT_TRUE(executed);
    EXPECT_EQ(executed->timestamp, 123'456'789u);
    venue.clock.advance_ms(1);
    venue.replace(replace("b1", "b2").at("1.00"));
    const auto modified = client::read_modify_order(venue.published_bytes().back());
    ASSERT_TRUE(modified);
    EXPECT_EQ(modified->timestamp, 124'456'789u);
    venue.clock.advance_ms(1);
    venue.cancel(cancel("b2"));
    const auto deleted = client::read_delete_order(venue.published_bytes().back());
    ASSERT_TRUE(deleted);
    EXPECT_EQ(deleted->timestamp, 125'456'789u);
}

TEST(StateBuilders, TellTheSessionAndTheProducts) {
    VenueSettings settings;
    settings.symbols = {"AAPL", "SPY"};
    settings.engine.session = 9;
    Venue venue(settings);
    EXPECT_EQ(built(venue.feed.state.system_state), "state session 9");
    EXPECT_EQ(built(venue.feed.state.series_definitions), "definition 1 AAPL Q | definition 2 SPY P");
    EXPECT_EQ(built(venue.feed.state.series_trading_status), "status 1 | status 2");
}

TEST(StateBuilders, TellNoOrdersOfAnEmptyBook) {
    Venue venue;
    EXPECT_EQ(built(venue.feed.state.resting_orders), "");
    venue.enter(buy("b1").at("1.00"));
    venue.cancel(cancel("b1"));
    EXPECT_EQ(built(venue.feed.state.resting_orders), "");
}

TEST(StateBuilders, WalkProductsThenBidsThenAsksFromTheBestLevelInOrderOfArrival) {
    constexpr std::uint16_t attributed_to_retail = 2 << 8;
    Venue venue({.symbols = {"AAPL", "MSFT"}});
    venue.enter(sell("s1").product(2).at("410.00"));
    venue.enter(sell("s2").at("190.01"));
    venue.enter(sell("s3").at("190.00"));
    venue.enter(buy("b1").at("189.94"));
    venue.enter(buy("b2").at("189.95"));
    venue.enter(buy("b3").at("189.95").flags(attributed_to_retail));
    venue.enter(buy("b4").shares(40).at("190.00"));  // s3 keeps 60
    EXPECT_EQ(built(venue.feed.state.resting_orders),
              "add 1 #1004 B 100@189.95 | add 1 #1005 B 100@189.95 RTAL | add 1 #1003 B 100@189.94 | "
              "add 1 #1002 S 60@190 | add 1 #1001 S 100@190.01 | add 2 #1000 S 100@410");
}

TEST(StateBuilders, TakeNoNumbersAndAnnounceNoSecond) {
    Venue venue({.seeded = true});
    const std::uint64_t last = venue.feed.last_sequence();
    venue.clock.advance_ms(1000);
    built(venue.feed.state.system_state);
    built(venue.feed.state.series_definitions);
    built(venue.feed.state.series_trading_status);
    built(venue.feed.state.resting_orders);
    EXPECT_EQ(venue.feed.last_sequence(), last);
    EXPECT_EQ(venue.feed.counters.messages, last);
}

TEST(StateBuilders, LeaveTheStampToTheFeed) {
    Venue venue;
    venue.enter(buy("b1").at("1.00"));
    venue.clock.advance_ms(1);
    int orders = 0;
    venue.feed.state.resting_orders([&](ByteView message) {
        const auto added = client::read_add_order(message);
        ASSERT_TRUE(added);
        EXPECT_EQ(added->timestamp, 0u);
        ++orders;
    });
    EXPECT_EQ(orders, 1);
}

}  // namespace
}  // namespace kavo::test
