// What the loop watches between two passes, and what it makes of the answer.
#include "app/main_loop.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "client/recovery_client.h"
#include "support/said.h"
#include "support/venue.h"

namespace kavo::test {
namespace {

Bytes packet(char type, ByteView payload = {}) {
    return esesm::build_packet(static_cast<esesm::PacketType>(type), payload);
}

struct LoopTest : testing::Test {
    // One pass, and the wait behind it, at which the poll finds what the test wants it to find.
    void turn() {
        waits_ms.clear();
        watched.clear();
        venue.venue.pass();
        loop.wait_for_input();
    }
    // What was watched: "7 in, 8 in out".
    static std::string text_of(const pollfd& polled) {
        return std::to_string(polled.fd) + ((polled.events & POLLIN) != 0 ? " in" : "") +
               ((polled.events & POLLOUT) != 0 ? " out" : "");
    }
    int answer(pollfd* polled, nfds_t count, int timeout_ms) {
        waits_ms.push_back(timeout_ms);
        if (count == 0) return 0;
        for (nfds_t i = 0; i < count; ++i) {
            if (polled[i].fd != no_socket) watched.push_back(text_of(polled[i]));
            const bool found = std::ranges::find(ready, polled[i].fd) != ready.end();
            polled[i].revents = static_cast<short>(found && polled[i].fd != no_socket ? POLLIN | ends : 0);
        }
        return fails ? -1 : static_cast<int>(ready.size());
    }

    static constexpr int meo_listener = 7;
    static constexpr int retransmission_listener = 8;

    Venue venue;
    MemoryPeers& receivers = venue.receivers;
    Retransmission& retransmission = venue.venue.retransmission;
    std::vector<int> ready;  // what the poll finds readable
    int ends = 0;            // and what it finds of their peers' ends
    bool fails = false;
    std::vector<std::string> watched;
    std::vector<int> waits_ms;
    MainLoop loop{venue.venue,
                  {no_socket, meo_listener, retransmission_listener},
                  [this](pollfd* polled, nfds_t count, int ms) { return answer(polled, count, ms); }};
};

TEST_F(LoopTest, WatchesTheListenersAndEveryConnectionForFiveMilliseconds) {
    venue.peers.call(100);
    venue.peers.call(101);
    receivers.call(200);
    turn();
    EXPECT_EQ(watched, (std::vector<std::string>{"7 in", "8 in", "200 in", "100 in", "101 in"}));
    EXPECT_EQ(waits_ms, std::vector{5});
}

TEST_F(LoopTest, LeavesAloneWhatThePollHasNotFound) {
    const ClientHandle alice = venue.log_in("alice");
    turn();
    venue.connection(alice).sends = packet('X');
    turn();
    EXPECT_TRUE(venue.order_entry.client(alice).open());
    ready = {100};
    turn();
    said_during([&] { turn(); });
    EXPECT_FALSE(venue.order_entry.client(alice).open());
}

TEST_F(LoopTest, LeavesCallersAloneWhomThePollHasNotFound) {
    turn();
    venue.peers.call(100);
    receivers.call(200);
    turn();
    EXPECT_EQ(venue.order_entry.clients_ever(), 0u);
    EXPECT_TRUE(retransmission.connections().empty());
    ready = {meo_listener, retransmission_listener};
    turn();
    turn();
    EXPECT_EQ(venue.order_entry.clients_ever(), 1u);
    EXPECT_EQ(retransmission.connections().size(), 1u);
}

TEST_F(LoopTest, TakesEverySocketForReadableWhenThePollFails) {
    const ClientHandle alice = venue.log_in("alice");
    receivers.call(200);
    turn();
    venue.connection(alice).sends = packet('U', buy("b1").at("1.00").bytes());
    receivers.peers[200].sends = packet('l', receiver_login().payload());
    venue.peers.call(101);
    fails = true;
    turn();
    EXPECT_EQ(waits_ms, (std::vector{5, 5}));  // the second one is the sleep, without any socket
    turn();
    EXPECT_EQ(venue.published(), "add 1 #1000 B 100@1");
    EXPECT_TRUE(retransmission.connections().front().logged_in);
    EXPECT_EQ(venue.order_entry.clients_ever(), 2u);
}

// Whoever has closed right behind its words must be found gone with them, and looking for that costs a call.
TEST_F(LoopTest, KnowsFromThePollWhetherAClientMayHaveEnded) {
    const ClientHandle alice = venue.log_in("alice");
    const auto end_possible = [&] { return venue.order_entry.client(alice).end_possible; };
    EXPECT_TRUE(end_possible());
    turn();
    EXPECT_FALSE(end_possible());
    ready = {100};
    ends = POLLRDHUP;
    turn();
    EXPECT_TRUE(end_possible());
    ready = {};
    turn();
    EXPECT_FALSE(end_possible());
    fails = true;
    turn();
    EXPECT_TRUE(end_possible());
}

// The poll is older than the one who comes.
TEST_F(LoopTest, TakesAnEndForPossibleWhenSomebodyComes) {
    const ClientHandle alice = venue.log_in("alice");
    venue.venue.pass();
    loop.wait_for_input();
    EXPECT_FALSE(venue.order_entry.client(alice).end_possible);
    venue.peers.call(101);
    venue.order_entry.clients_waiting = true;
    venue.order_entry.accept_clients();
    EXPECT_TRUE(venue.order_entry.client(alice).end_possible);
}

TEST_F(LoopTest, DoesNotWaitWhileATurnHasEndedTooEarly) {
    const ClientHandle alice = venue.log_in("alice");
    turn();
    venue.peers.when_sent = [this](int) { venue.clock.advance_ms(30); };  // longer than a turn
    for (const char* id : {"b1", "b2"}) {
        const Bytes order = packet('U', buy(id).shares(0).bytes());
        venue.connection(alice).sends.insert(venue.connection(alice).sends.end(), order.begin(), order.end());
    }
    ready = {100};
    turn();
    ready = {};
    turn();
    EXPECT_EQ(waits_ms, std::vector{0});
    turn();
    turn();
    EXPECT_EQ(waits_ms, std::vector{5});
    EXPECT_EQ(venue.order_entry.client(alice).stream->next_sequence(), 5u);
}

TEST_F(LoopTest, WatchesForRoomWhereSomethingIsOwed) {
    const ClientHandle alice = venue.log_in("alice");
    venue.connection(alice).room = 10;
    venue.request(alice, buy("b1").shares(0).bytes());
    Bytes words = packet('l', receiver_login().payload());
    const Bytes request = packet('U', as_bytes("RO"));
    words.insert(words.end(), request.begin(), request.end());
    receivers.call(200).sends = words;
    receivers.peers[200].room = 20;
    said_during([&] { turn(); });
    EXPECT_EQ(watched, (std::vector<std::string>{"7 in", "8 in", "100 in out", "200 in out"}));
    venue.connection(alice).room = MemoryPeer::unlimited;
    receivers.peers[200].room = MemoryPeer::unlimited;
    turn();
    EXPECT_EQ(watched, (std::vector<std::string>{"7 in", "8 in", "100 in"}));
}

TEST_F(LoopTest, WatchesNoListenerWhileDescriptorsAreUsedUp) {
    venue.peers.call(100);
    venue.peers.exhausted = true;
    turn();
    EXPECT_EQ(watched, std::vector<std::string>{"8 in"});
    venue.peers.exhausted = false;
    turn();  // which tries it all the same
    EXPECT_EQ(venue.order_entry.clients_ever(), 1u);
    EXPECT_EQ(watched, (std::vector<std::string>{"7 in", "8 in", "100 in"}));
}

TEST_F(LoopTest, TriesReceiversAgainForWhomNoDescriptorWasLeft) {
    receivers.call(200);
    receivers.exhausted = true;
    turn();
    EXPECT_EQ(watched, std::vector<std::string>{"7 in"});
    receivers.exhausted = false;
    turn();
    EXPECT_EQ(retransmission.connections().size(), 1u);
    EXPECT_EQ(watched, (std::vector<std::string>{"7 in", "8 in", "200 in"}));
}

TEST_F(LoopTest, TellsThePassesTimeOnceForAllThatIsPeriodic) {
    venue.engine.market.interval_ms = 40;
    const std::uint64_t before = venue.feed.next_sequence();
    turn();
    EXPECT_EQ(venue.feed.next_sequence(), before);
    venue.clock.advance_ms(40);
    turn();
    EXPECT_GT(venue.feed.next_sequence(), before);
}

}  // namespace
}  // namespace kavo::test
