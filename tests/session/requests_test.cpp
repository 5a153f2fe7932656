#include <gtest/gtest.h>

#include <algorithm>

#include "support/bytes_of_feed.h"
#include "support/said.h"
#include "support/venue.h"

namespace kavo::test {
namespace {

Bytes of_size(Bytes message, std::size_t size) {
    message.resize(size);
    return message;
}

Bytes packed(const std::vector<Bytes>& messages) {
    Bytes bytes;
    for (const Bytes& message : messages) {
        const Bytes packet = esesm::build_packet(esesm::PacketType::unsequenced_data, message);
        bytes.insert(bytes.end(), packet.begin(), packet.end());
    }
    return bytes;
}

std::string open_orders_stay(std::size_t count, const std::string& username = "alice") {
    return "bench: ACOD off (Do Not Cancel All Open Orders): " + std::to_string(count) + " open order(s) of " +
           username + " stay on the book\n";
}

// A venue with alice logged in and everything heard that a login brings.
class Requests : public testing::Test {
protected:
    Requests() { venue_.heard(alice_); }

    std::string answers(ByteView message) {
        venue_.request(alice_, message);
        return venue_.heard(alice_);
    }
    std::string said(const Bytes& message) {
        return said_during([&] { venue_.request(alice_, message); });
    }

    Venue venue_;
    ClientHandle alice_ = venue_.log_in("alice");
};

TEST_F(Requests, AreAnsweredInTheStreamOfTheirUser) {
    EXPECT_EQ(answers(buy("b1").at("189.95").bytes()),
              "3: NR b1 accepted #1000 100@189.95 | 4: O1 b1 #1000 buy 100@189.95 tif D type 1 | "
              "5: P1 b1 #1000 @189.95 touch");
    EXPECT_EQ(answers(replace("b1", "b2").at("189.96").bytes()),
              "6: MR b2 for b1 accepted #1000 leaves 100 | 7: MN b2 for b1 #1000 100@189.96 leaves 100 tif D");
    EXPECT_EQ(answers(cancel("b2").bytes()), "8: CR xb2 of b2 accepted #1000 | 9: XN b2 #1000 leaves 0 'U'");
}

TEST_F(Requests, TellTheOtherSideInTheSamePass) {
    const ClientHandle bob = venue_.log_in("bob");
    venue_.request(bob, sell("s1").at("190.00").bytes());
    venue_.heard(bob);
    EXPECT_EQ(answers(buy("b1").at("190.00").bytes()),
              "3: NR b1 accepted #1001 100@190 | 4: O1 b1 #1001 buy 100@190 tif D type 1 | "
              "5: E1 b1 100@190 buy removed RC match 1 exec 2");
    EXPECT_EQ(venue_.heard(bob), "");
    venue_.pass();
    EXPECT_EQ(venue_.heard(bob), "6: E1 s1 100@190 sell added AC match 1 exec 1");
}

TEST_F(Requests, FlushTheFeedOneByOne) {
    venue_.order_entry.receive(alice_, packed({buy("b1").at("1.00").bytes(), buy("b2").at("1.00").bytes()}));
    ASSERT_EQ(venue_.datagrams.size(), 2u);
    EXPECT_EQ(carried_by(venue_.datagrams[0]), "1 2");  // the second and the order
    EXPECT_EQ(carried_by(venue_.datagrams[1]), "3");
    answers(buy("b3").shares(0).at("1.00").bytes());
    EXPECT_EQ(venue_.datagrams.size(), 2u);
}

// Packets of one batch may wait for each other, the last one for nobody.
TEST_F(Requests, HaveAnswersWhoseLastWaitsForNoOther) {
    venue_.connection(alice_).more_follows.clear();
    answers(buy("b1").at("1.00").bytes());
    EXPECT_EQ(venue_.connection(alice_).more_follows, (std::vector<bool>{true, true, false}));
    venue_.connection(alice_).more_follows.clear();
    answers(cancel("none").bytes());
    EXPECT_EQ(venue_.connection(alice_).more_follows, (std::vector<bool>{false}));
}

TEST_F(Requests, ThatComeTogetherHaveAnswersThatLeaveTogetherBehindThoseToTheFirst) {
    venue_.connection(alice_).more_follows.clear();
    venue_.order_entry.receive(
        alice_, packed({buy("b1").at("1.00").bytes(), cancel("b1").bytes(), buy("b2").at("2.00").bytes()}));
    EXPECT_EQ(venue_.heard(alice_),
              "3: NR b1 accepted #1000 100@1 | 4: O1 b1 #1000 buy 100@1 tif D type 1 | 5: P1 b1 #1000 @1 touch | "
              "6: CR xb1 of b1 accepted #1000 | 7: XN b1 #1000 leaves 0 'U' | "
              "8: NR b2 accepted #1001 100@2 | 9: O1 b2 #1001 buy 100@2 tif D type 1 | 10: P1 b2 #1001 @2 touch");
    EXPECT_EQ(venue_.connection(alice_).more_follows,
              (std::vector<bool>{true, true, false, true, true, true, true, false}));
    EXPECT_FALSE(venue_.connection(alice_).waiting);
}

TEST_F(Requests, LeaveNoAnswerWaitingBehindWhichNoneComes) {
    const Bytes heartbeat = {0x01, 0x00, '1'};
    const Bytes unknown_packet = {0x01, 0x00, 'Q'};
    const Bytes empty_request = {0x01, 0x00, 'U'};
    const Bytes request_of_one_byte = {0x02, 0x00, 'U', 'N'};
    const Bytes no_packet = {0x00, 0x00};
    const Bytes logout = {0x01, 0x00, 'X'};
    for (const Bytes& next : {heartbeat, unknown_packet, empty_request, request_of_one_byte, no_packet, logout}) {
        Bytes bytes = packed({buy("b1").shares(0).at("1.00").bytes(), buy("b2").shares(0).at("1.00").bytes()});
        bytes.insert(bytes.end(), next.begin(), next.end());
        venue_.order_entry.receive(alice_, bytes);
        EXPECT_TRUE(venue_.heard(alice_).ends_with(": NR b2 rejected 'K' 0@1"));
        EXPECT_FALSE(venue_.connection(alice_).waiting);
    }
    EXPECT_TRUE(venue_.connection(alice_).closed);
}

TEST_F(Requests, LeaveNoAnswerWaitingForHalfARequest) {
    Bytes bytes = packed({buy("b1").shares(0).at("1.00").bytes(), buy("b2").shares(0).at("1.00").bytes(),
                          buy("b3").shares(0).at("1.00").bytes()});
    const std::uint8_t last_byte = bytes.back();
    bytes.pop_back();
    venue_.order_entry.receive(alice_, bytes);
    EXPECT_EQ(venue_.heard(alice_), "3: NR b1 rejected 'K' 0@1 | 4: NR b2 rejected 'K' 0@1");
    EXPECT_FALSE(venue_.connection(alice_).waiting);
    venue_.order_entry.receive(alice_, ByteView(&last_byte, 1));
    EXPECT_EQ(venue_.heard(alice_), "5: NR b3 rejected 'K' 0@1");
    EXPECT_FALSE(venue_.connection(alice_).waiting);
}

TEST_F(Requests, OfOneByteOrNoneAreIgnored) {
    venue_.bench.disconnect_requested = true;
    EXPECT_EQ(said({}), "");
    EXPECT_EQ(said({'N'}), "");
    EXPECT_EQ(venue_.heard(alice_), "");
    EXPECT_FALSE(venue_.connection(alice_).closed);
    EXPECT_TRUE(venue_.bench.disconnect_requested);
}

TEST_F(Requests, OfAnUnknownTypeOrCutShortEndTheSession) {
    const auto goodbye_to = [&](const Bytes& message) {
        const ClientHandle client = venue_.log_in("bob");
        venue_.heard(client);
        const std::string said = said_during([&] { venue_.request(client, message); });
        EXPECT_EQ(venue_.heard(client), "goodbye 'B' unknown or malformed application message");
        EXPECT_TRUE(venue_.connection(client).closed);
        return said;
    };
    const std::string rest =
        " from bob — goodbye\nbench: dropping the connection of bob (bad packet)\n" + open_orders_stay(0, "bob");
    EXPECT_EQ(goodbye_to({'Z', 'Z'}), "bench: bad MEO message 'ZZ' (2 bytes)" + rest);
    EXPECT_EQ(goodbye_to(of_size({'n', '1'}, 131)), "bench: bad MEO message 'n1' (131 bytes)" + rest);
    EXPECT_EQ(goodbye_to(of_size({'N', 'R'}, 65'534)), "bench: bad MEO message 'NR' (65534 bytes)" + rest);
    EXPECT_EQ(goodbye_to(of_size(buy("b1").at("1.00").bytes(), 130)), "bench: bad MEO message 'N1' (130 bytes)" + rest);
    EXPECT_EQ(goodbye_to(of_size(cancel("b1").bytes(), 67)), "bench: bad MEO message 'CO' (67 bytes)" + rest);
    EXPECT_EQ(goodbye_to(of_size(replace("b1", "b2").at("1.00").bytes(), 110)),
              "bench: bad MEO message 'M1' (110 bytes)" + rest);
    EXPECT_EQ(venue_.published(), "");
    EXPECT_EQ(venue_.bench.counters.stale_cancels, 0u);
}

TEST_F(Requests, OfTheSmallestSizeAndAboveReachTheEngine) {
    EXPECT_EQ(answers(of_size(buy("b1").at("1.00").bytes(), 131)),
              "3: NR b1 accepted #1000 100@1 | 4: O1 b1 #1000 buy 100@1 tif D type 1 | 5: P1 b1 #1000 @1 touch");
    EXPECT_EQ(answers(of_size(replace("b1", "b2").at("1.00").bytes(), 111)),
              "6: MR b2 for b1 accepted #1000 leaves 100 | 7: MN b2 for b1 #1000 100@1 leaves 100 tif D");
    EXPECT_EQ(answers(of_size(cancel("none").bytes(), 68)), "8: CR xnone of none rejected 'D'");
    EXPECT_EQ(answers(of_size(replace("b2", "b3").at("1.00").bytes(), 200)),
              "9: MR b3 for b2 accepted #1000 leaves 100 | 10: MN b3 for b2 #1000 100@1 leaves 100 tif D");
    EXPECT_EQ(answers(of_size(cancel("b3").bytes(), 200)),
              "11: CR xb3 of b3 accepted #1000 | 12: XN b3 #1000 leaves 0 'U'");
    EXPECT_EQ(answers(of_size(buy("b4").immediate().at("1.00").bytes(), 200)),
              "13: NR b4 accepted #1001 100@1 | 14: O1 b4 #1001 buy 100@1 tif I type 1 | 15: XN b4 #1001 leaves 0 'C'");
}

TEST_F(Requests, ToCancelAreNotReadToTheirEnd) {
    answers(buy("b1").at("1.00").bytes());
    Bytes message = cancel("b1").bytes();
    std::fill(message.begin() + 58, message.end(), std::uint8_t{0xff});
    EXPECT_EQ(answers(message), "6: CR xb1 of b1 accepted #1000 | 7: XN b1 #1000 leaves 0 'U'");
}

TEST_F(Requests, BehindABadOneAreNotRead) {
    venue_.order_entry.receive(alice_,
                               packed({buy("b1").at("1.00").bytes(), {'Z', 'Z'}, buy("b2").at("1.00").bytes()}));
    EXPECT_EQ(venue_.published(), "add 1 #1000 B 100@1");
    EXPECT_FALSE(venue_.connection(alice_).waiting);
}

TEST_F(Requests, ThatAreBadTakeTheOrdersAlongUnderAcod) {
    VenueSettings settings;
    settings.engine.acod = true;
    Venue venue(settings);
    const ClientHandle bob = venue.log_in("bob");
    venue.request(bob, buy("b1").at("1.00").bytes());
    const Bytes unknown = {'Z', 'Z'};
    EXPECT_EQ(said_during([&] { venue.request(bob, unknown); }),
              "bench: bad MEO message 'ZZ' (2 bytes) from bob — goodbye\n"
              "bench: dropping the connection of bob (bad packet)\n"
              "bench: ACOD (Cancel All Open Orders): cancelled 1 open order(s) of bob on disconnect\n");
}

TEST_F(Requests, ThatAreBadLeaveARequestedDisconnectToTheNext) {
    venue_.bench.disconnect_requested = true;
    said({'Z', 'Z'});
    EXPECT_TRUE(venue_.bench.disconnect_requested);
}

TEST_F(Requests, BringTheScriptedDisconnectWithTheOrderThatReachesIt) {
    venue_.bench.arm_scenario("disconnect_after=3", standard_error);
    venue_.bench.reject_next = 1;
    EXPECT_EQ(said(buy("b1").at("1.00").bytes()), "");
    EXPECT_EQ(said(buy("b2").shares(0).at("1.00").bytes()), "");  // does not count
    EXPECT_EQ(said(buy("b2").at("1.00").bytes()), "");
    venue_.heard(alice_);
    EXPECT_EQ(said(buy("b3").at("1.00").bytes()),
              "bench: dropping the connection of alice "
              "(scripted: the client must log in again with its next expected sequence)\n" +
                  open_orders_stay(2));
    // Answered first, and without a goodbye.
    EXPECT_EQ(venue_.heard(alice_),
              "8: NR b3 accepted #1001 100@1 | 9: O1 b3 #1001 buy 100@1 tif D type 1 | 10: P1 b3 #1001 @1 touch");
    EXPECT_TRUE(venue_.connection(alice_).closed);
    EXPECT_FALSE(venue_.connection(alice_).waiting);
    EXPECT_EQ(venue_.datagrams.size(), 2u);
}

TEST_F(Requests, BringTheScriptedDisconnectOncePerRun) {
    venue_.bench.disconnect_after = 1;
    said(buy("b1").at("1.00").bytes());
    const ClientHandle again = venue_.log_in("alice");
    EXPECT_EQ(said_during([&] {
                  venue_.request(again, buy("b2").at("1.00").bytes());
                  venue_.request(again, cancel("b2").bytes());
              }),
              "");
    EXPECT_FALSE(venue_.connection(again).closed);
}

TEST_F(Requests, BringTheScriptedDisconnectToWhoeverReachesIt) {
    venue_.bench.disconnect_after = 2;
    const ClientHandle bob = venue_.log_in("bob");
    answers(buy("a1").at("1.00").bytes());
    venue_.request(bob, buy("b1").at("1.00").bytes());
    EXPECT_TRUE(venue_.connection(bob).closed);
    EXPECT_FALSE(venue_.connection(alice_).closed);
}

TEST_F(Requests, OfAnyKindBringAScriptedDisconnectThatIsOverdue) {
    answers(buy("b1").at("1.00").bytes());
    answers(buy("b2").at("1.00").bytes());
    venue_.bench.disconnect_after = 1;
    answers(cancel("none").bytes());
    EXPECT_TRUE(venue_.connection(alice_).closed);
}

TEST_F(Requests, BehindADisconnectAreNotRead) {
    venue_.bench.disconnect_after = 1;
    venue_.order_entry.receive(alice_, packed({buy("b1").at("1.00").bytes(), buy("b2").at("1.00").bytes()}));
    EXPECT_EQ(venue_.published(), "add 1 #1000 B 100@1");
    EXPECT_FALSE(venue_.connection(alice_).waiting);
    EXPECT_TRUE(venue_.connection(alice_).closed);
}

TEST_F(Requests, BringARequestedDisconnectOnce) {
    venue_.bench.disconnect_requested = true;
    venue_.pass();
    venue_.send(alice_, '1');
    EXPECT_FALSE(venue_.connection(alice_).closed);
    EXPECT_EQ(said(cancel("none").bytes()),
              "bench: stale cancel for none (unknown client order id)\n"
              "bench: dropping the connection of alice (driven)\n" +
                  open_orders_stay(0));
    EXPECT_EQ(venue_.heard(alice_), "3: CR xnone of none rejected 'D'");
    EXPECT_TRUE(venue_.connection(alice_).closed);
    EXPECT_FALSE(venue_.bench.disconnect_requested);
    const ClientHandle again = venue_.log_in("alice");
    EXPECT_EQ(said_during([&] { venue_.request(again, buy("b1").at("1.00").bytes()); }), "");
}

TEST_F(Requests, BringARequestedDisconnectInPlaceOfTheScriptedOne) {
    venue_.bench.disconnect_after = 3;
    venue_.bench.disconnect_requested = true;
    const std::string dropped =
        "bench: dropping the connection of alice "
        "(scripted: the client must log in again with its next expected sequence)\n";
    EXPECT_EQ(said(buy("b1").at("1.00").bytes()), dropped + open_orders_stay(1));
    EXPECT_TRUE(venue_.bench.disconnect_done);
    const ClientHandle again = venue_.log_in("alice");
    EXPECT_EQ(said_during([&] {
                  for (const char* id : {"b2", "b3", "b4"}) venue_.request(again, buy(id).at("1.00").bytes());
              }),
              "");
    venue_.bench.disconnect_requested = true;  // asked for once more
    EXPECT_EQ(said_during([&] { venue_.request(again, cancel("b4").bytes()); }), dropped + open_orders_stay(2));
}

TEST_F(Requests, BringADisconnectThatCancelsUnderAcod) {
    VenueSettings settings;
    settings.engine.acod = true;
    Venue venue(settings);
    venue.bench.disconnect_after = 1;
    const ClientHandle bob = venue.log_in("bob");
    EXPECT_EQ(said_during([&] { venue.request(bob, buy("b1").at("1.00").bytes()); }),
              "bench: dropping the connection of bob "
              "(scripted: the client must log in again with its next expected sequence)\n"
              "bench: ACOD (Cancel All Open Orders): cancelled 1 open order(s) of bob on disconnect\n");
    venue.pass();
    EXPECT_EQ(venue.heard(venue.log_in("bob", 6)),
              "login accepted, engine 1, highest 6 | 6: XN b1 #1000 leaves 0 'D' | replay complete");
}

}  // namespace
}  // namespace kavo::test
