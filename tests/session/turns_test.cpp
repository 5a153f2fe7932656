// Who is read when: what a poll has missed, what is held against nobody before it has been read, and floods.
#include <gtest/gtest.h>

#include <string>

#include "support/packets.h"
#include "support/said.h"
#include "support/venue.h"

namespace kavo::test {
namespace {

Bytes login_packet(const std::string& username) {
    return packet('l', login(username).payload());
}

void append(Bytes& bytes, const Bytes& more) {
    bytes.insert(bytes.end(), more.begin(), more.end());
}

// A venue on which nothing is readable but what a test says the poll has found.
struct Turns : testing::Test {
    ClientHandle logged_in(const std::string& username) {
        const ClientHandle client = venue.log_in(username);
        venue.heard(client);
        venue.order_entry.client(client).readable = false;
        return client;
    }
    // A new connection, which says this at once.
    ClientHandle call(const Bytes& words) {
        const auto handle = static_cast<ClientHandle>(venue.order_entry.clients_ever());
        venue.peers.call(Venue::first_fd + handle).sends = words;
        return handle;
    }
    MeoClient& client(ClientHandle handle) { return venue.order_entry.client(handle); }

    Venue venue;
};

TEST_F(Turns, UserWhoClosesAndComesBackAtOnceIsLetIn) {
    const ClientHandle before = logged_in("alice");
    venue.connection(before).ended = true;  // behind the poll
    const ClientHandle after = call(login_packet("alice"));
    venue.pass();
    EXPECT_FALSE(client(before).open());
    EXPECT_EQ(venue.heard(after), "login accepted, engine 1, highest 2");
}

TEST_F(Turns, UserWhoOpensTheNewConnectionFirstIsLetInAsWell) {
    const ClientHandle before = logged_in("alice");
    const ClientHandle after = venue.connect();
    venue.pass();  // both are open, and silent
    venue.connection(before).ended = true;
    venue.connection(after).sends = login_packet("alice");
    client(after).readable = true;  // the poll has seen the login and missed the end
    venue.pass();
    EXPECT_EQ(venue.heard(after), "login accepted, engine 1, highest 2");
}

TEST_F(Turns, UserWhoLogsOutAndComesBackAtOnceIsLetIn) {
    const ClientHandle before = logged_in("alice");
    const ClientHandle after = venue.connect();
    venue.pass();
    append(venue.connection(before).sends, packet('U', buy("b1").at("1.00").bytes()));
    append(venue.connection(before).sends, packet('X'));
    venue.connection(after).sends = login_packet("alice");
    client(after).readable = true;
    venue.pass();
    EXPECT_EQ(venue.published(), "add 1 #1000 B 100@1");  // what was sent before the logout counts
    EXPECT_EQ(venue.heard(after), "login accepted, engine 1, highest 5");
}

TEST_F(Turns, UserWhoIsStillThereKeepsTheName) {
    const ClientHandle first = logged_in("alice");
    const ClientHandle second = call(login_packet("alice"));
    venue.pass();
    EXPECT_TRUE(client(first).open());
    EXPECT_EQ(venue.heard(second), "login rejected 'L', engine 1, highest 2 | goodbye 'A' client already logged in");
}

TEST_F(Turns, TwoWhoClaimEachOthersNamesAtOnceAreBothTold) {
    const ClientHandle alice = logged_in("alice");
    const ClientHandle bob = logged_in("bob");
    venue.connection(alice).sends = login_packet("bob");
    venue.connection(bob).sends = login_packet("alice");
    client(alice).readable = true;
    venue.pass();
    // Bob is looked at again before Alice is told, and finds Alice where she is.
    EXPECT_EQ(venue.heard(bob), "login rejected 'L', engine 1, highest 2 | goodbye 'A' client already logged in");
    EXPECT_EQ(venue.heard(alice), "login accepted, engine 1, highest 2");
}

TEST_F(Turns, EarlierClientsOrderComesBeforeThatOfAConnectionAcceptedLater) {
    const ClientHandle early = logged_in("alice");
    venue.connection(early).sends = packet('U', buy("b1").at("1.00").bytes());  // behind the poll
    Bytes late = login_packet("bob");
    append(late, packet('U', buy("b2").at("1.00").bytes()));
    call(late);
    venue.pass();
    EXPECT_EQ(venue.published(), "add 1 #1000 B 100@1 | add 1 #1001 B 100@1");
    EXPECT_EQ(venue.enter(sell("s1").at("1.00"), early),
              "NR s1 accepted #1002 100@1 | O1 s1 #1002 sell 100@1 tif D type 1 | E1 s1 100@1 sell removed RC match 1 "
              "exec 2");
    EXPECT_TRUE(venue.told(early).starts_with("E1 b1")) << venue.told(early);
}

TEST_F(Turns, SilenceIsNotHeldAgainstAClientWhoseHeartbeatsTheVenueHasNotRead) {
    const ClientHandle alice = logged_in("alice");
    venue.connection(alice).sends = packet('1');
    venue.clock.advance_ms(4'500);  // the venue itself was kept
    EXPECT_EQ(said_during([&] { venue.pass(); }), "");
    EXPECT_TRUE(client(alice).open());
    venue.clock.advance_ms(3'000);
    const std::string said = said_during([&] { venue.pass(); });
    EXPECT_TRUE(said.starts_with("[kavo_me] client 100 (alice) timed out\n")) << said;
}

TEST_F(Turns, SilenceOfAClientWhoHasGoneIsALostConnection) {
    const ClientHandle alice = logged_in("alice");
    venue.connection(alice).ended = true;
    venue.clock.advance_ms(4'500);
    EXPECT_EQ(said_during([&] { venue.pass(); }),
              "bench: client alice disconnected\n"
              "bench: ACOD off (Do Not Cancel All Open Orders): 0 open order(s) of alice stay on the book\n");
}

TEST_F(Turns, LoginThatTheVenueHasNotReadIsNotTooLate) {
    const ClientHandle alice = venue.connect();
    venue.pass();
    venue.connection(alice).sends = login_packet("alice");
    venue.clock.advance_ms(30'000);
    venue.pass();
    EXPECT_TRUE(client(alice).logged_in);
    EXPECT_TRUE(client(alice).open());
}

TEST_F(Turns, LoginLimitHoldsForWhoeverHasSaidSomethingElse) {
    const ClientHandle stranger = venue.connect();
    venue.pass();
    venue.connection(stranger).sends = packet('1');
    venue.clock.advance_ms(30'000);
    venue.pass();
    EXPECT_EQ(venue.heard(stranger), "goodbye 'L' timed out waiting for login");
}

// Every answer takes a millisecond. The flood has a thousand requests at hand, and more whenever it is read.
struct Floods : Turns {
    Floods() {
        venue.peers.when_sent = [this](int) { venue.clock.advance_ms(1); };
        for (int i = 0; i < 1'000; ++i) append(flood, packet('U', buy("q").shares(0).bytes()));
    }
    void pour(ClientHandle client_handle) {
        if (venue.connection(client_handle).sends.empty()) venue.connection(client_handle).sends = flood;
        client(client_handle).readable = true;
    }
    Bytes flood;
};

TEST_F(Floods, HaveTurnsThatEnd) {
    const ClientHandle alice = logged_in("alice");
    pour(alice);
    const std::uint64_t start_ms = venue.clock.steady_ms();
    venue.order_entry.serve_clients();
    EXPECT_EQ(venue.clock.steady_ms() - start_ms, 25u);
    EXPECT_TRUE(client(alice).backlog);  // which no poll can see
}

TEST_F(Floods, AreGoneThroughToTheirEndInLaterPasses) {
    const ClientHandle alice = logged_in("alice");
    pour(alice);
    int passes = 0;
    for (; venue.order_entry.has_input(client(alice)); ++passes) venue.order_entry.serve_clients();
    EXPECT_EQ(passes, 41);  // 25 answers in each, and one to find that nothing is left
    EXPECT_EQ(client(alice).stream->next_sequence(), 1u + 2 + 1'000);
}

TEST_F(Floods, LeaveAHealthyClientItsTurn) {
    constexpr int floods = 300;
    for (int i = 0; i < floods; ++i) logged_in("f" + std::to_string(i));
    const ClientHandle healthy = logged_in("alice");
    for (int round = 0; round < 5; ++round) {
        for (ClientHandle flooder = 0; flooder < floods; ++flooder) pour(flooder);
        venue.connection(healthy).sends = packet('U', buy("b" + std::to_string(round)).at("1.00").bytes());
        client(healthy).readable = true;
        const std::uint64_t asked_ms = venue.clock.steady_ms();
        int passes = 0;
        while (venue.heard(healthy).empty() && passes < 100) {
            venue.order_entry.serve_clients();
            ++passes;
        }
        // Each of 301 turns is one answer of a millisecond, and a pass has time for 25.
        EXPECT_LE(passes, 13);
        EXPECT_LE(venue.clock.steady_ms() - asked_ms, 400u);
    }
}

TEST_F(Floods, AreServedInTurnsByEverybodyInTheTable) {
    const ClientHandle first = logged_in("alice");
    const ClientHandle second = logged_in("bob");
    pour(first);
    pour(second);
    venue.order_entry.serve_clients();
    const auto answered = [this](ClientHandle handle) { return client(handle).stream->next_sequence() - 3; };
    EXPECT_EQ(answered(first), 13u);  // half of the 25 milliseconds each, and a packet that has begun is finished
    EXPECT_EQ(answered(second), 13u);
}

}  // namespace
}  // namespace kavo::test
