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

// Everything is wrong with the login at first, and each try has one thing put right.
TEST(LiveLogin, IsRejectedForTheFirstThingThatIsWrong) {
    LiveVenue venue;
    User first(venue, "alice");
    Login login{.session_protocol = "1.1",
                .username = "",
                .computer_id = "",
                .application_protocol = "DoM1.3",
                .matching_engine_count = 0,
                .matching_engine_id = 9,
                .requested_sequence = 5};
    const auto answer = [&] {
        WireClient client(venue.port());
        client.log_in(login);
        return client.next(3);
    };
    EXPECT_EQ(answer(),
              "login rejected 'I', engine 1, highest 0 | goodbye 'A' incompatible session protocol version | closed");
    login.session_protocol = "1.0";
    EXPECT_EQ(answer(),
              "login rejected 'A', engine 1, highest 0 | "
              "goodbye 'A' incompatible application protocol version | closed");
    login.application_protocol = "MEO";
    EXPECT_EQ(answer(),
              "login rejected 'C', engine 1, highest 0 | goodbye 'A' invalid number of matching engines | closed");
    login.matching_engine_count = 2;
    EXPECT_EQ(answer(),
              "login rejected 'C', engine 1, highest 0 | goodbye 'A' invalid number of matching engines | closed");
    login.matching_engine_count = 1;
    EXPECT_EQ(answer(), "login rejected 'X', engine 1, highest 0 | goodbye 'A' invalid username/computer ID | closed");
    login.username = "alice";
    EXPECT_EQ(answer(), "login rejected 'X', engine 1, highest 2 | goodbye 'A' invalid username/computer ID | closed");
    login.computer_id = "desk2";
    EXPECT_EQ(answer(), "login rejected 'L', engine 1, highest 2 | goodbye 'A' client already logged in | closed");

    first.send_packet('X');
    EXPECT_EQ(first.next(), "closed");
    WireClient alice(venue.port());  // from here on the connection stays
    alice.log_in(login);
    EXPECT_EQ(alice.next(), "login rejected 'S', engine 1, highest 2");
    login.matching_engine_id = 1;
    alice.log_in(login);
    EXPECT_EQ(alice.next(), "login rejected 'N', engine 1, highest 2");
    login.requested_sequence = 3;
    alice.log_in(login);
    EXPECT_EQ(alice.next(), "login accepted, engine 1, highest 2");
    alice.send(cancel("b1"));
    EXPECT_EQ(alice.next(), "3: CR xb1 of b1 rejected 'D'");

    venue.stop();
    EXPECT_EQ(
        venue.commentary(),
        "bench: login alice requested seq 0 (stream next 1): accepted at 1, replaying 0 message(s)\n"
        "bench: login  REJECTED (I: incompatible session protocol version; requested seq 0, stream next 1)\n"
        "bench: login  REJECTED (A: incompatible application protocol version; requested seq 0, stream next 1)\n"
        "bench: login  REJECTED (C: invalid number of matching engines; requested seq 0, stream next 1)\n"
        "bench: login  REJECTED (C: invalid number of matching engines; requested seq 5, stream next 1)\n"
        "bench: login  REJECTED (X: invalid username/computer ID; requested seq 5, stream next 1)\n"
        "bench: login alice REJECTED (X: invalid username/computer ID; requested seq 5, stream next 3)\n"
        "bench: login alice REJECTED (L: client already logged in; requested seq 5, stream next 3)\n"
        "bench: client alice logged out\n"
        "bench: ACOD off (Do Not Cancel All Open Orders): 0 open order(s) of alice stay on the book\n"
        "bench: login alice REJECTED (S: invalid trading session requested; requested seq 5, stream next 3)\n"
        "bench: login alice REJECTED (N: invalid start sequence number requested; requested seq 5, stream next 3)\n"
        "bench: login alice requested seq 3 (stream next 3): accepted at 3, replaying 0 message(s)\n"
        "bench: stale cancel for b1 (unknown client order id)\n");
    EXPECT_TRUE(venue.process.says(" logins=2 replays=0 replayed=0 next_seq="));
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

TEST(LiveLogin, OnAConnectionThatIsLoggedInReplaysAgain) {
    LiveVenue venue;
    User alice(venue, "alice");
    alice.log_in(login("alice", 2));
    EXPECT_EQ(alice.next(3), "login accepted, engine 1, highest 2 | 2: SU 1 AAPL Q | replay complete");
    alice.log_in(login("alice", 4));
    EXPECT_EQ(alice.next(), "login rejected 'N', engine 1, highest 2");
    alice.send(cancel("b1"));  // still logged in
    EXPECT_EQ(alice.next(), "3: CR xb1 of b1 rejected 'D'");
}

TEST(LiveLogin, MayChangeTheUserOfAConnectionWhoseOrdersStayWithIt) {
    LiveVenue venue;
    venue.empty_the_books();
    User connection(venue, "alice");
    connection.send(buy("a1").shares(300).at("190.00"));
    connection.next(3);
    connection.log_in(login("carol"));
    EXPECT_EQ(connection.next(3), "login accepted, engine 1, highest 0 | 1: SN MEO2.7 session 1 | 2: SU 1 AAPL Q");

    WireClient alice(venue.port());  // the name is free again
    alice.log_in(login("alice"));
    EXPECT_EQ(alice.next(), "login accepted, engine 1, highest 5");
    alice.send(sell("a2").shares(100).at("190.00"));
    EXPECT_EQ(alice.next(3),
              "6: NR a2 accepted #1043 100@190 | 7: O1 a2 #1043 sell 100@190 tif D type 1 | "
              "8: E1 a2 100@190 sell removed RC match 41 exec 42");
    EXPECT_EQ(connection.next(), "3: E1 a1 100@190 buy added AC match 41 exec 41");
    connection.send(cancel("a1"));
    EXPECT_EQ(connection.next(2), "4: CR xa1 of a1 accepted #1042 | 5: XN a1 #1042 leaves 0 'U'");
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

TEST(LiveDisconnect, WithoutItLeavesTheOrdersOnTheBookWhereTheyTradeOn) {
    LiveVenue venue;
    venue.empty_the_books();
    User bob(venue, "bob");
    {
        User alice(venue, "alice");
        alice.send(buy("a1").shares(300).at("190.00"));
        alice.next(3);
    }
    EXPECT_TRUE(
        venue.process.says("bench: client alice disconnected\n"
                           "bench: ACOD off (Do Not Cancel All Open Orders): 1 open order(s) of alice stay on "
                           "the book\n"));
    bob.send(sell("b1").shares(100).at("190.00"));
    EXPECT_EQ(bob.next(3),
              "3: NR b1 accepted #1043 100@190 | 4: O1 b1 #1043 sell 100@190 tif D type 1 | "
              "5: E1 b1 100@190 sell removed RC match 41 exec 42");
    WireClient alice(venue.port());
    alice.log_in(login("alice", 6));
    EXPECT_EQ(alice.next(3),
              "login accepted, engine 1, highest 6 | "
              "6: E1 a1 100@190 buy added AC match 41 exec 41 | replay complete");

    // The order belongs to the connection that entered it: the new one may not cancel it, and hears of its fills at the
    // next login only, while their numbers go on.
    alice.send(cancel("a1"));
    EXPECT_EQ(alice.next(), "7: CR xa1 of a1 rejected 'D'");
    bob.send(sell("b2").shares(200).at("190.00"));
    EXPECT_EQ(bob.next(3),
              "6: NR b2 accepted #1044 200@190 | 7: O1 b2 #1044 sell 200@190 tif D type 1 | "
              "8: E1 b2 200@190 sell removed RC match 42 exec 44");
    alice.send(cancel("a1"));
    EXPECT_EQ(alice.next(), "9: CR xa1 of a1 rejected 'D'");
    alice.log_in(login("alice", 8));
    EXPECT_EQ(alice.next(4),
              "login accepted, engine 1, highest 9 | 8: E1 a1 200@190 buy added AC match 42 exec 43 | "
              "9: CR xa1 of a1 rejected 'D' | replay complete");
    EXPECT_EQ(venue.feed.next(3),
              "add 1 #1042 B 300@190 | executed 1 #1042 100@190 match 41 resting B | "
              "executed 1 #1042 200@190 match 42 resting B");
}

// The connection ends, but nobody counts it as lost: its orders stay even where all of a lost one's are cancelled.
TEST(LiveDisconnect, ByASecondLoginThatIsRejectedLeavesTheOrdersAlone) {
    LiveVenue venue({"--acod"});
    venue.empty_the_books();
    User alice(venue, "alice");
    alice.send(buy("a1").shares(300).at("190.00"));
    alice.next(3);
    alice.log_in(login(""));
    EXPECT_EQ(alice.next(3),
              "login rejected 'X', engine 1, highest 0 | goodbye 'A' invalid username/computer ID | closed");
    User bob(venue, "bob");
    bob.send(sell("b1").shares(300).at("190.00"));
    EXPECT_EQ(bob.next(3),
              "3: NR b1 accepted #1043 300@190 | 4: O1 b1 #1043 sell 300@190 tif D type 1 | "
              "5: E1 b1 300@190 sell removed RC match 41 exec 42");
    WireClient again(venue.port());
    again.log_in(login("alice", 6));
    EXPECT_EQ(again.next(3),
              "login accepted, engine 1, highest 6 | 6: E1 a1 300@190 buy added AC match 41 exec 41 | "
              "replay complete");
    EXPECT_EQ(venue.process.said().find("of alice on disconnect"), std::string::npos);
}

}  // namespace
}  // namespace kavo::test
