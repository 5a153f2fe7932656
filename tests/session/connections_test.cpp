#include <gtest/gtest.h>

#include <string>

#include "support/packets.h"
#include "support/said.h"
#include "support/venue.h"

namespace kavo::test {
namespace {

Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

// A venue that reads its clients itself, as in a pass of the main loop.
class ReadingVenue : public testing::Test {
protected:
    void write(ClientHandle client, ByteView bytes) {
        Bytes& sends = venue_.connection(client).sends;
        sends.insert(sends.end(), bytes.begin(), bytes.end());
    }
    // The main loop has polled, and found this client readable.
    void serve(ClientHandle client) {
        venue_.order_entry.client(client).readable = true;
        venue_.order_entry.serve_clients();
    }

    Venue venue_;
};

TEST(AcceptedClients, AreAllThatWaitAndEachIsSpokenOf) {
    VenueSettings settings;
    settings.quiet = false;
    Venue venue(settings);
    venue.peers.call(100);
    venue.peers.call(107);
    EXPECT_EQ(said_during([&] { venue.order_entry.accept_clients(); }),
              "[kavo_me] client connected (fd 100)\n[kavo_me] client connected (fd 107)\n");
    ASSERT_EQ(venue.order_entry.clients_ever(), 2u);
    EXPECT_EQ(venue.order_entry.client(1).fd, 107);
    EXPECT_EQ(said_during([&] { venue.order_entry.accept_clients(); }), "");
    EXPECT_EQ(venue.order_entry.clients_ever(), 2u);
}

TEST(AcceptedClients, AreNotSpokenOfWhenQuiet) {
    Venue venue;
    venue.peers.call(100);
    EXPECT_EQ(said_during([&] { venue.order_entry.accept_clients(); }), "");
    EXPECT_EQ(venue.order_entry.clients_ever(), 1u);
}

TEST(AcceptedClients, AreFetchedOnlyWhenThePollHasSeenOne) {
    Venue venue;
    venue.peers.call(100);
    venue.order_entry.clients_waiting = false;
    venue.order_entry.accept_clients();
    EXPECT_EQ(venue.order_entry.clients_ever(), 0u);
}

TEST(AcceptedClients, WaitWhenDescriptorsHaveRunOut) {
    Venue venue;
    venue.peers.call(100);
    venue.peers.exhausted = true;
    venue.order_entry.accept_clients();
    EXPECT_EQ(venue.order_entry.clients_ever(), 0u);
    EXPECT_TRUE(venue.order_entry.accept_exhausted());
    venue.peers.exhausted = false;
    venue.order_entry.accept_clients();
    EXPECT_EQ(venue.order_entry.clients_ever(), 1u);
    EXPECT_FALSE(venue.order_entry.accept_exhausted());
}

TEST_F(ReadingVenue, HandlesEveryPacketOfOneReadInItsOrder) {
    const ClientHandle alice = venue_.connect();
    write(alice, packet('l', login("alice").payload()) + packet('U', buy("b1").at("1.00").bytes()) +
                     packet('U', cancel("b1").bytes()));
    serve(0);
    EXPECT_EQ(venue_.published(), "add 1 #1000 B 100@1 | delete 1 #1000");
}

TEST_F(ReadingVenue, HandlesAPacketThatComesInPiecesWithItsLastByte) {
    const ClientHandle alice = venue_.connect();
    write(alice, packet('l', login("alice").payload()));
    serve(0);
    const Bytes order = packet('U', buy("b1").at("1.00").bytes());
    for (std::size_t i = 0; i + 1 < order.size(); ++i) {
        write(alice, ByteView(order).subspan(i, 1));
        serve(0);
    }
    EXPECT_EQ(venue_.published(), "");
    write(alice, ByteView(order).last(1));
    serve(0);
    EXPECT_EQ(venue_.published(), "add 1 #1000 B 100@1");
}

TEST_F(ReadingVenue, ReadsAClientOnlyWhenThereIsSomethingToRead) {
    const ClientHandle alice = venue_.connect();
    write(alice, packet('l', login("alice").payload()));
    venue_.order_entry.serve_clients();  // a new connection is always worth a read
    EXPECT_TRUE(venue_.order_entry.client(0).logged_in);
    write(alice, packet('X'));
    venue_.order_entry.serve_clients();
    EXPECT_TRUE(venue_.order_entry.client(0).open());
    serve(0);
    EXPECT_FALSE(venue_.order_entry.client(0).open());
}

TEST_F(ReadingVenue, SaysWhenAClientHasGoneAway) {
    const ClientHandle alice = venue_.connect();
    write(alice, packet('l', login("alice").payload()));
    serve(0);
    venue_.connection(alice).ended = true;
    EXPECT_EQ(said_during([&] { serve(0); }),
              "bench: client alice disconnected\n"
              "bench: ACOD off (Do Not Cancel All Open Orders): 0 open order(s) of alice stay on the book\n");
    EXPECT_FALSE(venue_.order_entry.client(0).open());
    EXPECT_EQ(said_during([&] { serve(0); }), "");
}

TEST_F(ReadingVenue, SaysWhenAClientWithoutANameHasGoneAway) {
    venue_.connection(venue_.connect()).ended = true;
    EXPECT_EQ(said_during([&] { serve(0); }),
              "bench: client  disconnected\n"
              "bench: ACOD off (Do Not Cancel All Open Orders): 0 open order(s) of  stay on the book\n");
}

TEST_F(ReadingVenue, DoesNotLookAtWhatAClientSentRightBeforeItWentAway) {
    const ClientHandle alice = venue_.connect();
    write(alice, packet('l', login("alice").payload()));
    serve(0);
    write(alice, packet('U', buy("b1").at("1.00").bytes()));
    venue_.connection(alice).ended = true;
    serve(0);
    EXPECT_EQ(venue_.published(), "");
}

TEST_F(ReadingVenue, TakesAFailedReadForTheEndOfTheConnection) {
    const ClientHandle stranger = venue_.connect();
    venue_.connection(stranger).broken = true;
    EXPECT_EQ(said_during([&] { serve(stranger); }),
              "bench: client  disconnected\n"
              "bench: ACOD off (Do Not Cancel All Open Orders): 0 open order(s) of  stay on the book\n");
    EXPECT_TRUE(venue_.connection(stranger).closed);
}

TEST(Connection, KeepsItsRecordWhenItIsClosed) {
    Venue venue;
    const ClientHandle alice = venue.log_in("alice");
    venue.send(alice, 'X');
    EXPECT_TRUE(venue.connection(alice).closed);
    EXPECT_FALSE(venue.order_entry.client(alice).open());
    EXPECT_TRUE(venue.order_entry.client(alice).logged_in);
    EXPECT_EQ(venue.order_entry.client(alice).username, "alice");
    const ClientHandle again = venue.log_in("alice");
    EXPECT_EQ(again, alice + 1);
    EXPECT_EQ(venue.order_entry.clients_ever(), 2u);
}

TEST(Connection, KeepsNoBytesOnceItIsClosed) {
    Venue venue;
    const ClientHandle alice = venue.log_in("alice");
    const Bytes half(30'000, 0xFF);  // of a packet of 65,537 bytes
    venue.order_entry.receive(alice, half);
    EXPECT_EQ(venue.order_entry.client(alice).received.incoming().size(), half.size());
    said_during([&] { venue.order_entry.lose_client(alice); });
    venue.order_entry.serve_clients();
    EXPECT_EQ(venue.order_entry.client(alice).received.incoming().capacity(), 0u);
    EXPECT_TRUE(venue.order_entry.open_clients().empty());  // nor is it looked at any more
}

TEST(Connection, IsSentNothingOnceItIsClosed) {
    Venue venue;
    const ClientHandle alice = venue.log_in("alice");
    venue.request(alice, buy("b1").at("1.00").bytes());
    venue.send(alice, 'X');
    venue.heard(alice);
    venue.enter(sell("s1").at("1.00"), alice + 1);
    venue.pass();
    venue.clock.advance_ms(60'000);
    venue.pass();
    EXPECT_EQ(venue.heard(alice), "");
}

TEST(Connection, OfAnybodyLoggedInKeepsTheSessionUp) {
    Venue venue;
    EXPECT_FALSE(venue.order_entry.anyone_logged_in());
    const ClientHandle alice = venue.connect();
    EXPECT_FALSE(venue.order_entry.anyone_logged_in());
    venue.send(alice, 'l', login("alice").payload());
    EXPECT_TRUE(venue.order_entry.anyone_logged_in());
    const ClientHandle bob = venue.log_in("bob");
    venue.send(alice, 'X');
    EXPECT_TRUE(venue.order_entry.anyone_logged_in());
    venue.send(bob, 'X');
    EXPECT_FALSE(venue.order_entry.anyone_logged_in());
}

TEST(Logout, EndsTheConnectionWithoutAGoodbye) {
    Venue venue;
    const ClientHandle alice = venue.log_in("alice");
    venue.request(alice, buy("b1").at("1.00").bytes());
    venue.heard(alice);
    EXPECT_EQ(said_during([&] { venue.send(alice, 'X', as_bytes("whatever")); }),
              "bench: client alice logged out\n"
              "bench: ACOD off (Do Not Cancel All Open Orders): 1 open order(s) of alice stay on the book\n");
    EXPECT_EQ(venue.heard(alice), "");
    EXPECT_TRUE(venue.connection(alice).closed);
    EXPECT_EQ(venue.bids(), "100@1");
}

TEST(Logout, WithAcodCancelsTheOrders) {
    VenueSettings settings;
    settings.engine.acod = true;
    Venue venue(settings);
    const ClientHandle alice = venue.log_in("alice");
    venue.request(alice, buy("b1").at("1.00").bytes());
    EXPECT_EQ(said_during([&] { venue.send(alice, 'X'); }),
              "bench: client alice logged out\n"
              "bench: ACOD (Cancel All Open Orders): cancelled 1 open order(s) of alice on disconnect\n");
    EXPECT_EQ(venue.bids(), "");
}

TEST(Logout, NeedsNoLogin) {
    Venue venue;
    const ClientHandle stranger = venue.connect();
    EXPECT_EQ(said_during([&] { venue.send(stranger, 'X'); }),
              "bench: client  logged out\n"
              "bench: ACOD off (Do Not Cancel All Open Orders): 0 open order(s) of  stay on the book\n");
    EXPECT_EQ(venue.heard(stranger), "");
    EXPECT_TRUE(venue.connection(stranger).closed);
}

TEST(Logout, LeavesTheRestOfWhatArrivedUnread) {
    Venue venue;
    const ClientHandle alice = venue.log_in("alice");
    venue.order_entry.receive(alice, packet('X') + packet('U', buy("b1").at("1.00").bytes()));
    EXPECT_EQ(venue.published(), "");
}

TEST(ClientPacket, OfAHeartbeatIsIgnoredBeforeAndAfterTheLogin) {
    Venue venue;
    const ClientHandle alice = venue.connect();
    EXPECT_EQ(said_during([&] {
                  venue.send(alice, '1');
                  venue.send(alice, 'T', as_bytes("anything"));
              }),
              "");
    venue.send(alice, 'l', login("alice").payload());
    venue.heard(alice);
    EXPECT_EQ(said_during([&] {
                  venue.send(alice, '1', as_bytes("anything"));
                  venue.send(alice, 'T');
              }),
              "");
    EXPECT_EQ(venue.heard(alice), "");
    EXPECT_FALSE(venue.connection(alice).closed);
}

TEST(ClientPacket, OfAnUnknownTypeIsIgnoredAfterTheLogin) {
    Venue venue;
    const ClientHandle alice = venue.log_in("alice");
    venue.heard(alice);
    EXPECT_EQ(said_during([&] {
                  for (const char type : {'Q', 'r', 'G', '0', 's', 'c', 'a', 'u', 'L', '\0'}) venue.send(alice, type);
              }),
              "");
    EXPECT_EQ(venue.heard(alice), "");
    EXPECT_FALSE(venue.connection(alice).closed);
}

TEST(ClientPacket, OfAnUnknownTypeBeforeTheLoginEndsTheConnection) {
    Venue venue;
    for (const char type : {'Q', 'r', 'G', '0', 's', 'c', 'a', 'L', '\0'}) {
        const ClientHandle stranger = venue.connect();
        EXPECT_EQ(said_during([&] { venue.send(stranger, type); }), "");
        EXPECT_EQ(venue.heard(stranger), "goodbye 'B' not logged in");
        EXPECT_TRUE(venue.connection(stranger).closed);
    }
}

TEST(ClientPacket, WithARequestBeforeTheLoginEndsTheConnection) {
    Venue venue;
    const ClientHandle stranger = venue.connect();
    EXPECT_EQ(said_during([&] { venue.request(stranger, buy("b1").at("1.00").bytes()); }), "");
    EXPECT_EQ(venue.heard(stranger), "goodbye 'B' not logged in");
    EXPECT_TRUE(venue.connection(stranger).closed);
    EXPECT_EQ(venue.published(), "");
    const ClientHandle another = venue.connect();
    venue.request(another, {});  // even an empty one
    EXPECT_EQ(venue.heard(another), "goodbye 'B' not logged in");
}

TEST(ClientPacket, OfLengthZeroThrowsAwayAllThatHasArrived) {
    Venue venue;
    const ClientHandle alice = venue.log_in("alice");
    venue.heard(alice);
    const Bytes nothing = {0, 0};
    EXPECT_EQ(
        said_during([&] { venue.order_entry.receive(alice, nothing + packet('U', buy("b1").at("1.00").bytes())); }),
        "");
    EXPECT_EQ(venue.published(), "");
    EXPECT_EQ(venue.heard(alice), "");
    venue.request(alice, buy("b2").at("1.00").bytes());
    EXPECT_EQ(venue.published(), "add 1 #1000 B 100@1");
}

TEST(ClientPacket, OfLengthZeroThrowsAwayWhatStandsBehindAHandledOne) {
    Venue venue;
    const ClientHandle alice = venue.log_in("alice");
    const Bytes order = packet('U', buy("b1").at("1.00").bytes());
    venue.order_entry.receive(alice, order + Bytes{0, 0} + order);
    EXPECT_EQ(venue.published(), "add 1 #1000 B 100@1");
    venue.request(alice, cancel("b1").bytes());
    EXPECT_EQ(venue.published(), "delete 1 #1000");
}

TEST(ClientPacket, WaitsUntilItIsWhole) {
    Venue venue;
    const ClientHandle alice = venue.log_in("alice");
    const Bytes logout = packet('X');
    venue.order_entry.receive(alice, ByteView(logout).first(1));
    venue.order_entry.receive(alice, ByteView(logout).subspan(1, 1));
    EXPECT_FALSE(venue.connection(alice).closed);
    venue.order_entry.receive(alice, ByteView(logout).last(1));
    EXPECT_TRUE(venue.connection(alice).closed);
}

}  // namespace
}  // namespace kavo::test
