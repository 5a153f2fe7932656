// Sessions disturbed by script: a client that is dropped, and a venue that falls silent.
#include <chrono>
#include <regex>

#include "support/scene.h"
#include "system/live_venue.h"

namespace kavo::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

LiveVenue::Environment scenario(const std::string& text) {
    return {{"KAVO_ME_SCENARIO", text}};
}

const std::string hello_alice =
    "bench: login alice requested seq 0 (stream next 1): accepted at 1, replaying 0 message(s)\n";

TEST(LiveScenario, DropsTheClientOnceAfterItsSecondOrder) {
    LiveVenue venue({}, scenario("name=drop,disconnect_after=2"));
    {
        User alice(venue, "alice");
        alice.send(buy("b1").shares(100).at("100.00"));
        alice.next(3);
        send_together(alice, {buy("b2").shares(100).at("101.00").bytes(), buy("b3").shares(100).at("102.00").bytes()});
        EXPECT_EQ(alice.next(4),
                  "6: NR b2 accepted #1041 100@101 | 7: O1 b2 #1041 buy 100@101 tif D type 1 | "
                  "8: P1 b2 #1041 @101 behind | closed");
    }
    WireClient alice(venue.port());
    alice.log_in(login("alice", 8));
    EXPECT_EQ(alice.next(3), "login accepted, engine 1, highest 8 | 8: P1 b2 #1041 @101 behind | replay complete");
    alice.send(buy("b4").shares(100).at("103.00"));
    alice.send(buy("b5").shares(100).at("104.00"));
    EXPECT_EQ(alice.next(6),
              "9: NR b4 accepted #1042 100@103 | 10: O1 b4 #1042 buy 100@103 tif D type 1 | "
              "11: P1 b4 #1042 @103 behind | 12: NR b5 accepted #1043 100@104 | "
              "13: O1 b5 #1043 buy 100@104 tif D type 1 | 14: P1 b5 #1043 @104 behind");

    venue.stop();
    EXPECT_EQ(venue.feed.waiting(),
              "add 1 #1040 B 100@100 | add 1 #1041 B 100@101 | add 1 #1042 B 100@103 | "
              "add 1 #1043 B 100@104");
    EXPECT_EQ(venue.commentary(),
              "bench: scenario 'drop' armed (disconnect after 2 orders, lapse 0 ms, reject every 0, partial every 0, "
              "fill-on-cancel every 0, unsolicited cancel every 0, replace reject every 0)\n" +
                  hello_alice +
                  "bench: dropping the connection of alice (scripted: the client must log in again with its next "
                  "expected sequence)\n"
                  "bench: ACOD off (Do Not Cancel All Open Orders): 2 open order(s) of alice stay on the book\n"
                  "bench: login alice requested seq 8 (stream next 9): accepted at 8, replaying 1 message(s)\n");
    EXPECT_EQ(venue.truth(),
              lines({R"({"t":*,"ev":"new","cl":"b1","oid":1040,"symbol":"AAPL","side":"B","qty":100,"px":100,)"
                     R"("cum":0,"leaves":0,"last_qty":0,"text":""})",
                     R"({"t":*,"ev":"new","cl":"b2","oid":1041,"symbol":"AAPL","side":"B","qty":100,"px":101,)"
                     R"("cum":0,"leaves":0,"last_qty":0,"text":""})",
                     R"({"t":*,"ev":"new","cl":"b4","oid":1042,"symbol":"AAPL","side":"B","qty":100,"px":103,)"
                     R"("cum":0,"leaves":0,"last_qty":0,"text":""})",
                     R"({"t":*,"ev":"new","cl":"b5","oid":1043,"symbol":"AAPL","side":"B","qty":100,"px":104,)"
                     R"("cum":0,"leaves":0,"last_qty":0,"text":""})"}));
}

// The lapse outlasts the test, and the feed, which it leaves alone, shows when the venue has dealt with the order.
TEST(LiveScenario, KeepsSilentDuringALapseAndRepeatsWhatWasMissedAtTheNextLogin) {
    LiveVenue venue({}, scenario("name=quiet,lapse_ms=600000"));
    {
        User alice(venue, "alice");
        alice.send(buy("b1").shares(300).at("100.00"));
        EXPECT_EQ(venue.feed.next(), "add 1 #1040 B 300@100");
        EXPECT_FALSE(alice.next_packet_of_any_kind(milliseconds(0)));
    }
    EXPECT_TRUE(venue.process.says("bench: client alice disconnected\n"));
    WireClient alice(venue.port());
    alice.log_in(login("alice", 3));
    EXPECT_EQ(alice.next(5),
              "login accepted, engine 1, highest 5 | 3: NR b1 accepted #1040 300@100 | "
              "4: O1 b1 #1040 buy 300@100 tif D type 1 | 5: P1 b1 #1040 @100 behind | replay complete");
    WireClient stranger(venue.port());
    stranger.send_packet('U');
    EXPECT_EQ(stranger.next(2), "goodbye 'B' not logged in | closed");  // is answered as ever

    EXPECT_TRUE(venue.commentary().starts_with(
        "bench: scenario 'quiet' armed (disconnect after 0 orders, lapse 600000 ms, reject every 0, partial every 0, "
        "fill-on-cancel every 0, unsolicited cancel every 0, replace reject every 0)\n" +
        hello_alice + "bench: going silent for "));
    EXPECT_TRUE(
        venue.process.says(" ms (no heartbeats; the client should disconnect after 3 s and log in again with "
                           "its next expected sequence)\n"));
    const std::string said = venue.process.said();
    EXPECT_EQ(said.find("going silent"), said.rfind("going silent"));
    EXPECT_EQ(venue.truth(),
              lines({R"({"t":*,"ev":"new","cl":"b1","oid":1040,"symbol":"AAPL","side":"B","qty":300,"px":100,)"
                     R"("cum":0,"leaves":0,"last_qty":0,"text":""})"}));
}

TEST(LiveScenario, KeepsEvenTheWelcomeOfAUserForAfterTheLapse) {
    LiveVenue venue({}, scenario("lapse_ms=600000"));
    User alice(venue, "alice");  // whose login comes before the silence that it sets off
    WireClient bob(venue.port());
    bob.log_in(login("bob"));
    EXPECT_EQ(bob.next(), "login accepted, engine 1, highest 0");
    bob.log_in(login("bob", 1));
    EXPECT_EQ(bob.next(4),
              "login accepted, engine 1, highest 2 | 1: SN MEO2.7 session 1 | 2: SU 1 AAPL Q | "
              "replay complete");
}

TEST(LiveScenario, EndsTheLapseAfterItsTimeAndHasNoOtherOne) {
    LiveVenue venue({}, scenario("lapse_ms=2000"));
    const auto before = steady_clock::now();
    User alice(venue, "alice");
    const auto heartbeat = alice.next_packet_or_heartbeat();
    ASSERT_TRUE(heartbeat);
    EXPECT_EQ(packet_text(*heartbeat), "heartbeat");
    EXPECT_GE(steady_clock::now() - before, milliseconds(1999));  // 2000 of a clock of whole ones

    User bob(venue, "bob");
    bob.send(cancel("b1"));
    EXPECT_EQ(bob.next(), "3: CR xb1 of b1 rejected 'D'");
    const std::string said = venue.process.said();
    EXPECT_EQ(said.find("going silent"), said.rfind("going silent"));
}

}  // namespace
}  // namespace kavo::test
