// Clients that send what nobody should, and go away as nobody should, while another one trades on and loses nothing.
#include <sys/socket.h>

#include "session/esesm.h"
#include "support/scene.h"
#include "system/live_venue.h"

namespace kavo::test {
namespace {

using esesm::PacketType;

// The one who trades on. Whatever the others do, nothing but his own orders may reach the book.
class Bystander {
public:
    explicit Bystander(LiveVenue& venue) : venue_(venue), bob_(venue, "bob") {}

    // Enters an order and cancels it; the venue must number the order as told, and everything else without a gap.
    void trades_with(std::uint64_t order_id) {
        const std::string id = " #" + std::to_string(order_id);
        bob_.send(buy("b").shares(100).at("100.00"));
        bob_.send(cancel("b"));
        std::vector<std::string> answers;
        for (const std::string& answer :
             {"NR b accepted" + id + " 100@100", "O1 b" + id + " buy 100@100 tif D type 1",
              "P1 b" + id + " @100 behind", "CR xb of b accepted" + id, "XN b" + id + " leaves 0 'U'"}) {
            answers.push_back(std::to_string(next_number_++) + ": " + answer);
        }
        EXPECT_EQ(bob_.next(answers.size()), joined(answers));
        EXPECT_EQ(venue_.feed.next(2), "add 1" + id + " B 100@100 | delete 1" + id);
    }

private:
    LiveVenue& venue_;
    User bob_;
    std::uint64_t next_number_ = 3;
};

Bytes framed(const Bytes& message) {
    return esesm::build_packet(PacketType::unsequenced_data, message);
}

TEST(LiveBadInput, ABadMessageCostsItsSenderTheOrdersOfTheSession) {
    LiveVenue venue({"--acod"});
    Bystander bob(venue);
    User alice(venue, "alice");
    send_together(alice, {buy("a1").shares(300).at("100.00").bytes(), Bytes{'Z', 'Z'}});
    EXPECT_EQ(alice.next(5),
              "3: NR a1 accepted #1040 300@100 | 4: O1 a1 #1040 buy 300@100 tif D type 1 | "
              "5: P1 a1 #1040 @100 behind | "
              "goodbye 'B' unknown or malformed application message | closed");
    EXPECT_EQ(venue.feed.next(2), "add 1 #1040 B 300@100 | delete 1 #1040");
    bob.trades_with(1041);
    WireClient again(venue.port());
    again.log_in(login("alice", 6));
    EXPECT_EQ(again.next(3), "login accepted, engine 1, highest 6 | 6: XN a1 #1040 leaves 0 'D' | replay complete");
}

TEST(LiveBadInput, PacketsThatComeByteByByteAreReadOnce) {
    LiveVenue venue;
    Bystander bob(venue);
    WireClient alice(venue.port());
    alice.keep_silent();
    Bytes bytes = esesm::build_packet(PacketType::login_request, login("alice").payload());
    for (const Bytes& request : {buy("a1").at("100.00").bytes(), cancel("a1").bytes()}) {
        const Bytes packet = framed(request);
        bytes.insert(bytes.end(), packet.begin(), packet.end());
    }
    for (const std::uint8_t byte : bytes) alice.send_bytes({&byte, 1});
    EXPECT_EQ(alice.next(8),
              "login accepted, engine 1, highest 0 | 1: SN MEO2.7 session 1 | 2: SU 1 AAPL Q | "
              "3: NR a1 accepted #1040 100@100 | 4: O1 a1 #1040 buy 100@100 tif D type 1 | "
              "5: P1 a1 #1040 @100 behind | 6: CR xa1 of a1 accepted #1040 | "
              "7: XN a1 #1040 leaves 0 'U'");
    EXPECT_EQ(venue.feed.next(2), "add 1 #1040 B 100@100 | delete 1 #1040");
    bob.trades_with(1041);
}

TEST(LiveBadInput, APeerThatVanishesWithAResetIsLostLikeAnyOther) {
    LiveVenue venue;
    venue.empty_the_books();
    User bob(venue, "bob");
    {
        User alice(venue, "alice");
        alice.send(buy("a1").shares(300).at("190.00"));
        alice.next(3);
        alice.send_bytes(Bytes{71, 0, 'U', 'C'});  // in the middle of a packet
        alice.reset();
    }
    EXPECT_TRUE(
        venue.process.says("bench: client alice disconnected\n"
                           "bench: ACOD off (Do Not Cancel All Open Orders): 1 open order(s) of alice stay on "
                           "the book\n"));
    WireClient(venue.port()).reset();
    EXPECT_TRUE(
        venue.process.says("bench: client  disconnected\n"
                           "bench: ACOD off (Do Not Cancel All Open Orders): 0 open order(s) of  stay on the "
                           "book\n"));
    bob.send(sell("b1").shares(100).at("190.00"));
    EXPECT_EQ(bob.next(3),
              "3: NR b1 accepted #1043 100@190 | 4: O1 b1 #1043 sell 100@190 tif D type 1 | "
              "5: E1 b1 100@190 sell removed RC match 41 exec 42");
    WireClient alice(venue.port());
    alice.log_in(login("alice", 6));
    EXPECT_EQ(alice.next(3),
              "login accepted, engine 1, highest 6 | 6: E1 a1 100@190 buy added AC match 41 exec 41 | "
              "replay complete");
}

// The order and the end of the connection arrive in one segment, so that the venue meets both at once.
TEST(LiveBadInput, WhatAPeerSendsRightBeforeItGoesIsNotLookedAt) {
    LiveVenue venue;
    Bystander bob(venue);
    {
        User alice(venue, "alice");
        const Bytes packet = framed(buy("a1").at("100.00").bytes());
        EXPECT_EQ(::send(alice.socket(), packet.data(), packet.size(), MSG_NOSIGNAL | MSG_MORE),
                  static_cast<ssize_t>(packet.size()));
        alice.disconnect();
    }
    EXPECT_TRUE(venue.process.says("bench: client alice disconnected\n"));
    bob.trades_with(1040);
    WireClient alice(venue.port());
    alice.log_in(login("alice"));
    EXPECT_EQ(alice.next(), "login accepted, engine 1, highest 2");
}

// Eight megabytes of answers are twice what a connection holds on a common machine. Those without room are lost, but
// not their places in the stream, and nobody waits for her.
TEST(LiveBadInput, AClientThatDoesNotReadHoldsUpNobody) {
    LiveVenue venue;
    Bystander bob(venue);
    User alice(venue, "alice");
    constexpr std::uint64_t batches = 200;
    const std::vector<Bytes> batch(500, buy("a1").shares(0).at("100.00").bytes());
    std::uint64_t order_id = 1040;
    for (std::uint64_t i = 0; i < batches; ++i) {
        send_together(alice, batch);
        bob.trades_with(order_id++);  // often enough to count as alive himself, on the slowest machine too
    }
    alice.send(cancel("a1"));  // she is heard to the end
    EXPECT_TRUE(venue.process.says("bench: stale cancel for a1 (unknown client order id)\n"));
    alice.disconnect();
    EXPECT_TRUE(venue.process.says("bench: client alice disconnected\n"));
    bob.trades_with(order_id++);

    WireClient again(venue.port());
    again.log_in(login("alice", 100'002));
    EXPECT_EQ(again.next(4),
              "login accepted, engine 1, highest 100003 | 100002: NR a1 rejected 'K' 0@100 | "
              "100003: CR xa1 of a1 rejected 'D' | replay complete");
}

}  // namespace
}  // namespace kavo::test
