#include "feed/dom_feed.h"

#include <gtest/gtest.h>

#include "feed/dom_messages.h"
#include "support/bytes_hex.h"
#include "support/bytes_of_feed.h"
#include "support/said.h"

namespace kavo {
namespace {

using test::CaughtFeed;
using test::from_hex;
using test::said_during;
using test::to_hex;

TEST(DomFeed, HasUsedNoNumberBeforeItsFirstMessage) {
    const CaughtFeed caught;
    EXPECT_EQ(caught.feed.next_sequence(), 1u);
    EXPECT_EQ(caught.feed.last_sequence(), 0u);
    EXPECT_EQ(caught.feed.counters.messages, 0u);
    EXPECT_TRUE(caught.sent.empty());
}

TEST(DomFeed, NumbersItsMessagesFromOneAndSendsThemTogether) {
    CaughtFeed caught;
    caught.publish(3);
    EXPECT_EQ(caught.take_sent(), "");
    caught.feed.flush();
    EXPECT_EQ(caught.take_sent(), "1 2 3");
    EXPECT_EQ(caught.feed.next_sequence(), 4u);
    EXPECT_EQ(caught.feed.last_sequence(), 3u);
    EXPECT_EQ(caught.feed.counters.messages, 3u);
    EXPECT_EQ(caught.feed.counters.packets, 1u);
}

TEST(DomFeed, SendsNothingWithoutMessages) {
    CaughtFeed caught;
    caught.feed.flush();
    caught.publish(1);
    caught.feed.flush();
    caught.feed.flush();
    EXPECT_EQ(caught.take_sent(), "1");
    EXPECT_EQ(caught.feed.counters.packets, 1u);
}

TEST(DomFeed, StartsEachDatagramWhereTheOneBeforeItEnded) {
    CaughtFeed caught;
    caught.publish(4);
    caught.feed.flush();
    caught.publish(5);
    caught.feed.flush();
    caught.publish(1);
    caught.feed.flush();
    EXPECT_EQ(caught.take_sent(), "1 2 3 4 | 5 6 7 8 9 | 10");
}

TEST(DomFeed, FillsADatagramToTheLastByteBeforeItSendsIt) {
    CaughtFeed caught;
    caught.publish(10, 128);  // packets of 140 bytes: ten of them are 1400
    EXPECT_EQ(caught.take_sent(), "");
    caught.publish(1, 0);
    ASSERT_EQ(caught.sent.size(), 1u);
    EXPECT_EQ(caught.sent[0].size(), 1400u);
    EXPECT_EQ(caught.take_sent(), "1 2 3 4 5 6 7 8 9 10");
    caught.feed.flush();
    EXPECT_EQ(caught.take_sent(), "11");
}

TEST(DomFeed, SendsADatagramWhenTheNextMessageIsAByteTooLong) {
    CaughtFeed caught;
    caught.publish(9, 128);  // 1260 bytes, so 140 are left
    caught.publish(1, 129);  // 141 bytes
    ASSERT_EQ(caught.sent.size(), 1u);
    EXPECT_EQ(caught.sent[0].size(), 1260u);
    EXPECT_EQ(caught.take_sent(), "1 2 3 4 5 6 7 8 9");
    caught.feed.flush();
    EXPECT_EQ(caught.take_sent(), "10");
}

TEST(DomFeed, SendsAMessageThatFillsADatagramAllAlone) {
    CaughtFeed caught;
    caught.publish(1);
    caught.publish(1, 1388);
    EXPECT_EQ(caught.take_sent(), "1");
    caught.feed.flush();
    ASSERT_EQ(caught.sent.size(), 1u);
    EXPECT_EQ(caught.sent[0].size(), 1400u);
    EXPECT_EQ(caught.take_sent(), "2");
}

TEST(DomFeed, NumbersAndKeepsAMessageThatFitsNoDatagramWithoutSendingIt) {
    CaughtFeed caught;
    caught.publish(1);
    caught.publish(1, 1389);
    EXPECT_EQ(caught.take_sent(), "1");
    caught.publish(1);
    caught.feed.flush();
    EXPECT_EQ(caught.take_sent(), "3");
    EXPECT_EQ(caught.feed.counters.messages, 3u);
    EXPECT_EQ(caught.feed.counters.packets, 2u);
    EXPECT_EQ(to_hex(caught.feed.message(2)), to_hex(Bytes(1389, 2)));
}

TEST(DomFeed, SendsNoDatagramForAMessageThatFitsNone) {
    CaughtFeed caught;
    caught.publish(1, 1389);
    caught.feed.flush();
    EXPECT_EQ(caught.take_sent(), "");
    EXPECT_EQ(caught.feed.next_sequence(), 2u);
    EXPECT_EQ(caught.feed.counters.packets, 0u);
}

TEST(DomFeed, KeepsWhatItPublishedAsItWasPublished) {
    CaughtFeed caught;
    caught.feed.publish(from_hex("41 42 43"));
    caught.feed.publish(from_hex("FF"));
    EXPECT_EQ(to_hex(caught.feed.message(1)), to_hex(from_hex("41 42 43")));
    EXPECT_EQ(to_hex(caught.feed.message(2)), to_hex(from_hex("FF")));
}

TEST(DomFeed, ForgetsItsOldestMessageOnceItHasPublishedTwoHundredThousandAndOne) {
    CaughtFeed caught;
    caught.publish(200'000, 1);
    EXPECT_EQ(caught.feed.history.oldest(), 1u);
    EXPECT_EQ(caught.feed.history.size(), 200'000u);
    caught.publish(1, 1);
    EXPECT_EQ(caught.feed.history.oldest(), 2u);
    EXPECT_EQ(caught.feed.history.size(), 200'000u);
    EXPECT_EQ(to_hex(caught.feed.message(2)), to_hex(from_hex("02")));
    EXPECT_EQ(to_hex(caught.feed.message(200'001)), to_hex(from_hex("41")));  // 200001 is 0x30D41
    EXPECT_EQ(caught.feed.counters.messages, 200'001u);
}

// The wall clock some time within the second that begins at `second`.
constexpr std::uint64_t within(std::uint64_t second, std::uint64_t ns = 0) {
    return second * ns_per_second + ns;
}

// The seconds that System Time messages announce, and a dot for every other message, in the order of their numbers.
std::string announcements(const DomFeed& feed) {
    std::string list;
    for (std::uint64_t sequence = 1; sequence < feed.next_sequence(); ++sequence) {
        dom::SystemTime time;
        list += read(feed.message(sequence), time) ? std::to_string(time.seconds) : ".";
    }
    return list;
}

// A message that is stamped at this moment.
void publish_at(CaughtFeed& caught, std::uint64_t wall_ns) {
    caught.clock.stand_at(CaughtFeed::steady_ms, wall_ns);
    caught.feed.publish_timed(dom::build(dom::DeleteOrder{}));
}

TEST(SystemTimeMessage, IsAnnouncedBeforeTheFirstMessageThatIsStamped) {
    CaughtFeed caught;
    publish_at(caught, within(1'700'000'000, 5));
    EXPECT_EQ(announcements(caught.feed), "1700000000.");
    caught.feed.flush();
    EXPECT_EQ(caught.take_sent(), "1 2");
}

TEST(SystemTimeMessage, IsAnnouncedOnceInASecond) {
    CaughtFeed caught;
    publish_at(caught, within(50));
    publish_at(caught, within(50, 1));
    publish_at(caught, within(50, 999'999'999));
    EXPECT_EQ(announcements(caught.feed), "50...");
    EXPECT_EQ(caught.feed.counters.messages, 4u);
}

TEST(SystemTimeMessage, IsAnnouncedBeforeTheMessageThatCrossesIntoANewSecond) {
    CaughtFeed caught;
    publish_at(caught, within(50, 999'999'999));
    publish_at(caught, within(51));
    publish_at(caught, within(51, 1));
    EXPECT_EQ(announcements(caught.feed), "50.51..");
}

TEST(SystemTimeMessage, IsAnnouncedOnceForManySecondsThatPassedInSilence) {
    CaughtFeed caught;
    publish_at(caught, within(50));
    publish_at(caught, within(60));
    EXPECT_EQ(announcements(caught.feed), "50.60.");
}

TEST(SystemTimeMessage, IsAnnouncedAgainWhenTheWallClockIsSetBack) {
    CaughtFeed caught;
    publish_at(caught, within(50));
    publish_at(caught, within(49, 999'999'999));
    EXPECT_EQ(announcements(caught.feed), "50.49.");
}

TEST(SystemTimeMessage, IsNotAnnouncedByAMessageThatCarriesNoStamp) {
    CaughtFeed caught;
    caught.feed.publish(from_hex("01"));
    EXPECT_EQ(announcements(caught.feed), ".");
}

TEST(FeedStart, GoesOutAtOnceWithoutANumber) {
    CaughtFeed caught;
    caught.feed.send_start();
    EXPECT_EQ(caught.take_sent(), "start 0");
    EXPECT_EQ(caught.feed.next_sequence(), 1u);
    EXPECT_EQ(caught.feed.counters.packets, 0u);
    EXPECT_EQ(caught.feed.counters.messages, 0u);
}

TEST(FeedStart, PassesByTheInjectedFaults) {
    CaughtFeed caught;
    caught.feed.faults.drop_every = 1;
    caught.feed.faults.drop_next = 1;
    caught.feed.faults.dup_next = 1;
    caught.feed.faults.reorder_next = 1;
    caught.feed.send_start();
    EXPECT_EQ(caught.take_sent(), "start 0");
    EXPECT_EQ(caught.feed.faults.drop_next, 1u);
    EXPECT_EQ(caught.feed.faults.dup_next, 1u);
    EXPECT_EQ(caught.feed.faults.reorder_next, 1u);
}

TEST(FeedStart, CountsAsTrafficForTheHeartbeat) {
    CaughtFeed caught;
    caught.clock.advance_ms(600);
    caught.feed.send_start();
    EXPECT_EQ(caught.take_sent(), "start 0");
    caught.clock.advance_ms(999);
    caught.feed.heartbeat_when_idle();
    EXPECT_EQ(caught.take_sent(), "");
    caught.clock.advance_ms(1);
    caught.feed.heartbeat_when_idle();
    EXPECT_EQ(caught.take_sent(), "heartbeat 0");
}

TEST(FeedHeartbeat, WaitsForAFullSecondWithoutAFlush) {
    CaughtFeed caught;
    caught.send(2);
    EXPECT_EQ(caught.take_sent(), "1 | 2");
    caught.clock.advance_ms(999);
    caught.feed.heartbeat_when_idle();
    EXPECT_EQ(caught.take_sent(), "");
    caught.clock.advance_ms(1);
    caught.feed.heartbeat_when_idle();
    EXPECT_EQ(caught.take_sent(), "heartbeat 2");
}

TEST(FeedHeartbeat, CarriesNumberZeroBeforeAnyMessage) {
    CaughtFeed caught;
    caught.clock.advance_ms(1000);
    caught.feed.heartbeat_when_idle();
    EXPECT_EQ(caught.take_sent(), "heartbeat 0");
    EXPECT_EQ(caught.feed.next_sequence(), 1u);
}

TEST(FeedHeartbeat, FollowsTheOneBeforeItByASecond) {
    CaughtFeed caught;
    for (int ms = 0; ms < 3500; ms += 5) {
        caught.clock.advance_ms(5);
        caught.feed.heartbeat_when_idle();
    }
    EXPECT_EQ(caught.take_sent(), "heartbeat 0 | heartbeat 0 | heartbeat 0");
}

TEST(FeedHeartbeat, SendsWhatIsWaitingFirst) {
    CaughtFeed caught;
    caught.publish(2);
    caught.clock.advance_ms(1000);
    caught.feed.heartbeat_when_idle();
    EXPECT_EQ(caught.take_sent(), "1 2 | heartbeat 2");
    EXPECT_EQ(caught.feed.counters.packets, 1u);
}

TEST(FeedHeartbeat, IsPutOffByPublishingOnlyOnceThatIsFlushed) {
    CaughtFeed caught;
    caught.clock.advance_ms(500);
    caught.publish(1);
    caught.feed.flush();
    caught.clock.advance_ms(999);
    caught.publish(1);
    caught.feed.heartbeat_when_idle();
    EXPECT_EQ(caught.take_sent(), "1");
    caught.clock.advance_ms(1);
    caught.feed.heartbeat_when_idle();
    EXPECT_EQ(caught.take_sent(), "2 | heartbeat 2");
}

TEST(FeedHeartbeat, IsNotPutOffByAFlushWithoutMessages) {
    CaughtFeed caught;
    caught.clock.advance_ms(999);
    caught.feed.flush();
    caught.clock.advance_ms(1);
    caught.feed.heartbeat_when_idle();
    EXPECT_EQ(caught.take_sent(), "heartbeat 0");
}

TEST(FeedHeartbeat, IsNotSentWhenTheClockStandsBeforeTheLastFlush) {
    CaughtFeed caught;
    caught.send(1);
    caught.clock.stand_at(CaughtFeed::steady_ms - 5000, CaughtFeed::wall_ns);
    caught.feed.heartbeat_when_idle();
    EXPECT_EQ(caught.take_sent(), "1");
}

TEST(FeedHeartbeat, GivesAwayADroppedDatagramOnlyAfterAFullSecond) {
    CaughtFeed caught;
    caught.feed.faults.drop_next = 1;
    caught.clock.advance_ms(500);
    said_during([&] { caught.send(1); });
    caught.clock.advance_ms(999);
    caught.feed.heartbeat_when_idle();
    EXPECT_EQ(caught.take_sent(), "");
    caught.clock.advance_ms(1);
    caught.feed.heartbeat_when_idle();
    EXPECT_EQ(caught.take_sent(), "heartbeat 1");
}

TEST(FeedHeartbeat, GivesAwayAHeldDatagramOnlyAfterAFullSecond) {
    CaughtFeed caught;
    caught.feed.faults.reorder_next = 1;
    caught.clock.advance_ms(500);
    said_during([&] { caught.send(1); });
    caught.clock.advance_ms(999);
    caught.feed.heartbeat_when_idle();
    EXPECT_EQ(caught.take_sent(), "");
    caught.clock.advance_ms(1);
    caught.feed.heartbeat_when_idle();
    EXPECT_EQ(caught.take_sent(), "heartbeat 1");
}

TEST(FeedHeartbeat, PassesByTheInjectedFaultsAndIsNoPacketOfTheCount) {
    CaughtFeed caught;
    caught.feed.faults.drop_every = 1;
    caught.feed.faults.dup_next = 2;
    caught.feed.faults.reorder_next = 2;
    caught.clock.advance_ms(1000);
    caught.feed.heartbeat_when_idle();
    EXPECT_EQ(caught.take_sent(), "heartbeat 0");
    EXPECT_EQ(caught.feed.counters.packets, 0u);
    EXPECT_EQ(caught.feed.counters.dropped, 0u);
    EXPECT_EQ(caught.feed.faults.dup_next, 2u);
    EXPECT_EQ(caught.feed.faults.reorder_next, 2u);
}

}  // namespace
}  // namespace kavo
