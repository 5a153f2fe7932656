#include <gtest/gtest.h>

#include <algorithm>

#include "support/said.h"
#include "support/venue.h"

namespace kavo::test {
namespace {

constexpr ClientHandle nobody_connected = 1000;  // whose orders come from elsewhere

// A message of the engine's for a client, a short one.
OutboundMessage message_for(ClientHandle client, bool sequenced = true) {
    return {client, build(meo::StartOfSession{0, 9}), sequenced};
}

TEST(Stream, BeginsWithTheStartOfTheSession) {
    Venue venue({.symbols = {"AAPL", "SPY"}});
    ClientHandle alice = 0;
    EXPECT_EQ(said_during([&] { alice = venue.log_in("alice"); }),
              "bench: login alice requested seq 0 (stream next 1): accepted at 1, replaying 0 message(s)\n");
    EXPECT_EQ(venue.heard(alice),
              "login accepted, engine 1, highest 0 | 1: SN MEO2.7 session 1 | 2: SU 1 AAPL Q | 3: SU 2 SPY P");
    EXPECT_EQ(venue.bench.counters.replays, 0u);
    EXPECT_EQ(venue.bench.counters.replayed, 0u);
}

TEST(Stream, BeginsAtOneForEachUser) {
    Venue venue;
    venue.log_in("alice");
    EXPECT_EQ(venue.heard(venue.log_in("bob", 1)),
              "login accepted, engine 1, highest 0 | 1: SN MEO2.7 session 1 | 2: SU 1 AAPL Q");
}

TEST(Stream, IsNotReplayedToAUserWhoAsksForItsEnd) {
    Venue venue;
    const ClientHandle alice = venue.log_in("alice");
    venue.send(alice, 'X');
    ClientHandle again = 0;
    EXPECT_EQ(said_during([&] { again = venue.log_in("alice", 3); }),
              "bench: login alice requested seq 3 (stream next 3): accepted at 3, replaying 0 message(s)\n");
    EXPECT_EQ(venue.heard(again), "login accepted, engine 1, highest 2");
    venue.send(again, 'X');
    EXPECT_EQ(said_during([&] { again = venue.log_in("alice", 0); }),
              "bench: login alice requested seq 0 (stream next 3): accepted at 3, replaying 0 message(s)\n");
    EXPECT_EQ(venue.heard(again), "login accepted, engine 1, highest 2");
    EXPECT_EQ(venue.bench.counters.replays, 0u);
}

TEST(Stream, IsReplayedFromTheNumberThatTheUserAsksFor) {
    Venue venue;
    const ClientHandle alice = venue.log_in("alice");
    venue.request(alice, buy("b1").at("1.00").bytes());
    venue.send(alice, 'X');
    ClientHandle again = 0;
    EXPECT_EQ(said_during([&] { again = venue.log_in("alice", 4); }),
              "bench: login alice requested seq 4 (stream next 6): accepted at 4, replaying 2 message(s)\n");
    EXPECT_EQ(venue.heard(again),
              "login accepted, engine 1, highest 5 | 4: O1 b1 #1000 buy 100@1 tif D type 1 | 5: P1 b1 #1000 @1 touch | "
              "replay complete");
    EXPECT_EQ(venue.bench.counters.replays, 1u);
    EXPECT_EQ(venue.bench.counters.replayed, 2u);
    venue.send(again, 'X');
    venue.log_in("alice", 1);
    EXPECT_EQ(venue.bench.counters.replays, 2u);
    EXPECT_EQ(venue.bench.counters.replayed, 7u);
}

TEST(Stream, IsReplayedByteForByte) {
    Venue venue;
    const ClientHandle alice = venue.log_in("alice");
    venue.request(alice, buy("b1").at("1.00").bytes());
    venue.send(alice, 'X');
    venue.clock.advance_ms(5000);
    const ClientHandle again = venue.log_in("alice", 1);
    const std::vector<Bytes>& live = venue.connection(alice).packets;
    const std::vector<Bytes>& replayed = venue.connection(again).packets;
    ASSERT_EQ(live.size(), 6u);      // the login response, five messages
    ASSERT_EQ(replayed.size(), 7u);  // the same and the end of the replay
    for (std::size_t i = 1; i < live.size(); ++i) EXPECT_EQ(live[i], replayed[i]) << "packet " << i;
}

TEST(Stream, GoesOnFromConnectionToConnection) {
    Venue venue;
    const ClientHandle alice = venue.log_in("alice");
    venue.request(alice, buy("b1").shares(0).at("1.00").bytes());
    venue.send(alice, 'X');
    const ClientHandle again = venue.log_in("alice", 4);
    venue.request(again, buy("b2").shares(0).at("1.00").bytes());
    EXPECT_EQ(venue.heard(again), "login accepted, engine 1, highest 3 | 4: NR b2 rejected 'K' 0@1");
}

TEST(Stream, KeepsAFillForAUserWhoIsAway) {
    Venue venue;
    const ClientHandle alice = venue.log_in("alice");
    venue.request(alice, buy("b1").at("1.00").bytes());
    venue.send(alice, 'X');
    venue.heard(alice);
    venue.enter(sell("s1").at("1.00"), nobody_connected);
    venue.pass();
    EXPECT_EQ(venue.heard(alice), "");
    EXPECT_EQ(venue.heard(venue.log_in("alice", 6)),
              "login accepted, engine 1, highest 6 | 6: E1 b1 100@1 buy added AC match 1 exec 1 | replay complete");
}

TEST(Stream, KeepsTheCancelsOfAcodForAUserWhoIsAway) {
    VenueSettings settings;
    settings.engine.acod = true;
    Venue venue(settings);
    const ClientHandle alice = venue.log_in("alice");
    venue.request(alice, buy("b1").at("1.00").bytes());
    venue.send(alice, 'X');
    venue.pass();
    EXPECT_EQ(venue.heard(venue.log_in("alice", 6)),
              "login accepted, engine 1, highest 6 | 6: XN b1 #1000 leaves 0 'D' | replay complete");
}

// Orders belong to the connection that entered them. What is told about them later waits for the next login of the
// user, even when the user is back on another connection.
TEST(Stream, KeepsWhatConcernsAnEarlierConnectionForTheNextLogin) {
    Venue venue;
    const ClientHandle alice = venue.log_in("alice");
    venue.request(alice, buy("b1").at("1.00").bytes());
    venue.send(alice, 'X');
    const ClientHandle again = venue.log_in("alice", 6);
    venue.heard(again);
    venue.request(again, cancel("b1").bytes());
    EXPECT_EQ(venue.heard(again), "6: CR xb1 of b1 rejected 'D'");
    venue.enter(sell("s1").at("1.00"), nobody_connected);
    venue.pass();
    EXPECT_EQ(venue.heard(again), "");
    venue.request(again, buy("b2").shares(0).at("1.00").bytes());
    EXPECT_EQ(venue.heard(again), "8: NR b2 rejected 'K' 0@1");
    venue.send(again, 'l', login("alice", 7).payload());
    EXPECT_EQ(venue.heard(again),
              "login accepted, engine 1, highest 8 | 7: E1 b1 100@1 buy added AC match 1 exec 1 | "
              "8: NR b2 rejected 'K' 0@1 | replay complete");
}

TEST(EngineOutput, ReachesEachClientInItsOrder) {
    Venue venue;
    const ClientHandle alice = venue.log_in("alice");
    const ClientHandle bob = venue.log_in("bob");
    venue.request(alice, buy("a1").at("1.00").bytes());
    venue.request(bob, buy("b1").at("1.00").bytes());
    venue.request(alice, buy("a2").at("0.99").bytes());
    venue.heard(alice);
    venue.heard(bob);
    venue.enter(sell("s1").shares(300).at("0.99"), nobody_connected);
    venue.order_entry.deliver_engine_output();
    EXPECT_EQ(venue.heard(alice),
              "9: E1 a1 100@1 buy added AC match 1 exec 1 | 10: E1 a2 100@0.99 buy added AC match 3 exec 5");
    EXPECT_EQ(venue.heard(bob), "6: E1 b1 100@1 buy added AC match 2 exec 3");
    EXPECT_FALSE(venue.connection(alice).waiting);
    EXPECT_TRUE(venue.engine.outbox.empty());
    venue.order_entry.deliver_engine_output();
    EXPECT_EQ(venue.heard(alice), "");
}

TEST(EngineOutput, EndsWithTheUnsolicitedCancelsThatFallDue) {
    Venue venue;
    const ClientHandle alice = venue.log_in("alice");
    venue.bench.unsolicited_cancel_next = 1;
    venue.request(alice, buy("b1").at("1.00").bytes());
    venue.request(alice, buy("b2").at("1.01").bytes());
    venue.heard(alice);
    venue.clock.advance_ms(300);
    venue.enter(sell("s1").at("1.01"), nobody_connected);
    venue.order_entry.deliver_engine_output();
    EXPECT_EQ(venue.heard(alice), "9: E1 b2 100@1.01 buy added AC match 1 exec 1 | 10: XN b1 #1000 leaves 0 'H'");
}

TEST(EngineOutput, FlushesTheFeed) {
    Venue venue;
    venue.enter(buy("b1").at("1.00"), nobody_connected);
    EXPECT_TRUE(venue.datagrams.empty());
    venue.order_entry.deliver_engine_output();
    EXPECT_EQ(venue.datagrams.size(), 1u);
}

TEST(EngineOutput, ForAHandleThatNamesNoClientIsDropped) {
    Venue venue;
    const ClientHandle alice = venue.log_in("alice");
    venue.heard(alice);
    venue.engine.outbox = {message_for(-1), message_for(alice + 1), message_for(2'000'000'000), message_for(alice)};
    venue.order_entry.deliver_engine_output();
    EXPECT_EQ(venue.heard(alice), "3: SN MEO2.7 session 9");
}

TEST(EngineOutput, ForAClientWhoNeverLoggedInIsDropped) {
    Venue venue;
    const ClientHandle stranger = venue.connect();
    const ClientHandle gone = venue.connect();
    venue.send(gone, 'X');
    venue.engine.outbox = {message_for(stranger), message_for(gone)};
    venue.order_entry.deliver_engine_output();
    EXPECT_EQ(venue.heard(stranger), "");
    venue.send(stranger, 'l', login("alice", 1).payload());
    EXPECT_EQ(venue.heard(stranger), "login accepted, engine 1, highest 0 | 1: SN MEO2.7 session 1 | 2: SU 1 AAPL Q");
}

TEST(UnsequencedMessage, IsSentOnceAndForgotten) {
    Venue venue;
    const ClientHandle alice = venue.log_in("alice");
    venue.heard(alice);
    venue.engine.outbox = {message_for(alice, false)};
    venue.order_entry.deliver_engine_output();
    EXPECT_EQ(venue.heard(alice), "unsequenced: SN MEO2.7 session 9");
    venue.send(alice, 'l', login("alice", 1).payload());
    EXPECT_EQ(venue.heard(alice),
              "login accepted, engine 1, highest 2 | 1: SN MEO2.7 session 1 | 2: SU 1 AAPL Q | replay complete");
}

TEST(UnsequencedMessage, ForAUserWhoIsAwayIsLost) {
    Venue venue;
    const ClientHandle alice = venue.log_in("alice");
    venue.send(alice, 'X');
    venue.engine.outbox = {message_for(alice, false), message_for(alice)};
    venue.order_entry.deliver_engine_output();
    EXPECT_EQ(venue.heard(venue.log_in("alice", 3)),
              "login accepted, engine 1, highest 3 | 3: SN MEO2.7 session 9 | replay complete");
}

TEST(UnsequencedMessage, DuringALapseIsLost) {
    Venue venue;
    const ClientHandle alice = venue.log_in("alice");
    venue.heard(alice);
    venue.bench.start_lapse(Venue::start_ms, 1000);
    venue.engine.outbox = {message_for(alice, false)};
    venue.order_entry.deliver_engine_output();
    venue.clock.advance_ms(1000);
    venue.order_entry.deliver_engine_output();
    EXPECT_EQ(venue.heard(alice), "");
}

TEST(Lapse, NumbersAnswersAndKeepsThemForTheReplay) {
    Venue venue;
    const ClientHandle alice = venue.log_in("alice");
    venue.heard(alice);
    venue.bench.start_lapse(Venue::start_ms, 20'000);
    venue.request(alice, buy("b1").at("1.00").bytes());
    venue.enter(sell("s1").at("1.00"), nobody_connected);
    venue.order_entry.deliver_engine_output();
    EXPECT_EQ(venue.heard(alice), "");
    EXPECT_EQ(venue.published(), "add 1 #1000 B 100@1 | executed 1 #1000 100@1 match 1 resting B");
    venue.send(alice, 'X');
    // The replay is how a client gets over the lapse, so the lapse does not silence it.
    EXPECT_EQ(venue.heard(venue.log_in("alice", 3)),
              "login accepted, engine 1, highest 6 | 3: NR b1 accepted #1000 100@1 | "
              "4: O1 b1 #1000 buy 100@1 tif D type 1 | 5: P1 b1 #1000 @1 touch | "
              "6: E1 b1 100@1 buy added AC match 1 exec 1 | replay complete");
}

TEST(Lapse, LeavesAGapInWhatTheClientHearsLive) {
    Venue venue;
    const ClientHandle alice = venue.log_in("alice");
    venue.heard(alice);
    venue.bench.start_lapse(Venue::start_ms, 1000);
    venue.request(alice, buy("b1").shares(0).at("1.00").bytes());
    venue.clock.advance_ms(999);
    venue.request(alice, buy("b2").shares(0).at("1.00").bytes());
    EXPECT_EQ(venue.heard(alice), "");
    venue.clock.advance_ms(1);
    venue.request(alice, buy("b3").shares(0).at("1.00").bytes());
    EXPECT_EQ(venue.heard(alice), "5: NR b3 rejected 'K' 0@1");
}

TEST(Lapse, SilencesTheStartOfASession) {
    Venue venue;
    venue.bench.start_lapse(Venue::start_ms, 1000);
    const ClientHandle alice = venue.log_in("alice");
    EXPECT_EQ(venue.heard(alice), "login accepted, engine 1, highest 0");
    venue.send(alice, 'l', login("alice", 1).payload());
    EXPECT_EQ(venue.heard(alice),
              "login accepted, engine 1, highest 2 | 1: SN MEO2.7 session 1 | 2: SU 1 AAPL Q | replay complete");
}

TEST(Lapse, StillRejectsLoginsAndSaysGoodbye) {
    Venue venue;
    venue.bench.start_lapse(Venue::start_ms, 1000);
    const ClientHandle client = venue.connect();
    venue.send(client, 'l', login("alice", 9).payload());
    EXPECT_EQ(venue.heard(client), "login rejected 'N', engine 1, highest 0");
    venue.send(client, 'Q');
    EXPECT_EQ(venue.heard(client), "goodbye 'B' not logged in");
}

TEST(Stream, IsHalfAMillionMessagesLong) {
    const Venue venue;
    EXPECT_EQ(venue.venue.order_entry.stream_limit, 500'000u);
}

TEST(Stream, ForgetsItsOldestMessageWithTheOneThatIsTooMany) {
    Venue venue;
    venue.order_entry.stream_limit = 10;
    const ClientHandle alice = venue.log_in("alice");  // messages 1 and 2
    const MessageLog& stored = venue.order_entry.client(alice).stream->stored;
    const auto deliver = [&](ClientHandle client, std::size_t count) {
        venue.engine.outbox.assign(count, message_for(client));
        venue.order_entry.deliver_engine_output();
    };
    deliver(alice, 8);
    EXPECT_EQ(stored.oldest(), 1u);
    deliver(alice, 1);
    EXPECT_EQ(stored.oldest(), 2u);

    // Kept for a user who is away, without forgetting any; the next live message brings the stream back to its limit.
    venue.send(alice, 'X');
    deliver(alice, 3);
    EXPECT_EQ(stored.oldest(), 2u);
    const ClientHandle again = venue.log_in("alice");
    EXPECT_EQ(stored.size(), 13u);
    deliver(again, 1);
    EXPECT_EQ(stored.oldest(), 6u);
    EXPECT_EQ(stored.size(), 10u);
    venue.send(again, 'X');

    // Whoever asks for what is forgotten is moved up to the oldest message that is left.
    ClientHandle last = 0;
    EXPECT_EQ(said_during([&] { last = venue.log_in("alice", 1); }),
              "bench: login alice requested seq 1 (stream next 16): accepted at 6, replaying 10 message(s)\n");
    std::string replay = "login accepted, engine 1, highest 15 | ";
    for (int number = 6; number <= 15; ++number) replay += std::to_string(number) + ": SN MEO2.7 session 9 | ";
    EXPECT_EQ(venue.heard(last), replay + "replay complete");
    EXPECT_EQ(venue.bench.counters.replayed, 10u);
}

}  // namespace
}  // namespace kavo::test
