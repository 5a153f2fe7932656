// Users come, are turned away, go, and come back for what they have missed.
#include "session/esesm.h"
#include "support/scene.h"
#include "system/live_venue.h"

namespace kavo::test {
namespace {

TEST(LiveLogin, IsWelcomedWithTheSessionAndEverySymbol) {
    LiveVenue venue({"--session", "7", "--symbols", ",AAPL:5,SPY"});
    WireClient alice(venue.port());
    alice.log_in(login("alice"));
    EXPECT_EQ(alice.next(), "login accepted, engine 7, highest 0");
    const auto start_of_session = alice.next_packet();
    ASSERT_TRUE(start_of_session);
    EXPECT_EQ(packet_text(*start_of_session), "1: SN MEO2.7 session 7");
    // Sequenced data always comes from engine 1, whatever number the session has.
    EXPECT_EQ(get(*start_of_session, esesm::layout::sequenced_packet::matching_engine_id), 1);
    EXPECT_EQ(alice.next(3), "2: SU 1  Q | 3: SU 2 AAPL Q | 4: SU 3 SPY P");

    venue.stop();
    EXPECT_EQ(venue.commentary(),
              "bench: login alice requested seq 0 (stream next 1): accepted at 1, replaying 0 message(s)\n");
    EXPECT_TRUE(venue.process.says("[kavo_me] client connected (fd "));
    EXPECT_TRUE(venue.process.says("[kavo_me] login alice accepted\n"));
}

TEST(LiveLogin, AfterAReconnectReplaysFromWhereTheUserAsks) {
    LiveVenue venue;
    {
        User alice(venue, "alice");
        alice.send(buy("b1").shares(300).at("100.00"));
        alice.next(3);
        alice.send_packet('X');
        EXPECT_EQ(alice.next(), "closed");  // without a goodbye
    }
    const auto told = [&](std::uint64_t requested_sequence, std::size_t packets) {
        WireClient alice(venue.port());
        alice.log_in(login("alice", requested_sequence));
        const std::string answer = alice.next(packets);
        alice.send(cancel("b0"));  // what comes next shows that the replay is over
        return answer + " | " + alice.next();
    };
    EXPECT_EQ(told(4, 4),
              "login accepted, engine 1, highest 5 | 4: O1 b1 #1040 buy 300@100 tif D type 1 | "
              "5: P1 b1 #1040 @100 behind | replay complete | 6: CR xb0 of b0 rejected 'D'");
    EXPECT_EQ(told(7, 1), "login accepted, engine 1, highest 6 | 7: CR xb0 of b0 rejected 'D'");
    EXPECT_EQ(told(0, 1), "login accepted, engine 1, highest 7 | 8: CR xb0 of b0 rejected 'D'");
    EXPECT_EQ(told(1, 10),
              "login accepted, engine 1, highest 8 | 1: SN MEO2.7 session 1 | 2: SU 1 AAPL Q | "
              "3: NR b1 accepted #1040 300@100 | 4: O1 b1 #1040 buy 300@100 tif D type 1 | "
              "5: P1 b1 #1040 @100 behind | 6: CR xb0 of b0 rejected 'D' | 7: CR xb0 of b0 rejected 'D' | "
              "8: CR xb0 of b0 rejected 'D' | replay complete | 9: CR xb0 of b0 rejected 'D'");

    venue.stop();
    EXPECT_TRUE(
        venue.process.says("bench: login alice requested seq 4 (stream next 6): accepted at 4, "
                           "replaying 2 message(s)\n"));
    EXPECT_TRUE(
        venue.process.says("bench: login alice requested seq 7 (stream next 7): accepted at 7, "
                           "replaying 0 message(s)\n"));
    EXPECT_TRUE(venue.process.says(" logins=5 replays=2 replayed=10 next_seq="));
}

TEST(LiveLogin, IsTakenAtOnceWhenTheUserHasJustGone) {
    LiveVenue venue;
    std::uint64_t expected = 3;
    User(venue, "alice").disconnect();
    for (int i = 0; i < 25; ++i) {
        WireClient alice(venue.port());
        alice.log_in(login("alice", expected));
        EXPECT_EQ(alice.next(), "login accepted, engine 1, highest " + std::to_string(expected - 1));
        alice.send(cancel("b1"));
        EXPECT_EQ(alice.next(), std::to_string(expected++) + ": CR xb1 of b1 rejected 'D'");
    }
}

TEST(LiveDisconnect, WithCancelAllOpenOrdersTakesThemOffAndReportsThemByReplay) {
    LiveVenue venue({"--acod"});
    User bob(venue, "bob");
    bob.send(buy("b1").shares(100).at("100.00"));
    bob.next(3);
    {
        User alice(venue, "alice");
        alice.send(buy("a1").shares(300).at("100.00"));
        alice.send(buy("a2").shares(200).at("99.00"));
        alice.next(6);
    }
    EXPECT_EQ(venue.feed.next(5),
              "add 1 #1040 B 100@100 | add 1 #1041 B 300@100 | add 1 #1042 B 200@99 | "
              "delete 1 #1041 | delete 1 #1042");
    WireClient alice(venue.port());
    alice.log_in(login("alice", 9));
    EXPECT_EQ(alice.next(4),
              "login accepted, engine 1, highest 10 | 9: XN a1 #1041 leaves 0 'D' | "
              "10: XN a2 #1042 leaves 0 'D' | replay complete");
    bob.send(cancel("b1"));  // untouched
    EXPECT_EQ(bob.next(2), "6: CR xb1 of b1 accepted #1040 | 7: XN b1 #1040 leaves 0 'U'");

    EXPECT_TRUE(venue.truth().ends_with(
        lines({R"({"t":*,"ev":"cancel","cl":"a1","oid":1041,"symbol":"AAPL","side":"B","qty":300,"px":100,)"
               R"("cum":0,"leaves":0,"last_qty":0,"text":"disconnect"})",
               R"({"t":*,"ev":"cancel","cl":"a2","oid":1042,"symbol":"AAPL","side":"B","qty":200,"px":99,)"
               R"("cum":0,"leaves":0,"last_qty":0,"text":"disconnect"})",
               R"({"t":*,"ev":"cancel","cl":"b1","oid":1040,"symbol":"AAPL","side":"B","qty":100,"px":100,)"
               R"("cum":0,"leaves":0,"last_qty":0,"text":"cancel"})"})))
        << venue.truth();
    EXPECT_EQ(venue.commentary(),
              "bench: login bob requested seq 0 (stream next 1): accepted at 1, replaying 0 message(s)\n"
              "bench: login alice requested seq 0 (stream next 1): accepted at 1, replaying 0 message(s)\n"
              "bench: client alice disconnected\n"
              "bench: ACOD (Cancel All Open Orders): cancelled 2 open order(s) of alice on disconnect\n"
              "bench: login alice requested seq 9 (stream next 11): accepted at 9, replaying 2 message(s)\n");
}

}  // namespace
}  // namespace kavo::test
