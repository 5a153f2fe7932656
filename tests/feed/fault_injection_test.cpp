// Faults act on whole datagrams. In these scenes every datagram carries one message unless something else is said, so
// datagram n carries message n.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "client/feed_messages.h"
#include "support/bytes_hex.h"
#include "support/bytes_of_feed.h"

namespace kavo {
namespace {

using test::from_hex;
using test::to_hex;

struct FaultScene : testing::Test {
    void SetUp() override { testing::internal::CaptureStderr(); }
    void TearDown() override {
        if (!taken_) testing::internal::GetCapturedStderr();
    }
    // What was said on standard error in the whole test; asked for at its end.
    std::string said() {
        taken_ = true;
        return testing::internal::GetCapturedStderr();
    }

    test::CaughtFeed caught;
    DomFeed& feed = caught.feed;
    FeedFaults& faults = caught.feed.faults;

private:
    bool taken_ = false;
};

using NoFaults = FaultScene;
using DroppedDatagram = FaultScene;
using DuplicatedDatagram = FaultScene;
using ReorderedDatagram = FaultScene;
using AllFaults = FaultScene;

TEST_F(NoFaults, AreInjectedUnlessTheyAreAskedFor) {
    caught.send(12);
    EXPECT_EQ(caught.take_sent(), "1 | 2 | 3 | 4 | 5 | 6 | 7 | 8 | 9 | 10 | 11 | 12");
    EXPECT_EQ(feed.counters.packets, 12u);
    EXPECT_EQ(feed.counters.dropped, 0u);
    EXPECT_EQ(feed.counters.duplicated, 0u);
    EXPECT_EQ(feed.counters.reordered, 0u);
    EXPECT_EQ(said(), "");
}

TEST_F(DroppedDatagram, IsEveryTenthOne) {
    faults.drop_every = 10;
    caught.send(31);
    EXPECT_EQ(caught.take_sent(),
              "1 | 2 | 3 | 4 | 5 | 6 | 7 | 8 | 9 | 11 | 12 | 13 | 14 | 15 | 16 | 17 | 18 | 19 | "
              "21 | 22 | 23 | 24 | 25 | 26 | 27 | 28 | 29 | 31");
    EXPECT_EQ(feed.counters.dropped, 3u);
    EXPECT_EQ(feed.counters.packets, 31u);
    EXPECT_EQ(said(),
              "kavo_me fault: dropped seq 10 (packet 10, 1 message(s))\n"
              "kavo_me fault: dropped seq 20 (packet 20, 1 message(s))\n"
              "kavo_me fault: dropped seq 30 (packet 30, 1 message(s))\n");
}

TEST_F(DroppedDatagram, IsNamedByItsFirstMessageAndTheirNumber) {
    faults.drop_every = 2;
    caught.publish(4);
    feed.flush();
    caught.publish(5);
    feed.flush();
    caught.publish(1);
    feed.flush();
    EXPECT_EQ(caught.take_sent(), "1 2 3 4 | 10");
    EXPECT_EQ(said(), "kavo_me fault: dropped seq 5 (packet 2, 5 message(s))\n");
}

TEST_F(DroppedDatagram, IsAnyOfABurst) {
    faults.drop_burst_start = 5;
    faults.drop_burst_count = 3;
    caught.send(9);
    EXPECT_EQ(caught.take_sent(), "1 | 2 | 3 | 4 | 8 | 9");
    EXPECT_EQ(said(),
              "kavo_me fault: dropped seq 5 (packet 5, 1 message(s))\n"
              "kavo_me fault: dropped seq 6 (packet 6, 1 message(s))\n"
              "kavo_me fault: dropped seq 7 (packet 7, 1 message(s))\n");
}

TEST_F(DroppedDatagram, IsTheOnlyOneOfABurstOfOne) {
    faults.drop_burst_start = 5;
    faults.drop_burst_count = 1;
    caught.send(7);
    EXPECT_EQ(caught.take_sent(), "1 | 2 | 3 | 4 | 6 | 7");
}

TEST_F(DroppedDatagram, IsNoneOfABurstWithoutLength) {
    faults.drop_burst_start = 1;
    caught.send(3);
    EXPECT_EQ(caught.take_sent(), "1 | 2 | 3");
}

TEST_F(DroppedDatagram, BelongsToABurstThatBeganBeforeTheFirst) {
    faults.drop_burst_start = 0;
    faults.drop_burst_count = 3;
    caught.send(4);
    EXPECT_EQ(caught.take_sent(), "3 | 4");
}

TEST_F(DroppedDatagram, IsNoneOfABurstThatLiesBeyondAllNumbers) {
    faults.drop_burst_start = 0xFFFFFFFFFFFFFFFF;
    faults.drop_burst_count = 0xFFFFFFFF;
    caught.send(3);
    EXPECT_EQ(caught.take_sent(), "1 | 2 | 3");
}

TEST_F(DroppedDatagram, IsEachOfTheNextOnesAskedFor) {
    caught.send(2);
    faults.drop_next = 2;
    caught.send(4);
    EXPECT_EQ(caught.take_sent(), "1 | 2 | 5 | 6");
    EXPECT_EQ(faults.drop_next, 0u);
}

TEST_F(DroppedDatagram, UsesUpOneOfTheNextWhenItWasDueAnyway) {
    faults.drop_every = 2;
    caught.send(1);
    faults.drop_next = 3;
    caught.send(9);
    EXPECT_EQ(caught.take_sent(), "1 | 5 | 7 | 9");
    EXPECT_EQ(faults.drop_next, 0u);
    EXPECT_EQ(feed.counters.dropped, 6u);
}

TEST_F(DroppedDatagram, OfABurstUsesUpOneOfTheNextToo) {
    faults.drop_burst_start = 1;
    faults.drop_burst_count = 2;
    faults.drop_next = 3;
    caught.send(5);
    EXPECT_EQ(caught.take_sent(), "4 | 5");
    EXPECT_EQ(faults.drop_next, 0u);
}

TEST_F(DroppedDatagram, IsDroppedOnceThoughEveryRuleWantsIt) {
    faults.drop_every = 1;
    faults.drop_burst_start = 1;
    faults.drop_burst_count = 1;
    faults.drop_next = 1;
    caught.send(1);
    EXPECT_EQ(feed.counters.dropped, 1u);
    EXPECT_EQ(faults.drop_next, 0u);
    EXPECT_EQ(said(), "kavo_me fault: dropped seq 1 (packet 1, 1 message(s))\n");
}

TEST_F(DroppedDatagram, UsesUpNoOtherFault) {
    faults.drop_next = 1;
    faults.dup_next = 1;
    faults.reorder_next = 1;
    caught.send(1);
    EXPECT_EQ(faults.dup_next, 1u);
    EXPECT_EQ(faults.reorder_next, 1u);
    EXPECT_EQ(feed.counters.duplicated, 0u);
    EXPECT_EQ(feed.counters.reordered, 0u);
}

TEST_F(DroppedDatagram, LeavesAHeldOneWaiting) {
    faults.reorder_next = 1;
    caught.send(1);
    faults.drop_next = 2;
    caught.send(2);
    EXPECT_EQ(caught.take_sent(), "");
    caught.send(1);
    EXPECT_EQ(caught.take_sent(), "4 | 1");
}

TEST_F(DroppedDatagram, KeepsItsNumbersAndItsPlaceInTheHistory) {
    faults.drop_next = 1;
    caught.publish(2);
    feed.flush();
    caught.send(1);
    EXPECT_EQ(caught.take_sent(), "3");
    EXPECT_EQ(feed.history.oldest(), 1u);
    EXPECT_EQ(to_hex(feed.message(1)), to_hex(Bytes(20, 1)));
    EXPECT_EQ(to_hex(feed.message(2)), to_hex(Bytes(20, 2)));
    EXPECT_EQ(feed.counters.messages, 3u);
}

TEST_F(DroppedDatagram, MayBeOneThatWasFull) {
    faults.drop_next = 1;
    caught.publish(11, 128);  // the eleventh does not fit any more
    feed.flush();
    EXPECT_EQ(caught.take_sent(), "11");
    EXPECT_EQ(said(), "kavo_me fault: dropped seq 1 (packet 1, 10 message(s))\n");
}

TEST_F(DuplicatedDatagram, IsSentTwiceInARow) {
    faults.dup_every = 3;
    caught.send(7);
    EXPECT_EQ(caught.take_sent(), "1 | 2 | 3 | 3 | 4 | 5 | 6 | 6 | 7");
    EXPECT_EQ(feed.counters.duplicated, 2u);
    EXPECT_EQ(feed.counters.packets, 7u);
    EXPECT_EQ(said(),
              "kavo_me fault: duplicated seq 3\n"
              "kavo_me fault: duplicated seq 6\n");
}

TEST_F(DuplicatedDatagram, IsTheSameBytesAgain) {
    faults.dup_next = 1;
    caught.publish(3);
    feed.flush();
    ASSERT_EQ(caught.sent.size(), 2u);
    EXPECT_EQ(to_hex(caught.sent[0]), to_hex(caught.sent[1]));
    EXPECT_EQ(caught.take_sent(), "1 2 3 | 1 2 3");
    EXPECT_EQ(said(), "kavo_me fault: duplicated seq 1\n");
}

TEST_F(DuplicatedDatagram, IsEachOfTheNextOnesThatAreSent) {
    faults.dup_next = 2;
    faults.drop_next = 1;
    caught.send(4);
    EXPECT_EQ(caught.take_sent(), "2 | 2 | 3 | 3 | 4");
    EXPECT_EQ(faults.dup_next, 0u);
}

TEST_F(DuplicatedDatagram, UsesUpOneOfTheNextWhenItWasDueAnyway) {
    faults.dup_every = 2;
    faults.dup_next = 2;
    caught.send(4);
    EXPECT_EQ(caught.take_sent(), "1 | 1 | 2 | 2 | 3 | 4 | 4");
    EXPECT_EQ(faults.dup_next, 0u);
}

TEST_F(DuplicatedDatagram, IsSentTwiceBeforeAHeldOneIsLetGo) {
    faults.reorder_next = 1;
    caught.send(1);
    faults.dup_next = 1;
    caught.send(1);
    EXPECT_EQ(caught.take_sent(), "2 | 2 | 1");
    EXPECT_EQ(said(),
              "kavo_me fault: reordered seq 1 (held behind the next packet)\n"
              "kavo_me fault: duplicated seq 2\n");
}

TEST_F(ReorderedDatagram, IsSentBehindTheNextOne) {
    faults.reorder_every = 4;
    caught.send(9);
    EXPECT_EQ(caught.take_sent(), "1 | 2 | 3 | 5 | 4 | 6 | 7 | 9 | 8");
    EXPECT_EQ(feed.counters.reordered, 2u);
    EXPECT_EQ(feed.counters.packets, 9u);
    EXPECT_EQ(said(),
              "kavo_me fault: reordered seq 4 (held behind the next packet)\n"
              "kavo_me fault: reordered seq 8 (held behind the next packet)\n");
}

TEST_F(ReorderedDatagram, IsNamedByItsFirstMessage) {
    faults.reorder_every = 2;
    caught.publish(4);
    feed.flush();
    caught.publish(5);
    feed.flush();
    caught.publish(1);
    feed.flush();
    EXPECT_EQ(caught.take_sent(), "1 2 3 4 | 10 | 5 6 7 8 9");
    EXPECT_EQ(said(), "kavo_me fault: reordered seq 5 (held behind the next packet)\n");
}

TEST_F(ReorderedDatagram, IsSentUnchangedThoughTheNextOneWasBuiltInItsPlace) {
    faults.reorder_next = 1;
    caught.publish(2, 30);
    feed.flush();
    caught.publish(1, 1000);
    feed.flush();
    ASSERT_EQ(caught.sent.size(), 2u);
    ByteView held = caught.sent[1];
    EXPECT_EQ(held.size(), 84u);
    EXPECT_EQ(to_hex(client::read_feed_packet(held)->message), to_hex(Bytes(30, 1)));
    EXPECT_EQ(to_hex(client::read_feed_packet(held)->message), to_hex(Bytes(30, 2)));
}

TEST_F(ReorderedDatagram, IsLostWhenTheNextOneIsHeldToo) {
    faults.reorder_next = 2;
    caught.send(3);
    EXPECT_EQ(caught.take_sent(), "3 | 2");
    EXPECT_EQ(feed.counters.reordered, 2u);
    EXPECT_EQ(to_hex(feed.message(1)), to_hex(Bytes(20, 1)));
    caught.send(1);
    EXPECT_EQ(caught.take_sent(), "4");
}

TEST_F(ReorderedDatagram, NeverComesWhenEveryOneIsHeld) {
    faults.reorder_every = 1;
    caught.send(4);
    EXPECT_EQ(caught.take_sent(), "");
    faults.reorder_every = 0;
    caught.send(1);
    EXPECT_EQ(caught.take_sent(), "5 | 4");
}

TEST_F(ReorderedDatagram, IsSentOnceThoughADuplicateWasDue) {
    faults.dup_every = 2;
    faults.reorder_every = 2;
    caught.send(3);
    EXPECT_EQ(caught.take_sent(), "1 | 3 | 2");
    EXPECT_EQ(feed.counters.duplicated, 0u);
    EXPECT_EQ(feed.counters.reordered, 1u);
}

TEST_F(ReorderedDatagram, UsesUpAPendingDuplicateAllTheSame) {
    faults.dup_next = 1;
    faults.reorder_next = 1;
    caught.send(3);
    EXPECT_EQ(caught.take_sent(), "2 | 1 | 3");
    EXPECT_EQ(faults.dup_next, 0u);
    EXPECT_EQ(feed.counters.duplicated, 0u);
    EXPECT_EQ(said(), "kavo_me fault: reordered seq 1 (held behind the next packet)\n");
}

TEST_F(ReorderedDatagram, UsesUpOneOfTheNextWhenItWasDueAnyway) {
    faults.reorder_every = 3;
    caught.send(2);
    faults.reorder_next = 1;
    caught.send(3);
    EXPECT_EQ(caught.take_sent(), "1 | 2 | 4 | 3 | 5");
    EXPECT_EQ(faults.reorder_next, 0u);
}

TEST_F(ReorderedDatagram, IsEachOfTheNextOnesThatAreNotDropped) {
    faults.reorder_next = 1;
    faults.drop_next = 1;
    caught.send(4);
    EXPECT_EQ(caught.take_sent(), "3 | 2 | 4");
    EXPECT_EQ(faults.reorder_next, 0u);
}

TEST_F(ReorderedDatagram, IsNotLetGoByAHeartbeat) {
    faults.reorder_next = 1;
    caught.send(1);
    caught.clock.advance_ms(1000);
    feed.heartbeat_when_idle();
    EXPECT_EQ(caught.take_sent(), "heartbeat 1");
    caught.send(1);
    EXPECT_EQ(caught.take_sent(), "2 | 1");
}

TEST_F(ReorderedDatagram, IsLetGoByTheDatagramThatAHeartbeatPushesOut) {
    faults.reorder_next = 1;
    caught.send(1);
    caught.publish(1);
    caught.clock.advance_ms(1000);
    feed.heartbeat_when_idle();
    EXPECT_EQ(caught.take_sent(), "2 | 1 | heartbeat 2");
}

TEST_F(AllFaults, AtOnceStillLeaveEveryMessageInTheHistory) {
    faults = {3, 10, 4, 2, 5, 2, 2, 2};
    caught.send(50);
    EXPECT_EQ(feed.next_sequence(), 51u);
    EXPECT_EQ(feed.history.oldest(), 1u);
    for (std::uint64_t sequence = 1; sequence <= 50; ++sequence) {
        ASSERT_EQ(to_hex(feed.message(sequence)), to_hex(Bytes(20, static_cast<std::uint8_t>(sequence))));
    }
    EXPECT_EQ(feed.counters.messages, 50u);
    EXPECT_EQ(feed.counters.packets, 50u);
}

}  // namespace
}  // namespace kavo
