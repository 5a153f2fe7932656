// Orders that are replaced while they rest, as their owners, their counterparties and the feed see it.
#include "support/scene.h"
#include "system/live_venue.h"

namespace kavo::test {
namespace {

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

TEST(LiveReplace, ThatCrossesTradesAndComesBackWithItsRest) {
    LiveVenue venue;
    venue.empty_the_books();
    User alice(venue, "alice");
    User bob(venue, "bob");
    alice.send(sell("s1").shares(100).at("190.10"));
    alice.next(3);
    bob.send(buy("b1").shares(300).at("189.95"));
    bob.next(3);

    bob.send(replace("b1", "b2").shares(300).at("190.10"));
    EXPECT_EQ(bob.next(4),
              "6: MR b2 for b1 accepted #1043 leaves 300 | 7: MN b2 for b1 #1043 300@190.1 leaves 300 tif D | "
              "8: E1 b2 100@190.1 buy removed RC match 41 exec 42 | 9: P1 b2 #1043 @190.1 touch");
    EXPECT_EQ(alice.next(), "6: E1 s1 100@190.1 sell added AC match 41 exec 41");
    alice.send(sell("s2").shares(500).at("190.20"));
    alice.next(3);
    alice.send(replace("s2", "s3").shares(200).at("190.10"));  // gone at once, so nothing comes to rest
    EXPECT_EQ(alice.next(3),
              "10: MR s3 for s2 accepted #1044 leaves 200 | 11: MN s3 for s2 #1044 200@190.1 leaves 200 tif D | "
              "12: E1 s3 200@190.1 sell removed RC match 42 exec 44");
    EXPECT_EQ(bob.next(), "10: E1 b2 200@190.1 buy added AC match 42 exec 43");

    venue.stop();
    EXPECT_EQ(venue.feed.waiting(),
              "add 1 #1042 S 100@190.1 | add 1 #1043 B 300@189.95 | "
              "modify 1 #1043 300@190.1 lost priority | delete 1 #1043 | "
              "executed 1 #1042 100@190.1 match 41 resting S | add 1 #1043 B 200@190.1 | "
              "add 1 #1044 S 500@190.2 | modify 1 #1044 200@190.1 lost priority | delete 1 #1044 | "
              "executed 1 #1043 200@190.1 match 42 resting B");
}

TEST(LiveReplace, ByNoMoreThanWasExecutedClosesTheOrder) {
    LiveVenue venue;
    venue.empty_the_books();
    User alice(venue, "alice");
    User bob(venue, "bob");
    alice.send(buy("b1").shares(300).at("189.95"));
    alice.next(3);
    bob.send(sell("s1").shares(100).at("189.95"));
    bob.next(3);
    EXPECT_EQ(alice.next(), "6: E1 b1 100@189.95 buy added AC match 41 exec 41");

    alice.send(replace("b1", "b2").shares(100).at("189.95"));
    EXPECT_EQ(alice.next(3),
              "7: XN b1 #1042 leaves 0 'U' | 8: MR b2 for b1 accepted #1042 leaves 0 | "
              "9: MN b2 for b1 #1042 100@189.95 leaves 0 tif D");
    alice.send(cancel("b2"));  // never was an order
    EXPECT_EQ(alice.next(), "10: CR xb2 of b2 rejected 'D'");

    venue.stop();
    EXPECT_EQ(venue.feed.waiting(),
              "add 1 #1042 B 300@189.95 | executed 1 #1042 100@189.95 match 41 resting B | "
              "delete 1 #1042");
    EXPECT_EQ(venue.truth(),
              lines({R"({"t":*,"ev":"new","cl":"b1","oid":1042,"symbol":"AAPL","side":"B","qty":300,"px":189.95,)"
                     R"("cum":0,"leaves":0,"last_qty":0,"text":""})",
                     R"({"t":*,"ev":"new","cl":"s1","oid":1043,"symbol":"AAPL","side":"S","qty":100,"px":189.95,)"
                     R"("cum":0,"leaves":0,"last_qty":0,"text":""})",
                     R"({"t":*,"ev":"fill","cl":"b1","oid":1042,"symbol":"AAPL","side":"B","qty":300,"px":189.95,)"
                     R"("cum":100,"leaves":200,"last_qty":100,"text":""})",
                     R"({"t":*,"ev":"fill","cl":"s1","oid":1043,"symbol":"AAPL","side":"S","qty":100,"px":189.95,)"
                     R"("cum":100,"leaves":0,"last_qty":100,"text":""})",
                     R"({"t":*,"ev":"cancel","cl":"b1","oid":1042,"symbol":"AAPL","side":"B","qty":300,"px":189.95,)"
                     R"("cum":100,"leaves":0,"last_qty":0,"text":"modify_closed"})",
                     R"({"t":*,"ev":"cancel_reject","cl":"b2","oid":0,"symbol":"AAPL","side":" ","qty":0,"px":0,)"
                     R"("cum":0,"leaves":0,"last_qty":0,"text":"stale"})"}));
    // Both orders that emptied the books ended in a cancel too.
    EXPECT_TRUE(venue.process.says("orders=4 accepts=4 fills=42 partials=0 cancels=3 replaces=0 rejects=0 "));
}

// Everything is wrong with the request at first, and each answer has one thing put right.
TEST(LiveReplace, IsRejectedForTheFirstThingThatIsWrong) {
    LiveVenue venue;
    User alice(venue, "alice");
    User bob(venue, "bob");
    alice.send(buy("b1").shares(300).at("100.00"));
    alice.send(buy("b2").shares(100).at("100.00"));
    alice.next(6);

    Replace request = replace("b0", "b2").shares(0).participant("ELSE");
    request.price = 5'000;
    const auto answer = [&] {
        alice.send(request);
        return alice.next();
    };
    EXPECT_EQ(answer(), "9: MR b2 for b0 rejected 'D' #0");
    request.orig_client_order_id = "b1";
    EXPECT_EQ(answer(), "10: MR b2 for b1 rejected 'A' #1040");
    request.client_order_id = "b1";  // its own id is as taken as another's
    EXPECT_EQ(answer(), "11: MR b1 for b1 rejected 'A' #1040");
    request.client_order_id = "b3";
    EXPECT_EQ(answer(), "12: MR b3 for b1 rejected 'Q' #1040");
    request.mpid = "TEST";
    EXPECT_EQ(answer(), "13: MR b3 for b1 rejected 'J' #1040");
    request.price = 0;
    EXPECT_EQ(answer(), "14: MR b3 for b1 rejected 'J' #1040");
    request.price = 101'000'000;
    EXPECT_EQ(answer(), "15: MR b3 for b1 rejected 'K' #1040");
    request.quantity = 200;
    EXPECT_EQ(answer(), "16: MR b3 for b1 accepted #1040 leaves 200");
    EXPECT_EQ(alice.next(), "17: MN b3 for b1 #1040 200@101 leaves 200 tif D");

    bob.send(replace("b3", "b4").shares(100).at("101.00"));  // somebody else's
    EXPECT_EQ(bob.next(), "3: MR b4 for b3 rejected 'D' #0");

    venue.stop();
    EXPECT_EQ(venue.feed.waiting(),
              "add 1 #1040 B 300@100 | add 1 #1041 B 100@100 | "
              "modify 1 #1040 200@101 lost priority");
    EXPECT_EQ(
        venue.truth(),
        lines({R"({"t":*,"ev":"new","cl":"b1","oid":1040,"symbol":"AAPL","side":"B","qty":300,"px":100,)"
               R"("cum":0,"leaves":0,"last_qty":0,"text":""})",
               R"({"t":*,"ev":"new","cl":"b2","oid":1041,"symbol":"AAPL","side":"B","qty":100,"px":100,)"
               R"("cum":0,"leaves":0,"last_qty":0,"text":""})",
               R"({"t":*,"ev":"replace_reject","cl":"b2","oid":0,"symbol":"","side":" ","qty":0,"px":0.005,)"
               R"("cum":0,"leaves":0,"last_qty":0,"text":"unknown_order","ref":"b0"})",
               R"({"t":*,"ev":"replace_reject","cl":"b2","oid":1040,"symbol":"AAPL","side":"B","qty":0,"px":0.005,)"
               R"("cum":0,"leaves":0,"last_qty":0,"text":"duplicate","ref":"b1"})",
               R"({"t":*,"ev":"replace_reject","cl":"b1","oid":1040,"symbol":"AAPL","side":"B","qty":0,"px":0.005,)"
               R"("cum":0,"leaves":0,"last_qty":0,"text":"duplicate","ref":"b1"})",
               R"({"t":*,"ev":"replace_reject","cl":"b3","oid":1040,"symbol":"AAPL","side":"B","qty":0,"px":0.005,)"
               R"("cum":0,"leaves":0,"last_qty":0,"text":"invalid","ref":"b1"})",
               R"({"t":*,"ev":"replace_reject","cl":"b3","oid":1040,"symbol":"AAPL","side":"B","qty":0,"px":0,)"
               R"("cum":0,"leaves":0,"last_qty":0,"text":"invalid","ref":"b1"})",
               R"({"t":*,"ev":"replace_reject","cl":"b3","oid":1040,"symbol":"AAPL","side":"B","qty":0,"px":101,)"
               R"("cum":0,"leaves":0,"last_qty":0,"text":"invalid","ref":"b1"})",
               R"({"t":*,"ev":"replace","cl":"b3","oid":1040,"symbol":"AAPL","side":"B","qty":200,"px":101,)"
               R"("cum":0,"leaves":200,"last_qty":0,"text":"","ref":"b1"})",
               R"({"t":*,"ev":"replace_reject","cl":"b4","oid":0,"symbol":"","side":" ","qty":100,"px":101,)"
               R"("cum":0,"leaves":0,"last_qty":0,"text":"unknown_order","ref":"b3"})"}));
    EXPECT_TRUE(venue.process.says("bench: stale replace for b0\n"));
    EXPECT_TRUE(venue.process.says(" replaces=1 rejects=0 replace_rejects=6 "));
}

TEST(LiveReplace, OfAnIdThatHasJustEndedIsLate) {
    LiveVenue venue;
    User alice(venue, "alice");
    // Time in force 'I' does not make a replacement immediate.
    send_together(alice, {buy("b1").shares(300).at("100.00").bytes(),
                          replace("b1", "b2").shares(200).at("100.00").time_in_force('I').bytes(),
                          replace("b1", "b3").shares(100).at("100.00").bytes()});
    EXPECT_EQ(
        alice.next(6),
        "3: NR b1 accepted #1040 300@100 | 4: O1 b1 #1040 buy 300@100 tif D type 1 | 5: P1 b1 #1040 @100 behind | "
        "6: MR b2 for b1 accepted #1040 leaves 200 | 7: MN b2 for b1 #1040 200@100 leaves 200 tif I | "
        "8: MR b3 for b1 rejected 'D' #0");

    venue.stop();
    EXPECT_EQ(venue.feed.waiting(), "add 1 #1040 B 300@100 | modify 1 #1040 200@100");
    EXPECT_TRUE(venue.truth().ends_with(
        lines({R"({"t":*,"ev":"replace_reject","cl":"b3","oid":0,"symbol":"","side":" ","qty":100,"px":100,)"
               R"("cum":0,"leaves":0,"last_qty":0,"text":"late","ref":"b1"})"})));
    EXPECT_EQ(venue.process.said().find("stale replace"), std::string::npos);
}

}  // namespace
}  // namespace kavo::test
