// Receivers that take their replies slowly, or talk without an end, and the others who are there at the same time.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "client/recovery_client.h"
#include "feed/retransmission.h"
#include "memory/memory_peers.h"
#include "support/bytes_of_feed.h"
#include "support/packets.h"
#include "support/scene.h"

namespace kavo::test {
namespace {

Bytes login_and(const Bytes& request) {
    return together({packet('l', receiver_login().payload()), request});
}

// A feed that has published a hundred messages of 88 bytes, so that each is a packet of 100.
struct SlowReceivers : testing::Test {
    SlowReceivers() { caught.publish(100, 88); }

    MemoryPeer& call(int fd, const Bytes& words) {
        MemoryPeer& peer = peers.call(fd);
        peer.sends = words;
        return peer;
    }
    void pass_after(std::uint64_t ms) {
        caught.clock.advance_ms(ms);
        service.connections_waiting = true;
        for (RConn& connection : service.connections()) connection.readable = true;
        service.serve();
    }
    static constexpr std::size_t reply_size = 14 + 100 * 100 + 27;  // login response, messages, goodbye

    CaughtFeed caught;
    MemoryPeers peers;
    Retransmission service{caught.feed, caught.clock, peers.transport(), CaughtFeed::session, caught.commentary};
};

TEST_F(SlowReceivers, GetTheirReplyPieceByPiece) {
    MemoryPeer& slow = call(100, login_and(retransmission(1, 100)));
    slow.room = 0;
    for (std::size_t i = 0; i < reply_size / 100; ++i) {
        slow.room += 100;
        pass_after(1'000);
        ASSERT_EQ(slow.received.size(), (i + 1) * 100);
        ASSERT_FALSE(slow.finished);
    }
    slow.room += 100;
    pass_after(1'000);
    EXPECT_EQ(slow.received.size(), reply_size);
    EXPECT_EQ(slow.closed, 1);
}

TEST_F(SlowReceivers, GetWhatTheHistoryForgetsMeanwhile) {
    MemoryPeer& slow = call(100, login_and(retransmission(1, 100)));
    slow.room = 114;  // the login response and the first message
    pass_after(0);
    caught.feed.history.trim(1);
    slow.room = MemoryPeer::unlimited;
    pass_after(1);
    EXPECT_EQ(slow.received.size(), reply_size);
}

TEST_F(SlowReceivers, CostTheOthersNothing) {
    MemoryPeer& slow = call(100, login_and(retransmission(1, 100)));
    slow.room = 50;
    MemoryPeer& quick = call(101, login_and(retransmission(1, 100)));
    const std::uint64_t before_ms = caught.clock.steady_ms();
    pass_after(0);
    EXPECT_EQ(caught.clock.steady_ms(), before_ms);  // nobody has waited
    EXPECT_EQ(quick.received.size(), reply_size);
    EXPECT_EQ(quick.closed, 1);
    EXPECT_EQ(slow.received.size(), 50u);
}

TEST_F(SlowReceivers, ThatTakeNothingForTwoSecondsAreClosed) {
    MemoryPeer& stuck = call(100, login_and(retransmission(1, 100)));
    stuck.room = 500;
    pass_after(0);
    pass_after(1'999);
    EXPECT_EQ(stuck.closed, 0);
    pass_after(1);
    EXPECT_EQ(stuck.closed, 1);
    EXPECT_EQ(stuck.received.size(), 500u);
}

TEST_F(SlowReceivers, ThatDoNotEvenTakeALoginResponseAreClosed) {
    Login wrong = receiver_login();
    wrong.requested_sequence = 1;  // it may try again
    MemoryPeer& stuck = call(100, packet('l', wrong.payload()));
    stuck.room = 10;
    pass_after(0);
    EXPECT_EQ(service.connections().size(), 1u);
    pass_after(2'000);
    EXPECT_EQ(stuck.closed, 1);
    EXPECT_TRUE(service.connections().empty());
}

TEST_F(SlowReceivers, AreHeardAgainOnceTheyHaveTakenWhatIsOwed) {
    MemoryPeer& slow = call(100, login_and(retransmission(1, 100)));
    slow.room = 10;
    pass_after(0);
    EXPECT_EQ(caught.feed.counters.retransmissions, 0u);  // the login response comes before the request
    slow.room = MemoryPeer::unlimited;
    pass_after(1);
    EXPECT_EQ(caught.feed.counters.retransmissions, 1u);
    EXPECT_EQ(slow.received.size(), reply_size);
}

TEST_F(SlowReceivers, MayGoOnTalkingBehindTheirRequest) {
    MemoryPeer& talker =
        call(100, together({login_and(retransmission(1, 100)), packet('1'), packet('X'), packet('?')}));
    talker.room = 1'000;
    pass_after(0);
    for (const char type : {'1', 'X', '?', 'l'}) {
        talker.sends = packet(type);
        talker.room += 100;
        pass_after(10);
        EXPECT_TRUE(talker.sends.empty());
        EXPECT_EQ(talker.closed, 0);
    }
    talker.room = MemoryPeer::unlimited;
    pass_after(10);
    EXPECT_EQ(talker.received.size(), reply_size);
    EXPECT_TRUE(talker.finished);
}

// Each of them pours in heartbeats, and every heartbeat takes its time; one honest receiver came last.
TEST_F(SlowReceivers, WhoPourInHeartbeatsLeaveTheOthersTheirTurns) {
    constexpr int talkers = 120;
    Bytes heartbeats;
    for (int i = 0; i < 1'000; ++i) heartbeats.insert(heartbeats.end(), {1, 0, '1'});
    const Transport still = peers.transport();
    Transport timed = still;
    timed.read = [&](int fd, Bytes& buffer, bool& arrived, bool end_possible) {
        caught.clock.advance_ms(1);
        if (fd != 999) peers.peers[fd].sends = heartbeats;
        return still.read(fd, buffer, arrived, end_possible);
    };
    Retransmission crowded(caught.feed, caught.clock, timed, CaughtFeed::session, caught.commentary);
    for (int i = 0; i < talkers; ++i) call(100 + i, {});
    MemoryPeer& honest = call(999, login_and(retransmission(1, 100)));
    const std::uint64_t start_ms = caught.clock.steady_ms();
    int passes = 0;
    for (; passes < 10 && honest.closed == 0; ++passes) crowded.serve();
    // 121 reads of a millisecond, 25 in a pass: the honest login in the fifth one, its request in the next round.
    EXPECT_EQ(passes, 6);
    EXPECT_LT(caught.clock.steady_ms() - start_ms, 200u);
    EXPECT_EQ(honest.received.size(), reply_size);
}

TEST_F(SlowReceivers, AreNotTooLateWithALoginThatHasNotBeenRead) {
    MemoryPeer& late = call(100, {});
    pass_after(0);
    caught.clock.advance_ms(30'001);
    late.sends = packet('l', receiver_login().payload());
    service.serve();  // no poll has seen it
    ASSERT_EQ(service.connections().size(), 1u);
    EXPECT_TRUE(service.connections().front().logged_in);
}

}  // namespace
}  // namespace kavo::test
