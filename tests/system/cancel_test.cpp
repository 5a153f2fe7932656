// Cancels, those that come too late among them.
#include "support/scene.h"
#include "system/live_venue.h"

namespace kavo::test {
namespace {

// Lets two whole seconds pass: as many heartbeats as the venue sends into them.
void wait_two_heartbeats(WireClient& client) {
    for (int heartbeats = 0; heartbeats < 2; ++heartbeats) {
        const auto packet = client.next_packet_or_heartbeat();
        ASSERT_TRUE(packet);
        EXPECT_EQ(packet_text(*packet), "heartbeat");
    }
}

TEST(LiveCancel, TakesTheOrderOffTheBook) {
    LiveVenue venue;
    User alice(venue, "alice");
    alice.send(buy("b1").shares(300).at("100.00"));
    alice.send(cancel("b1"));
    EXPECT_EQ(
        alice.next(5),
        "3: NR b1 accepted #1040 300@100 | 4: O1 b1 #1040 buy 300@100 tif D type 1 | 5: P1 b1 #1040 @100 behind | "
        "6: CR xb1 of b1 accepted #1040 | 7: XN b1 #1040 leaves 0 'U'");
    EXPECT_EQ(venue.feed.next(2), "add 1 #1040 B 300@100 | delete 1 #1040");
    EXPECT_EQ(venue.truth(),
              lines({R"({"t":*,"ev":"new","cl":"b1","oid":1040,"symbol":"AAPL","side":"B","qty":300,"px":100,)"
                     R"("cum":0,"leaves":0,"last_qty":0,"text":""})",
                     R"({"t":*,"ev":"cancel","cl":"b1","oid":1040,"symbol":"AAPL","side":"B","qty":300,"px":100,)"
                     R"("cum":0,"leaves":0,"last_qty":0,"text":"cancel"})"}));
}

TEST(LiveCancel, MustComeFromTheOwnerAndNameItsParticipantAndProduct) {
    LiveVenue venue({"--symbols", "AAPL:190.00,MSFT:410.00"});
    User alice(venue, "alice");
    User bob(venue, "bob");
    alice.send(buy("b1").shares(300).at("100.00"));
    EXPECT_EQ(alice.next(), "4: NR b1 accepted #1080 300@100");
    alice.next(2);

    alice.send(cancel("b1").participant("ELSE").product(2));
    EXPECT_EQ(alice.next(), "7: CR xb1 of b1 rejected 'Q' #1080");
    alice.send(cancel("b1").product(2));
    EXPECT_EQ(alice.next(), "8: CR xb1 of b1 rejected 'S' #1080");
    bob.send(cancel("b1"));
    EXPECT_EQ(bob.next(), "4: CR xb1 of b1 rejected 'D'");
    bob.send(cancel("b0").product(3));
    EXPECT_EQ(bob.next(), "5: CR xb0 of b0 rejected 'D'");
    bob.send(cancel("b0").product(2));
    EXPECT_EQ(bob.next(), "6: CR xb0 of b0 rejected 'D'");

    venue.stop();
    EXPECT_EQ(venue.feed.waiting(), "add 1 #1080 B 300@100");
    EXPECT_EQ(venue.truth(),
              lines({R"({"t":*,"ev":"new","cl":"b1","oid":1080,"symbol":"AAPL","side":"B","qty":300,"px":100,)"
                     R"("cum":0,"leaves":0,"last_qty":0,"text":""})",
                     R"({"t":*,"ev":"cancel_reject","cl":"b1","oid":0,"symbol":"AAPL","side":" ","qty":0,"px":0,)"
                     R"("cum":0,"leaves":0,"last_qty":0,"text":"stale"})",
                     R"({"t":*,"ev":"cancel_reject","cl":"b0","oid":0,"symbol":"","side":" ","qty":0,"px":0,)"
                     R"("cum":0,"leaves":0,"last_qty":0,"text":"stale"})",
                     R"({"t":*,"ev":"cancel_reject","cl":"b0","oid":0,"symbol":"MSFT","side":" ","qty":0,"px":0,)"
                     R"("cum":0,"leaves":0,"last_qty":0,"text":"stale"})"}));
    EXPECT_TRUE(venue.process.says("bench: stale cancel for b1 (unknown client order id)\n"));
    EXPECT_TRUE(
        venue.process.says(" cancels=0 replaces=0 rejects=0 replace_rejects=0 unsolicited_cancels=0 "
                           "race_fills=0 late_cancels=0 stale_cancels=3 "));
}

// All of them in one piece, so that no machine is slow enough to make the second cancel stale.
TEST(LiveCancel, IsLateRightAfterTheOrderEndedAndStaleTwoSecondsLater) {
    LiveVenue venue;
    User alice(venue, "alice");
    send_together(alice, {buy("b1").shares(300).at("100.00").bytes(), cancel("b1").bytes(), cancel("b1").bytes(),
                          replace("b1", "b2").shares(100).at("100.00").bytes()});
    alice.next(5);
    EXPECT_EQ(alice.next(2), "8: CR xb1 of b1 rejected 'D' | 9: MR b2 for b1 rejected 'D' #0");
    EXPECT_EQ(venue.process.said().find("stale"), std::string::npos);

    wait_two_heartbeats(alice);
    alice.send(cancel("b1"));
    EXPECT_EQ(alice.next(), "10: CR xb1 of b1 rejected 'D'");
    EXPECT_TRUE(venue.process.says("bench: stale cancel for b1 (closed more than 2 s ago)\n"));
    alice.send(replace("b1", "b2").shares(100).at("100.00"));
    EXPECT_EQ(alice.next(), "11: MR b2 for b1 rejected 'D' #0");
    EXPECT_TRUE(venue.process.says("bench: stale replace for b1\n"));

    const std::string late_and_stale =
        lines({R"({"t":*,"ev":"cancel_reject","cl":"b1","oid":0,"symbol":"AAPL","side":" ","qty":0,"px":0,)"
               R"("cum":0,"leaves":0,"last_qty":0,"text":"late"})",
               R"({"t":*,"ev":"replace_reject","cl":"b2","oid":0,"symbol":"","side":" ","qty":100,"px":100,)"
               R"("cum":0,"leaves":0,"last_qty":0,"text":"late","ref":"b1"})",
               R"({"t":*,"ev":"cancel_reject","cl":"b1","oid":0,"symbol":"AAPL","side":" ","qty":0,"px":0,)"
               R"("cum":0,"leaves":0,"last_qty":0,"text":"stale"})",
               R"({"t":*,"ev":"replace_reject","cl":"b2","oid":0,"symbol":"","side":" ","qty":100,"px":100,)"
               R"("cum":0,"leaves":0,"last_qty":0,"text":"unknown_order","ref":"b1"})"});
    EXPECT_TRUE(venue.truth().ends_with(late_and_stale)) << venue.truth();
    venue.stop();
    EXPECT_TRUE(venue.process.says(" late_cancels=1 stale_cancels=1 "));
}

// Only the maker's side keeps a close time, so the two sides of one trade are answered alike and judged differently.
TEST(LiveCancel, OfAFilledOrderIsLateForTheMakerAndUnknownForTheTaker) {
    LiveVenue venue;
    venue.empty_the_books();
    User alice(venue, "alice");
    alice.send(sell("s1").shares(100).at("190.00"));
    alice.next(3);
    send_together(alice, {buy("b1").shares(100).at("190.00").bytes(), cancel("s1").bytes(), cancel("b1").bytes()});
    EXPECT_EQ(alice.next(6),
              "6: NR b1 accepted #1043 100@190 | 7: O1 b1 #1043 buy 100@190 tif D type 1 | "
              "8: E1 b1 100@190 buy removed RC match 41 exec 42 | 9: CR xs1 of s1 rejected 'D' | "
              "10: CR xb1 of b1 rejected 'D' | 11: E1 s1 100@190 sell added AC match 41 exec 41");
    EXPECT_TRUE(venue.truth().ends_with(
        lines({R"({"t":*,"ev":"cancel_reject","cl":"s1","oid":0,"symbol":"AAPL","side":" ","qty":0,"px":0,)"
               R"("cum":0,"leaves":0,"last_qty":0,"text":"late"})",
               R"({"t":*,"ev":"cancel_reject","cl":"b1","oid":0,"symbol":"AAPL","side":" ","qty":0,"px":0,)"
               R"("cum":0,"leaves":0,"last_qty":0,"text":"stale"})"})))
        << venue.truth();
    venue.stop();
    EXPECT_EQ(venue.process.said().find("stale cancel for s1"), std::string::npos);
    EXPECT_TRUE(venue.process.says("bench: stale cancel for b1 (unknown client order id)\n"));
}

}  // namespace
}  // namespace kavo::test
