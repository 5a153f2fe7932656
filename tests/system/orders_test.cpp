// Orders of real clients: what they are told, what the feed shows and the order truth says, and whom they trade with.
#include "support/scene.h"
#include "system/live_venue.h"

namespace kavo::test {
namespace {

constexpr std::uint16_t attributed = 1 << 8;
constexpr std::uint16_t retail = 2 << 8;

TEST(LiveOrder, ThatMeetsNobodyRestsAndShowsOnTheFeed) {
    LiveVenue venue;
    venue.empty_the_books();
    User alice(venue, "alice");

    alice.send(buy("b1").shares(300).at("189.95"));
    EXPECT_EQ(alice.next(3),
              "3: NR b1 accepted #1042 300@189.95 | 4: O1 b1 #1042 buy 300@189.95 tif D type 1 | "
              "5: P1 b1 #1042 @189.95 touch");
    alice.send(buy("b2").shares(100).at("189.94").flags(attributed));
    EXPECT_EQ(alice.next(3),
              "6: NR b2 accepted #1043 100@189.94 | 7: O1 b2 #1043 buy 100@189.94 tif D type 1 | "
              "8: P1 b2 #1043 @189.94 behind");
    alice.send(sell("s1").shares(200).at("190.05").flags(retail));
    EXPECT_EQ(alice.next(3),
              "9: NR s1 accepted #1044 200@190.05 | 10: O1 s1 #1044 sell 200@190.05 tif D type 1 | "
              "11: P1 s1 #1044 @190.05 touch");

    EXPECT_EQ(venue.feed.next(3),
              "add 1 #1042 B 300@189.95 | add 1 #1043 B 100@189.94 TEST | "
              "add 1 #1044 S 200@190.05 RTAL");
}

TEST(LiveOrder, OfTwoUsersTradeBothWaysAndLeaveWhatDidNotTrade) {
    LiveVenue venue;
    venue.empty_the_books();
    User alice(venue, "alice");
    User bob(venue, "bob");

    alice.send(buy("a1").shares(500).at("190.00"));
    alice.next(3);
    bob.send(sell("b1").shares(200).at("190.00"));
    EXPECT_EQ(bob.next(3),
              "3: NR b1 accepted #1043 200@190 | 4: O1 b1 #1043 sell 200@190 tif D type 1 | "
              "5: E1 b1 200@190 sell removed RC match 41 exec 42");
    EXPECT_EQ(alice.next(), "6: E1 a1 200@190 buy added AC match 41 exec 41");
    bob.send(sell("b1").shares(400).at("189.99"));  // the id of an order that has ended may come again
    EXPECT_EQ(bob.next(4),
              "6: NR b1 accepted #1044 400@189.99 | 7: O1 b1 #1044 sell 400@189.99 tif D type 1 | "
              "8: E1 b1 300@190 sell removed RC match 42 exec 44 | 9: P1 b1 #1044 @189.99 touch");
    EXPECT_EQ(alice.next(), "7: E1 a1 300@190 buy added AC match 42 exec 43");
    alice.send(buy("a2").shares(100).at("190.00"));
    EXPECT_EQ(alice.next(3),
              "8: NR a2 accepted #1045 100@190 | 9: O1 a2 #1045 buy 100@190 tif D type 1 | "
              "10: E1 a2 100@189.99 buy removed RC match 43 exec 46");
    EXPECT_EQ(bob.next(), "10: E1 b1 100@189.99 sell added AC match 43 exec 45");

    venue.stop();
    EXPECT_EQ(venue.feed.waiting(),
              "add 1 #1042 B 500@190 | executed 1 #1042 200@190 match 41 resting B | "
              "executed 1 #1042 300@190 match 42 resting B | add 1 #1044 S 100@189.99 | "
              "executed 1 #1044 100@189.99 match 43 resting S");
}

TEST(LiveOrder, MayTradeWithAnotherOneOfItsOwnUser) {
    LiveVenue venue({"--symbols", "SPY:520.00"});  // listed elsewhere, which the liquidity code shows
    venue.empty_the_books();
    User alice(venue, "alice");

    alice.send(sell("s1").shares(100).at("520.00"));
    alice.next(3);
    alice.send(buy("b1").shares(100).at("520.00"));
    EXPECT_EQ(alice.next(4),
              "6: NR b1 accepted #1043 100@520 | 7: O1 b1 #1043 buy 100@520 tif D type 1 | "
              "8: E1 b1 100@520 buy removed RB match 41 exec 42 | "
              "9: E1 s1 100@520 sell added AB match 41 exec 41");
}

TEST(LiveReplace, TellsTheFeedWhetherItKeptItsPriorityAndQueuesLastEitherWay) {
    LiveVenue venue;
    venue.empty_the_books();
    User alice(venue, "alice");
    User bob(venue, "bob");
    alice.send(buy("b1").shares(300).at("189.95"));
    alice.send(buy("b2").shares(100).at("189.95"));
    alice.next(6);

    alice.send(replace("b1", "b3").shares(200).at("189.95"));
    EXPECT_EQ(alice.next(2),
              "9: MR b3 for b1 accepted #1042 leaves 200 | 10: MN b3 for b1 #1042 200@189.95 leaves 200 tif D");
    bob.send(sell("s1").shares(150).at("189.95"));
    bob.next(4);
    EXPECT_EQ(alice.next(2),
              "11: E1 b2 100@189.95 buy added AC match 41 exec 41 | "
              "12: E1 b3 50@189.95 buy added AC match 42 exec 43");
    alice.send(replace("b3", "b4").shares(300).at("189.95"));  // more than before, less what has been executed
    EXPECT_EQ(alice.next(2),
              "13: MR b4 for b3 accepted #1042 leaves 250 | 14: MN b4 for b3 #1042 300@189.95 leaves 250 tif D");
    alice.send(replace("b4", "b5").shares(300).at("189.96").time_in_force('E'));
    EXPECT_EQ(alice.next(2),
              "15: MR b5 for b4 accepted #1042 leaves 250 | 16: MN b5 for b4 #1042 300@189.96 leaves 250 tif E");

    venue.stop();
    EXPECT_EQ(venue.feed.waiting(),
              "add 1 #1042 B 300@189.95 | add 1 #1043 B 100@189.95 | modify 1 #1042 200@189.95 | "
              "executed 1 #1043 100@189.95 match 41 resting B | executed 1 #1042 50@189.95 match 42 resting B | "
              "modify 1 #1042 250@189.95 lost priority | modify 1 #1042 250@189.96 lost priority");
    EXPECT_EQ(venue.truth(),
              lines({R"({"t":*,"ev":"new","cl":"b1","oid":1042,"symbol":"AAPL","side":"B","qty":300,"px":189.95,)"
                     R"("cum":0,"leaves":0,"last_qty":0,"text":""})",
                     R"({"t":*,"ev":"new","cl":"b2","oid":1043,"symbol":"AAPL","side":"B","qty":100,"px":189.95,)"
                     R"("cum":0,"leaves":0,"last_qty":0,"text":""})",
                     R"({"t":*,"ev":"replace","cl":"b3","oid":1042,"symbol":"AAPL","side":"B","qty":200,"px":189.95,)"
                     R"("cum":0,"leaves":200,"last_qty":0,"text":"","ref":"b1"})",
                     R"({"t":*,"ev":"new","cl":"s1","oid":1044,"symbol":"AAPL","side":"S","qty":150,"px":189.95,)"
                     R"("cum":0,"leaves":0,"last_qty":0,"text":""})",
                     R"({"t":*,"ev":"fill","cl":"b2","oid":1043,"symbol":"AAPL","side":"B","qty":100,"px":189.95,)"
                     R"("cum":100,"leaves":0,"last_qty":100,"text":""})",
                     R"({"t":*,"ev":"fill","cl":"s1","oid":1044,"symbol":"AAPL","side":"S","qty":150,"px":189.95,)"
                     R"("cum":100,"leaves":50,"last_qty":100,"text":""})",
                     R"({"t":*,"ev":"fill","cl":"b3","oid":1042,"symbol":"AAPL","side":"B","qty":200,"px":189.95,)"
                     R"("cum":50,"leaves":150,"last_qty":50,"text":""})",
                     R"({"t":*,"ev":"fill","cl":"s1","oid":1044,"symbol":"AAPL","side":"S","qty":150,"px":189.95,)"
                     R"("cum":150,"leaves":0,"last_qty":50,"text":""})",
                     R"({"t":*,"ev":"replace","cl":"b4","oid":1042,"symbol":"AAPL","side":"B","qty":300,"px":189.95,)"
                     R"("cum":50,"leaves":250,"last_qty":0,"text":"","ref":"b3"})",
                     R"({"t":*,"ev":"replace","cl":"b5","oid":1042,"symbol":"AAPL","side":"B","qty":300,"px":189.96,)"
                     R"("cum":50,"leaves":250,"last_qty":0,"text":"","ref":"b4"})"}));
}

// Lets two whole seconds pass: as many heartbeats as the venue sends into them.
void wait_two_heartbeats(WireClient& client) {
    for (int heartbeats = 0; heartbeats < 2; ++heartbeats) {
        const auto packet = client.next_packet_or_heartbeat();
        ASSERT_TRUE(packet);
        EXPECT_EQ(packet_text(*packet), "heartbeat");
    }
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

}  // namespace
}  // namespace kavo::test
