// Silence on either side of an order-entry connection, against the real clock. What may not happen too early is
// measured in milliseconds, less the one that a clock of whole milliseconds may hide. What may not happen too late is
// measured in the venue's own heartbeats: on a machine that falls behind they get fewer, never more than one a second.
#include <chrono>

#include "support/scene.h"
#include "system/live_venue.h"

namespace kavo::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

TEST(LiveTimer, TheVenueFillsASecondOfItsOwnSilenceWithAHeartbeat) {
    LiveVenue venue;
    WireClient alice(venue.port());
    auto quiet_since = steady_clock::now();
    const auto expect_heartbeat = [&] {
        EXPECT_EQ(alice.next_packet_or_heartbeat(), (Bytes{0x01, 0x00, '0'}));
        EXPECT_GE(steady_clock::now() - quiet_since, milliseconds(999));
    };
    alice.log_in(login("alice"));
    alice.next(3);
    expect_heartbeat();
    quiet_since += milliseconds(999);
    expect_heartbeat();
    // Anything that the venue sends counts like a heartbeat.
    quiet_since = steady_clock::now();
    alice.send(cancel("b1"));
    EXPECT_EQ(alice.next(), "3: CR xb1 of b1 rejected 'D'");
    expect_heartbeat();
}

TEST(LiveTimer, ASilentClientIsDroppedAfterThreeSecondsWhileOneThatSendsHeartbeatsStays) {
    LiveVenue venue({"--acod"});
    User bob(venue, "bob");
    const auto before = steady_clock::now();
    User alice(venue, "alice");
    alice.keep_silent();
    alice.send(buy("a1").shares(100).at("100.00"));
    alice.next(3);
    // Bob asks for nothing; his own heartbeats and the other packet that says no more are all he sends.
    int heartbeats = 0;
    while (!alice.closed() && steady_clock::now() - before < patience) {
        bob.send_heartbeat();
        bob.send_packet('T');
        if (const auto packet = alice.next_packet_of_any_kind(milliseconds(200))) {
            EXPECT_EQ(packet_text(*packet), "heartbeat");  // no goodbye before the end
            ++heartbeats;
        }
    }
    EXPECT_TRUE(alice.closed());
    EXPECT_GE(steady_clock::now() - before, milliseconds(2999));
    EXPECT_LE(heartbeats, 3);
    EXPECT_EQ(venue.feed.next(2), "add 1 #1040 B 100@100 | delete 1 #1040");
    bob.send(cancel("b1"));
    EXPECT_EQ(bob.next(), "3: CR xb1 of b1 rejected 'D'");

    EXPECT_TRUE(venue.process.says("[kavo_me] client "));
    EXPECT_TRUE(
        venue.process.says(" (alice) timed out\n"
                           "bench: dropping the connection of alice (3 heartbeat intervals of silence)\n"
                           "bench: ACOD (Cancel All Open Orders): cancelled 1 open order(s) of alice on "
                           "disconnect\n"));
}

TEST(LiveTimer, ALapseHoldsBackTheHeartbeatsButNotTheLimitOfAClientsSilence) {
    LiveVenue venue({}, {{"KAVO_ME_SCENARIO", "lapse_ms=600000"}});
    const auto before = steady_clock::now();
    User alice(venue, "alice");
    EXPECT_FALSE(alice.next_packet_of_any_kind(patience));
    EXPECT_TRUE(alice.closed());
    EXPECT_GE(steady_clock::now() - before, milliseconds(2999));
    EXPECT_TRUE(venue.process.says("bench: dropping the connection of alice (3 heartbeat intervals of silence)\n"));
}

// The one test that takes half a minute.
TEST(LiveTimerSlow, AConnectionThatNeverLogsInIsSentAwayAfterThirtySeconds) {
    LiveVenue venue;
    User bob(venue, "bob");
    const auto before = steady_clock::now();
    WireClient says_nothing(venue.port());
    WireClient never_gets_it_right(venue.port());
    never_gets_it_right.log_in(login("carol", 99));
    EXPECT_EQ(never_gets_it_right.next(), "login rejected 'N', engine 1, highest 0");
    WireClient speaks_something_else(venue.port());
    const std::string_view http = "GET / HTTP/1.1\r\n\r\n";
    speaks_something_else.send_bytes(Bytes(http.begin(), http.end()));

    WireClient* const strangers[] = {&says_nothing, &never_gets_it_right, &speaks_something_else};
    for (WireClient* stranger : strangers) {
        if (stranger != &never_gets_it_right) stranger->keep_silent();
        std::optional<Bytes> packet;
        while (!packet && !stranger->closed() && steady_clock::now() - before < milliseconds(30'000) + patience) {
            bob.send_heartbeat();
            if (!never_gets_it_right.closed()) never_gets_it_right.send_heartbeat();  // does not help either
            packet = stranger->next_packet_of_any_kind(milliseconds(500));
        }
        ASSERT_TRUE(packet);
        EXPECT_EQ(packet_text(*packet), "goodbye 'L' timed out waiting for login");
        EXPECT_GE(steady_clock::now() - before, milliseconds(29'999));
        EXPECT_EQ(stranger->next(), "closed");
    }
    int heartbeats = 0;
    while (bob.next_packet_of_any_kind(milliseconds(0))) ++heartbeats;
    EXPECT_LE(heartbeats, 35);
    bob.send(cancel("b1"));
    EXPECT_EQ(bob.next(), "3: CR xb1 of b1 rejected 'D'");
    EXPECT_EQ(venue.commentary(),
              "bench: login bob requested seq 0 (stream next 1): accepted at 1, replaying 0 message(s)\n"
              "bench: login carol REJECTED (N: invalid start sequence number requested; requested seq 99, "
              "stream next 1)\n"
              "bench: stale cancel for b1 (unknown client order id)\n");
}

}  // namespace
}  // namespace kavo::test
