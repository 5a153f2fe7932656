// Orders mistreated by script: what the clients, the feed, standard error and the order truth log say of each fault.
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

const std::string hello_alice =
    "bench: login alice requested seq 0 (stream next 1): accepted at 1, replaying 0 message(s)\n";
const std::string hello_bob =
    "bench: login bob requested seq 0 (stream next 1): accepted at 1, replaying 0 message(s)\n";

TEST(LiveScenario, RejectsEveryThirdOrderThatIsInOrder) {
    LiveVenue venue({}, scenario("name=moody,reject_every=3"));
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
    EXPECT_EQ(venue.commentary(),
              "bench: scenario 'moody' armed (disconnect after 0 orders, lapse 0 ms, reject every 3, partial every 0, "
              "fill-on-cancel every 0, unsolicited cancel every 0, replace reject every 0)\n" +
                  hello_alice);
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

// The makers of the first and the third order that a trade would empty are filled whole.
TEST(LiveScenario, CutsEverySecondCompleteFillForTheMakerAlone) {
    LiveVenue venue({}, scenario("name=half,partial_fill_every=2"));
    venue.empty_the_books();
    User alice(venue, "alice");
    User bob(venue, "bob");
    alice.send(sell("s1").shares(100).at("190.00"));
    alice.send(sell("s2").shares(300).at("190.01"));
    alice.next(6);

    bob.send(buy("b1").shares(400).at("190.01"));
    EXPECT_EQ(bob.next(4),
              "3: NR b1 accepted #1044 400@190.01 | 4: O1 b1 #1044 buy 400@190.01 tif D type 1 | "
              "5: E1 b1 100@190 buy removed RC match 41 exec 42 | 6: E1 b1 300@190.01 buy removed RC match 42 exec 44");
    EXPECT_EQ(alice.next(2),
              "9: E1 s1 100@190 sell added AC match 41 exec 41 | "
              "10: E1 s2 100@190.01 sell added AC match 42 exec 43");
    bob.send(buy("b2").shares(200).at("190.01"));  // what s2 still has
    EXPECT_EQ(bob.next(3),
              "7: NR b2 accepted #1045 200@190.01 | 8: O1 b2 #1045 buy 200@190.01 tif D type 1 | "
              "9: E1 b2 200@190.01 buy removed RC match 43 exec 46");
    EXPECT_EQ(alice.next(), "11: E1 s2 200@190.01 sell added AC match 43 exec 45");

    venue.stop();
    EXPECT_EQ(venue.feed.waiting(),
              "add 1 #1042 S 100@190 | add 1 #1043 S 300@190.01 | executed 1 #1042 100@190 match 41 resting S | "
              "executed 1 #1043 100@190.01 match 42 resting S | executed 1 #1043 200@190.01 match 43 resting S");
    EXPECT_EQ(venue.commentary(),
              "bench: scenario 'half' armed (disconnect after 0 orders, lapse 0 ms, reject every 0, partial every 2, "
              "fill-on-cancel every 0, unsolicited cancel every 0, replace reject every 0)\n" +
                  hello_alice + hello_bob + "bench: partial fill of s2: 100 of 300\n");
    EXPECT_EQ(venue.truth(),
              lines({R"({"t":*,"ev":"new","cl":"s1","oid":1042,"symbol":"AAPL","side":"S","qty":100,"px":190,)"
                     R"("cum":0,"leaves":0,"last_qty":0,"text":""})",
                     R"({"t":*,"ev":"new","cl":"s2","oid":1043,"symbol":"AAPL","side":"S","qty":300,"px":190.01,)"
                     R"("cum":0,"leaves":0,"last_qty":0,"text":""})",
                     R"({"t":*,"ev":"new","cl":"b1","oid":1044,"symbol":"AAPL","side":"B","qty":400,"px":190.01,)"
                     R"("cum":0,"leaves":0,"last_qty":0,"text":""})",
                     R"({"t":*,"ev":"fill","cl":"s1","oid":1042,"symbol":"AAPL","side":"S","qty":100,"px":190,)"
                     R"("cum":100,"leaves":0,"last_qty":100,"text":""})",
                     R"({"t":*,"ev":"fill","cl":"b1","oid":1044,"symbol":"AAPL","side":"B","qty":400,"px":190.01,)"
                     R"("cum":100,"leaves":300,"last_qty":100,"text":""})",
                     R"({"t":*,"ev":"fill","cl":"s2","oid":1043,"symbol":"AAPL","side":"S","qty":300,"px":190.01,)"
                     R"("cum":100,"leaves":200,"last_qty":100,"text":""})",
                     R"({"t":*,"ev":"fill","cl":"b1","oid":1044,"symbol":"AAPL","side":"B","qty":400,"px":190.01,)"
                     R"("cum":400,"leaves":0,"last_qty":300,"text":""})",
                     R"({"t":*,"ev":"new","cl":"b2","oid":1045,"symbol":"AAPL","side":"B","qty":200,"px":190.01,)"
                     R"("cum":0,"leaves":0,"last_qty":0,"text":""})",
                     R"({"t":*,"ev":"fill","cl":"s2","oid":1043,"symbol":"AAPL","side":"S","qty":300,"px":190.01,)"
                     R"("cum":300,"leaves":0,"last_qty":200,"text":""})",
                     R"({"t":*,"ev":"fill","cl":"b2","oid":1045,"symbol":"AAPL","side":"B","qty":200,"px":190.01,)"
                     R"("cum":200,"leaves":0,"last_qty":200,"text":""})"}));
    // Forty fills and two cancels emptied the books.
    EXPECT_TRUE(venue.process.says("bench: stats orders=6 accepts=6 fills=46 partials=1 cancels=2 "));
}

// A market order comes back for what the cut left behind, and so takes more than the maker ever gave.
TEST(LiveScenario, CutsAMakerDownToHalfOfItsRoundLots) {
    LiveVenue venue({}, scenario("partial_fill_every=1"));
    venue.empty_the_books();
    User alice(venue, "alice");
    User bob(venue, "bob");
    alice.send(sell("s1").shares(250).at("190.00"));
    alice.send(sell("s2").shares(1).at("191.00"));
    alice.next(6);
    bob.send(buy("b1").shares(400).market());
    // 250 is cut to 100, so 150 are left for the other 150 of the order; these are cut to 75, and the order is served.
    EXPECT_EQ(bob.next(4),
              "3: NR b1 accepted #1044 400@0 | 4: O1 b1 #1044 buy 400@0 tif D type 2 | "
              "5: E1 b1 250@190 buy removed RC match 41 exec 42 | 6: E1 b1 150@190 buy removed RC match 42 exec 44");
    EXPECT_EQ(alice.next(2),
              "9: E1 s1 100@190 sell added AC match 41 exec 41 | "
              "10: E1 s1 75@190 sell added AC match 42 exec 43");
    bob.send(sell("s3").shares(1).at("192.00"));
    bob.next(3);
    bob.send(buy("b2").shares(75).at("191.00"));  // 37 of 75
    EXPECT_EQ(bob.next(3),
              "10: NR b2 accepted #1046 75@191 | 11: O1 b2 #1046 buy 75@191 tif D type 1 | "
              "12: E1 b2 75@190 buy removed RC match 43 exec 46");
    EXPECT_EQ(alice.next(), "11: E1 s1 37@190 sell added AC match 43 exec 45");
    alice.send(cancel("s1"));
    alice.next(2);
    bob.send(buy("b3").shares(1).at("191.00"));  // a single share cannot be cut
    EXPECT_EQ(bob.next(3),
              "13: NR b3 accepted #1047 1@191 | 14: O1 b3 #1047 buy 1@191 tif D type 1 | "
              "15: E1 b3 1@191 buy removed RC match 44 exec 48");
    EXPECT_EQ(alice.next(), "14: E1 s2 1@191 sell added AC match 44 exec 47");

    venue.stop();
    EXPECT_TRUE(
        venue.commentary().ends_with("bench: partial fill of s1: 100 of 250\n"
                                     "bench: partial fill of s1: 75 of 150\n"
                                     "bench: partial fill of s1: 37 of 75\n"));
}

TEST(LiveScenario, LetsEverySecondCancelLoseTheRaceToAFill) {
    LiveVenue venue({}, scenario("name=race,fill_on_cancel_every=2"));
    User alice(venue, "alice");
    alice.send(buy("b1").shares(100).at("100.00"));
    alice.send(buy("b2").shares(200).at("101.05"));
    alice.next(6);
    alice.send(cancel("b1"));
    alice.send(cancel("b2").participant("ELSE"));  // could not have been accepted, so it is no runner in any race
    EXPECT_EQ(alice.next(3),
              "9: CR xb1 of b1 accepted #1040 | 10: XN b1 #1040 leaves 0 'U' | "
              "11: CR xb2 of b2 rejected 'Q' #1041");
    send_together(alice, {cancel("b2").bytes(), cancel("b2").bytes()});
    EXPECT_EQ(alice.next(3),
              "12: E1 b2 200@101.05 buy added AC match 1 exec 1 | 13: CR xb2 of b2 rejected 'D' | "
              "14: CR xb2 of b2 rejected 'D'");

    venue.stop();
    EXPECT_EQ(venue.feed.waiting(),
              "add 1 #1040 B 100@100 | add 1 #1041 B 200@101.05 | delete 1 #1040 | "
              "executed 1 #1041 200@101.05 match 1 resting B");
    EXPECT_EQ(venue.commentary(),
              "bench: scenario 'race' armed (disconnect after 0 orders, lapse 0 ms, reject every 0, partial every 0, "
              "fill-on-cancel every 2, unsolicited cancel every 0, replace reject every 0)\n" +
                  hello_alice +
                  "bench: cancel of b2 loses the race to a fill (executed in full; the cancel is rejected 'D')\n");
    EXPECT_EQ(venue.truth(),
              lines({R"({"t":*,"ev":"new","cl":"b1","oid":1040,"symbol":"AAPL","side":"B","qty":100,"px":100,)"
                     R"("cum":0,"leaves":0,"last_qty":0,"text":""})",
                     R"({"t":*,"ev":"new","cl":"b2","oid":1041,"symbol":"AAPL","side":"B","qty":200,"px":101.05,)"
                     R"("cum":0,"leaves":0,"last_qty":0,"text":""})",
                     R"({"t":*,"ev":"cancel","cl":"b1","oid":1040,"symbol":"AAPL","side":"B","qty":100,"px":100,)"
                     R"("cum":0,"leaves":0,"last_qty":0,"text":"cancel"})",
                     R"({"t":*,"ev":"fill","cl":"b2","oid":1041,"symbol":"AAPL","side":"B","qty":200,"px":101.05,)"
                     R"("cum":200,"leaves":0,"last_qty":200,"text":""})",
                     R"({"t":*,"ev":"cancel_reject","cl":"b2","oid":0,"symbol":"AAPL","side":" ","qty":0,"px":0,)"
                     R"("cum":0,"leaves":0,"last_qty":0,"text":"late"})"}));
    const model::Bench counted{
        .orders = 2, .accepts = 2, .fills = 1, .cancels = 1, .race_fills = 1, .late_cancels = 1, .logins = 1};
    EXPECT_TRUE(venue.process.says("bench: stats " + counted.statistics() + " next_seq="));
}

// Everything that waits for the client comes out before the reject of its cancel, the fill of another order too.
TEST(LiveScenario, ReportsEarlierFillsBeforeTheLostRace) {
    LiveVenue venue({}, scenario("fill_on_cancel_every=1"));
    venue.empty_the_books();
    User alice(venue, "alice");
    alice.send(sell("s1").shares(100).at("190.00"));
    alice.send(buy("b1").shares(100).at("189.00"));
    alice.next(6);
    send_together(alice, {buy("b2").shares(100).at("190.00").bytes(), cancel("b1").bytes()});
    EXPECT_EQ(alice.next(6),
              "9: NR b2 accepted #1044 100@190 | 10: O1 b2 #1044 buy 100@190 tif D type 1 | "
              "11: E1 b2 100@190 buy removed RC match 41 exec 42 | 12: E1 s1 100@190 sell added AC match 41 exec 41 | "
              "13: E1 b1 100@189 buy added AC match 42 exec 43 | 14: CR xb1 of b1 rejected 'D'");
}

TEST(LiveScenario, CancelsEverySecondRestingOrderUnasked) {
    LiveVenue venue({}, scenario("name=desk,unsolicited_cancel_every=2"));
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
              "bench: scenario 'desk' armed (disconnect after 0 orders, lapse 0 ms, reject every 0, partial every 0, "
              "fill-on-cancel every 0, unsolicited cancel every 2, replace reject every 0)\n" +
                  hello_alice + "bench: unsolicited cancel of s2 (helpdesk; the client must mark it cancelled)\n");
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

TEST(LiveScenario, RejectsEverySecondReplaceAndLeavesTheOrderAsItWas) {
    LiveVenue venue({}, scenario("name=stiff,replace_reject_every=2"));
    User alice(venue, "alice");
    alice.send(buy("b1").shares(300).at("100.00"));
    alice.next(3);
    alice.send(replace("b1", "b2").shares(200).at("100.00"));
    alice.send(replace("b2", "b3").shares(0).at("101.00"));  // invalid, and so no replace that counts
    alice.send(replace("b2", "b3").shares(100).at("101.05"));
    alice.send(cancel("b2"));
    EXPECT_EQ(alice.next(6),
              "6: MR b2 for b1 accepted #1040 leaves 200 | 7: MN b2 for b1 #1040 200@100 leaves 200 tif D | "
              "8: MR b3 for b2 rejected 'K' #1040 | 9: MR b3 for b2 rejected 'H' #1040 | "
              "10: CR xb2 of b2 accepted #1040 | 11: XN b2 #1040 leaves 0 'U'");

    venue.stop();
    EXPECT_EQ(venue.feed.waiting(), "add 1 #1040 B 300@100 | modify 1 #1040 200@100 | delete 1 #1040");
    EXPECT_EQ(venue.commentary(),
              "bench: scenario 'stiff' armed (disconnect after 0 orders, lapse 0 ms, reject every 0, partial every 0, "
              "fill-on-cancel every 0, unsolicited cancel every 0, replace reject every 2)\n" +
                  hello_alice + "bench: scripted replace reject for b2 -> b3 (the order stands as it was)\n");
    EXPECT_EQ(
        venue.truth(),
        lines({R"({"t":*,"ev":"new","cl":"b1","oid":1040,"symbol":"AAPL","side":"B","qty":300,"px":100,)"
               R"("cum":0,"leaves":0,"last_qty":0,"text":""})",
               R"({"t":*,"ev":"replace","cl":"b2","oid":1040,"symbol":"AAPL","side":"B","qty":200,"px":100,)"
               R"("cum":0,"leaves":200,"last_qty":0,"text":"","ref":"b1"})",
               R"({"t":*,"ev":"replace_reject","cl":"b3","oid":1040,"symbol":"AAPL","side":"B","qty":0,"px":101,)"
               R"("cum":0,"leaves":0,"last_qty":0,"text":"invalid","ref":"b2"})",
               R"({"t":*,"ev":"replace_reject","cl":"b3","oid":1040,"symbol":"AAPL","side":"B","qty":100,"px":101.05,)"
               R"("cum":0,"leaves":0,"last_qty":0,"text":"bench:scripted_replace_reject","ref":"b2"})",
               R"({"t":*,"ev":"cancel","cl":"b2","oid":1040,"symbol":"AAPL","side":"B","qty":200,"px":100,)"
               R"("cum":0,"leaves":0,"last_qty":0,"text":"cancel"})"}));
    EXPECT_TRUE(venue.process.says(" replaces=1 rejects=0 replace_rejects=1 "));
}

TEST(LiveScenario, IsReadItemByItemAndEverythingUnknownIsSkipped) {
    const std::vector<std::pair<std::string, std::string>> armed = {
        {",,", "'' armed (disconnect after 0 orders, lapse 0 ms, reject every 0, partial every 0, "},
        {"name=a=b,,reject_every,REJECT_EVERY=4,speed=9,lapse_ms=-5,partial_fill_every=7x,partial_fill_every= 8",
         "'a=b' armed (disconnect after 0 orders, lapse -5 ms, reject every 0, partial every 8, "},
    };
    for (const auto& [text, line] : armed) {
        LiveVenue venue({}, scenario(text));
        EXPECT_TRUE(venue.process.said().starts_with(
            "bench: scenario " + line +
            "fill-on-cancel every 0, unsolicited cancel every 0, replace reject every 0)\n"))
            << venue.process.said();
    }
    LiveVenue venue({}, scenario(""));
    EXPECT_EQ(venue.process.said().find("scenario"), std::string::npos);
}

}  // namespace
}  // namespace kavo::test
