// Orders mistreated and sessions disturbed by script: what the clients, the feed, standard error and the order truth
// log say of it.
#include <chrono>

#include "model/bench.h"
#include "support/scene.h"
#include "system/live_venue.h"

namespace kavo::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

LiveVenue::Environment scenario(const std::string& text) {
    return {{"KAVO_ME_SCENARIO", text}};
}

// A bench on which every so many occasions of a fault bring it.
model::Bench scripted(model::Bench::Kind fault, std::uint32_t every) {
    model::Bench bench;
    bench.faults.at(fault).script.every = every;
    return bench;
}

const std::string hello_alice =
    "bench: login alice requested seq 0 (stream next 1): accepted at 1, replaying 0 message(s)\n";

TEST(LiveScenario, RejectsEveryThirdOrderThatIsInOrder) {
    const model::Bench bench = scripted(model::Bench::reject, 3);
    LiveVenue venue({}, scenario(bench.scenario()));
    User alice(venue, "alice");
    alice.send(buy("b1").shares(100).at("100.00"));
    alice.send(buy("b1").shares(100).at("100.00"));  // a duplicate, and so no order that counts
    alice.send(buy("b2").shares(100).at("101.00"));
    alice.send(sell("s3").shares(300).at("250.05"));
    alice.send(sell("s3").shares(300).at("250.05"));
    EXPECT_EQ(
        alice.next(11),
        "3: NR b1 accepted #1040 100@100 | 4: O1 b1 #1040 buy 100@100 tif D type 1 | 5: P1 b1 #1040 @100 behind | "
        "6: NR b1 rejected 'A' 100@100 | "
        "7: NR b2 accepted #1041 100@101 | 8: O1 b2 #1041 buy 100@101 tif D type 1 | 9: P1 b2 #1041 @101 behind | "
        "10: NR s3 rejected 'R' 300@250.05 | 11: NR s3 accepted #1042 300@250.05 | "
        "12: O1 s3 #1042 sell 300@250.05 tif D type 1 | 13: P1 s3 #1042 @250.05 behind");

    venue.stop();
    EXPECT_EQ(venue.feed.waiting(), "add 1 #1040 B 100@100 | add 1 #1041 B 100@101 | add 1 #1042 S 300@250.05");
    EXPECT_EQ(venue.commentary(), bench.armed_line() + "\n" + hello_alice);
    EXPECT_EQ(venue.truth(),
              lines({R"({"t":*,"ev":"new","cl":"b1","oid":1040,"symbol":"AAPL","side":"B","qty":100,"px":100,)"
                     R"("cum":0,"leaves":0,"last_qty":0,"text":""})",
                     R"({"t":*,"ev":"new","cl":"b2","oid":1041,"symbol":"AAPL","side":"B","qty":100,"px":101,)"
                     R"("cum":0,"leaves":0,"last_qty":0,"text":""})",
                     R"({"t":*,"ev":"reject","cl":"s3","oid":0,"symbol":"AAPL","side":"S","qty":300,"px":250.05,)"
                     R"("cum":0,"leaves":0,"last_qty":0,"text":"bench:scripted_reject"})",
                     R"({"t":*,"ev":"new","cl":"s3","oid":1042,"symbol":"AAPL","side":"S","qty":300,"px":250.05,)"
                     R"("cum":0,"leaves":0,"last_qty":0,"text":""})"}));
    EXPECT_TRUE(
        venue.process.says("bench: stats orders=4 accepts=3 fills=0 partials=0 cancels=0 replaces=0 rejects=1 "));
}

TEST(LiveScenario, CancelsEverySecondRestingOrderUnasked) {
    const model::Bench bench = scripted(model::Bench::unsolicited_cancel, 2);
    LiveVenue venue({}, scenario(bench.scenario()));
    User alice(venue, "alice");
    alice.send(buy("b1").shares(100).at("100.00"));
    alice.next(3);
    const auto before = steady_clock::now();
    alice.send(sell("s2").shares(300).at("250.05"));
    EXPECT_EQ(alice.next(4),
              "6: NR s2 accepted #1041 300@250.05 | 7: O1 s2 #1041 sell 300@250.05 tif D type 1 | "
              "8: P1 s2 #1041 @250.05 behind | 9: XN s2 #1041 leaves 0 'H'");
    EXPECT_GE(steady_clock::now() - before, milliseconds(299));  // 300 of a clock of whole ones
    EXPECT_TRUE(venue.process.says("bench: unsolicited cancel of s2 (helpdesk; the client must mark it cancelled)\n"));

    // An order that has ended by then is left in peace: a second of silence goes by without another word.
    alice.send(buy("b3").shares(100).at("100.00"));
    send_together(alice, {buy("b4").shares(100).at("100.00").bytes(), cancel("b4").bytes()});
    alice.next(7);
    EXPECT_EQ(alice.next(), "17: XN b4 #1043 leaves 0 'U'");
    const auto heartbeat = alice.next_packet_or_heartbeat();
    ASSERT_TRUE(heartbeat);
    EXPECT_EQ(packet_text(*heartbeat), "heartbeat");

    venue.stop();
    EXPECT_EQ(venue.feed.waiting(),
              "add 1 #1040 B 100@100 | add 1 #1041 S 300@250.05 | delete 1 #1041 | add 1 #1042 B 100@100 | "
              "add 1 #1043 B 100@100 | delete 1 #1043");
    EXPECT_EQ(venue.commentary(),
              bench.armed_line() + "\n" + hello_alice +
                  "bench: unsolicited cancel of s2 (helpdesk; the client must mark it cancelled)\n");
    EXPECT_EQ(venue.truth(),
              lines({R"({"t":*,"ev":"new","cl":"b1","oid":1040,"symbol":"AAPL","side":"B","qty":100,"px":100,)"
                     R"("cum":0,"leaves":0,"last_qty":0,"text":""})",
                     R"({"t":*,"ev":"new","cl":"s2","oid":1041,"symbol":"AAPL","side":"S","qty":300,"px":250.05,)"
                     R"("cum":0,"leaves":0,"last_qty":0,"text":""})",
                     R"({"t":*,"ev":"cancel","cl":"s2","oid":1041,"symbol":"AAPL","side":"S","qty":300,"px":250.05,)"
                     R"("cum":0,"leaves":0,"last_qty":0,"text":"unsolicited"})",
                     R"({"t":*,"ev":"new","cl":"b3","oid":1042,"symbol":"AAPL","side":"B","qty":100,"px":100,)"
                     R"("cum":0,"leaves":0,"last_qty":0,"text":""})",
                     R"({"t":*,"ev":"new","cl":"b4","oid":1043,"symbol":"AAPL","side":"B","qty":100,"px":100,)"
                     R"("cum":0,"leaves":0,"last_qty":0,"text":""})",
                     R"({"t":*,"ev":"cancel","cl":"b4","oid":1043,"symbol":"AAPL","side":"B","qty":100,"px":100,)"
                     R"("cum":0,"leaves":0,"last_qty":0,"text":"cancel"})"}));
    EXPECT_TRUE(venue.process.says(" cancels=2 replaces=0 rejects=0 replace_rejects=0 unsolicited_cancels=1 "));
}

TEST(LiveScenario, ThatIsEmptyIsNone) {
    LiveVenue venue({}, scenario(""));
    EXPECT_EQ(venue.process.said().find("scenario"), std::string::npos);
}

TEST(LiveScenario, DropsTheClientOnceAfterItsSecondOrder) {
    model::Bench bench;
    bench.disconnect_after = 2;
    LiveVenue venue({}, scenario(bench.scenario()));
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
              bench.armed_line() + "\n" + hello_alice +
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
