// Never half a packet, never half a replay: sockets that take only a part, and replays that take many passes.
#include <gtest/gtest.h>

#include <numeric>
#include <string>
#include <vector>

#include "support/said.h"
#include "support/venue.h"

namespace kavo::test {
namespace {

// One user, who has left the stream with twenty messages on it.
struct Replays : testing::Test {
    Replays() {
        const ClientHandle alice = venue.log_in("alice");
        for (int i = 0; i < 6; ++i) venue.request(alice, buy("b" + std::to_string(i)).at("1.00").bytes());
        venue.send(alice, 'X');
        EXPECT_EQ(client(alice).stream->next_sequence(), 21u);
    }
    MeoClient& client(ClientHandle handle) { return venue.order_entry.client(handle); }
    // A login by a peer whose connection takes so much.
    ClientHandle log_in_with_room(std::size_t room, std::uint64_t from = 1) {
        const ClientHandle alice = venue.connect();
        venue.connection(alice).room = room;
        venue.send(alice, 'l', login("alice", from).payload());
        return alice;
    }
    void give_room(ClientHandle handle, std::size_t room) {
        venue.connection(handle).room = room;
        venue.pass();
    }
    // All that the peer was sent, cut into packets: sequenced ones as their numbers. A torn packet shows.
    std::string heard(ClientHandle handle) {
        std::vector<std::string> lines;
        esesm::ReceiveBuffer cutter;
        cutter.incoming() = venue.connection(handle).received;
        std::size_t cut_bytes = 0;
        while (const auto cut = cutter.cut()) {
            const Bytes packet = esesm::build_packet(cut->type, cut->payload);
            cut_bytes += packet.size();
            const std::string text = packet_text(packet);
            lines.push_back(cut->type == esesm::PacketType::sequenced_data ? text.substr(0, text.find(':')) : text);
        }
        if (cut_bytes != venue.connection(handle).received.size()) lines.push_back("...");
        return joined(lines);
    }
    static std::string numbers(int first, int last) {
        std::string text;
        for (int number = first; number <= last; ++number) text += " | " + std::to_string(number);
        return text;
    }
    Venue venue;
};

const std::string accepted = "login accepted, engine 1, highest 20";

TEST_F(Replays, AreContinuedFromWhereTheSocketStopped) {
    const ClientHandle alice = log_in_with_room(500);
    EXPECT_LT(heard(alice).size(), accepted.size() + numbers(1, 10).size());
    for (int i = 0; i < 100; ++i) give_room(alice, 37);
    EXPECT_EQ(heard(alice), accepted + numbers(1, 20) + " | replay complete");
    EXPECT_EQ(venue.bench.counters.replayed, 20u);
}

// Whose orders trade while a further login is replayed to.
struct Followers : Replays {
    Followers() : alice(log_in_with_room(MemoryPeer::unlimited, 21)), bob(venue.log_in("bob")) {
        venue.request(alice, buy("c1").shares(900).at("2.00").bytes());  // 21 to 23
        venue.connection(alice).received.clear();
        venue.connection(alice).room = 200;
        venue.send(alice, 'l', login("alice", 1).payload());
    }
    void trade() {
        venue.request(bob, sell("s" + std::to_string(++trades)).shares(100).at("2.00").bytes());
        venue.order_entry.deliver_engine_output();
    }
    int trades = 0;
    ClientHandle alice;
    ClientHandle bob;
};

const std::string accepted_again = "login accepted, engine 1, highest 23";

TEST_F(Followers, ComeBehindTheReplay) {
    trade();
    give_room(alice, 100);
    trade();
    give_room(alice, MemoryPeer::unlimited);
    EXPECT_EQ(heard(alice), accepted_again + numbers(1, 23) + " | replay complete | 24 | 25");
    trade();
    EXPECT_TRUE(heard(alice).ends_with("replay complete | 24 | 25 | 26")) << heard(alice);
}

TEST_F(Followers, AreNotThoseThatALapseHasSwallowed) {
    trade();
    venue.bench.start_lapse(venue.clock.steady_ms(), 1'000);
    trade();
    venue.bench.start_lapse(venue.clock.steady_ms(), 0);
    trade();
    give_room(alice, MemoryPeer::unlimited);
    EXPECT_EQ(heard(alice), accepted_again + numbers(1, 23) + " | replay complete | 24 | 26");
}

TEST_F(Replays, AreCompleteBeforeARequestBehindThemIsHandled) {
    const ClientHandle alice = log_in_with_room(200);
    venue.published();
    venue.request(alice, buy("c1").at("1.00").bytes());
    venue.pass();
    EXPECT_EQ(venue.published(), "");
    give_room(alice, MemoryPeer::unlimited);
    venue.pass();
    EXPECT_EQ(heard(alice), accepted + numbers(1, 20) + " | replay complete" + numbers(21, 23));
}

TEST_F(Replays, AreCompleteBeforeALogoutBehindThemIsHandled) {
    const ClientHandle alice = log_in_with_room(200);
    venue.request(alice, buy("c1").at("1.00").bytes());
    venue.send(alice, 'X');
    for (int i = 0; i < 100; ++i) give_room(alice, 37);
    EXPECT_FALSE(client(alice).open());
    give_room(alice, MemoryPeer::unlimited);
    EXPECT_TRUE(heard(alice).starts_with(accepted + numbers(1, 20) + " | replay complete | 21")) << heard(alice);
}

TEST_F(Replays, AreCompleteBeforeARejectedLoginBehindThemIsHandled) {
    const ClientHandle alice = log_in_with_room(200);
    Login wrong = login("alice", 1);
    wrong.session_protocol = "1.1";
    venue.send(alice, '1');
    venue.send(alice, 'l', wrong.payload());
    give_room(alice, MemoryPeer::unlimited);
    venue.pass();
    EXPECT_EQ(heard(alice), accepted + numbers(1, 20) +
                                " | replay complete | login rejected 'I', engine 1, highest 20 | goodbye 'A' "
                                "incompatible session protocol version");
}

TEST_F(Replays, LetTheirClientTalkOnButNotWithoutAnEnd) {
    const ClientHandle alice = log_in_with_room(200);
    venue.request(alice, buy("c1").at("1.00").bytes());
    const Bytes much(700'000, 1);
    for (const bool read : {true, true, false}) {
        venue.connection(alice).sends = much;
        client(alice).readable = true;
        venue.order_entry.serve_clients();
        EXPECT_EQ(venue.connection(alice).sends.empty(), read);
    }
}

TEST_F(Replays, GiveWayToAFurtherLogin) {
    const ClientHandle alice = log_in_with_room(200);
    const std::string before = heard(alice);
    for (int i = 0; i < 250; ++i) venue.send(alice, 'l', login("alice", 19).payload());
    give_room(alice, MemoryPeer::unlimited);
    const std::string after = heard(alice);
    EXPECT_TRUE(after.ends_with(" | " + accepted + " | 19 | 20 | replay complete")) << after;
    EXPECT_EQ(after.find("replay complete"), after.rfind("replay complete"));
}

TEST_F(Replays, AreSpreadOverThePassesThatTheyNeed) {
    venue.peers.when_sent = [this](int) { venue.clock.advance_ms(4); };
    const ClientHandle alice = venue.connect();
    venue.send(alice, 'l', login("alice", 1).payload());
    EXPECT_EQ(heard(alice), accepted);  // one millisecond is all that a login may take
    venue.order_entry.continue_sending();
    EXPECT_EQ(heard(alice), accepted + numbers(1, 5));  // twenty for all replays of a pass
    venue.order_entry.continue_sending();
    EXPECT_EQ(heard(alice), accepted + numbers(1, 10));
    for (int i = 0; i < 3; ++i) venue.order_entry.continue_sending();
    EXPECT_EQ(heard(alice), accepted + numbers(1, 20) + " | replay complete");
}

TEST_F(Replays, OfManyUsersShareTheTime) {
    for (const char* user : {"bob", "carol"}) {
        const ClientHandle client = venue.log_in(user);
        for (int i = 0; i < 6; ++i) venue.request(client, buy(user + std::to_string(i)).at("1.00").bytes());
        venue.send(client, 'X');
    }
    venue.peers.when_sent = [this](int) { venue.clock.advance_ms(4); };
    std::vector<ClientHandle> clients;
    for (const char* user : {"alice", "bob", "carol"}) {
        clients.push_back(venue.connect());
        venue.send(clients.back(), 'l', login(user, 1).payload());
    }
    const auto bytes = [&] {
        return std::accumulate(
            clients.begin(), clients.end(), std::size_t{0},
            [&](std::size_t sum, ClientHandle client) { return sum + venue.connection(client).packets.size(); });
    };
    EXPECT_EQ(bytes(), 3u);
    venue.order_entry.continue_sending();
    for (const ClientHandle client : clients) EXPECT_GE(venue.connection(client).packets.size(), 2u);
}

TEST_F(Replays, KeepWhatTheStreamForgetsMeanwhile) {
    const ClientHandle alice = log_in_with_room(100);
    MessageLog& stored = client(alice).stream->stored;
    stored.trim(2);
    give_room(alice, MemoryPeer::unlimited);
    EXPECT_EQ(heard(alice), accepted + numbers(1, 20) + " | replay complete");
}

TEST_F(Replays, StopWithTheirConnection) {
    const ClientHandle alice = log_in_with_room(200);
    venue.connection(alice).ended = true;
    client(alice).readable = true;
    venue.pass();
    EXPECT_FALSE(client(alice).open());
    venue.connection(alice).room = MemoryPeer::unlimited;
    venue.pass();
    EXPECT_EQ(venue.connection(alice).closed, 1);
    EXPECT_FALSE(heard(alice).ends_with("...")) << heard(alice);  // half a packet was owed
    const ClientHandle again = log_in_with_room(MemoryPeer::unlimited, 20);
    EXPECT_EQ(heard(again), accepted + " | 20 | replay complete");
}

TEST_F(Replays, LoginResponseGoesAheadHoweverFullTheSocketIs) {
    const ClientHandle alice = log_in_with_room(0, 21);
    EXPECT_EQ(heard(alice), "");
    venue.request(alice, buy("c1").at("1.00").bytes());
    give_room(alice, MemoryPeer::unlimited);
    venue.pass();
    EXPECT_EQ(heard(alice), accepted + numbers(21, 23));
}

struct Packets : Replays {
    Packets() : alice(log_in_with_room(MemoryPeer::unlimited, 21)) {}
    ClientHandle alice;
};

TEST_F(Packets, TakenInPartAreCompletedBeforeAnythingElse) {
    venue.connection(alice).room = 30;
    venue.request(alice, buy("c1").at("1.00").bytes());  // 21 in part, 22 and 23 not at all
    venue.connection(alice).room = MemoryPeer::unlimited;
    venue.request(alice, cancel("c1").bytes());  // 24 and 25
    EXPECT_EQ(heard(alice), accepted + " | 21 | 24 | 25");
}

TEST_F(Packets, TakenInPartAreCompletedThoughNothingFollows) {
    venue.connection(alice).room = 30;
    venue.request(alice, buy("c1").at("1.00").bytes());
    EXPECT_TRUE(heard(alice).ends_with("..."));
    give_room(alice, MemoryPeer::unlimited);
    EXPECT_EQ(heard(alice), accepted + " | 21");
}

TEST_F(Packets, ThatFindTheSocketFullAreLostWhole) {
    venue.connection(alice).room = 0;
    venue.request(alice, buy("c1").at("1.00").bytes());
    give_room(alice, MemoryPeer::unlimited);
    EXPECT_EQ(heard(alice), accepted);
    venue.request(alice, cancel("c1").bytes());
    EXPECT_EQ(heard(alice), accepted + " | 24 | 25");
}

TEST_F(Packets, AreNeverTornWhateverTheSocketTakes) {
    for (std::size_t room = 1; room < 300; ++room) {
        venue.connection(alice).room = room;
        venue.request(alice, cancel("none").bytes());
        venue.request(alice, cancel("none").bytes());
    }
    give_room(alice, MemoryPeer::unlimited);
    const std::string text = heard(alice);
    EXPECT_FALSE(text.ends_with("..."));
    EXPECT_EQ(text.find("unknown"), std::string::npos);
}

TEST_F(Packets, OwedToAClientThatIsDroppedAreCompletedFirst) {
    venue.connection(alice).room = 30;
    venue.request(alice, buy("c1").at("1.00").bytes());
    venue.clock.advance_ms(3'000);
    said_during([&] { venue.pass(); });
    EXPECT_FALSE(client(alice).open());
    EXPECT_EQ(venue.connection(alice).closed, 0);
    give_room(alice, MemoryPeer::unlimited);
    EXPECT_EQ(heard(alice), accepted + " | 21");
    EXPECT_EQ(venue.connection(alice).closed, 1);
}

}  // namespace
}  // namespace kavo::test
