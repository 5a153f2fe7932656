#include <gtest/gtest.h>

#include "support/said.h"
#include "support/venue.h"

namespace kavo::test {
namespace {

// What a login brings on a connection of its own, and what is said about it.
struct Attempt {
    std::string heard;
    std::string said;
    bool closed = false;
};
Attempt attempt(Venue& venue, const Login& login) {
    const ClientHandle client = venue.connect();
    Attempt result;
    result.said = said_during([&] { venue.send(client, 'l', login.payload()); });
    result.heard = venue.heard(client);
    result.closed = venue.connection(client).closed;
    return result;
}

// Everything is wrong at first, and then put right one thing after the other.
TEST(Login, IsCheckedInAFixedOrder) {
    Venue venue;
    const ClientHandle bob = venue.log_in("bob");
    Login login = client::login("bob", 99);
    login.session_protocol = "1.1";
    login.application_protocol = "DoM1.3";
    login.matching_engine_count = 2;
    login.computer_id = "";
    login.matching_engine_id = 9;

    Attempt result = attempt(venue, login);
    EXPECT_EQ(
        result.said,
        "bench: login bob REJECTED (I: incompatible session protocol version; requested seq 99, stream next 3)\n");
    EXPECT_EQ(result.heard,
              "login rejected 'I', engine 1, highest 2 | goodbye 'A' incompatible session protocol version");
    EXPECT_TRUE(result.closed);

    login.session_protocol = "1.0";
    result = attempt(venue, login);
    EXPECT_EQ(result.said,
              "bench: login bob REJECTED (A: incompatible application protocol version; requested seq 99, "
              "stream next 3)\n");
    EXPECT_EQ(result.heard,
              "login rejected 'A', engine 1, highest 2 | goodbye 'A' incompatible application protocol version");
    EXPECT_TRUE(result.closed);

    login.application_protocol = "MEO2.7";
    result = attempt(venue, login);
    EXPECT_EQ(result.said,
              "bench: login bob REJECTED (C: invalid number of matching engines; requested seq 99, stream next 3)\n");
    EXPECT_EQ(result.heard, "login rejected 'C', engine 1, highest 2 | goodbye 'A' invalid number of matching engines");
    EXPECT_TRUE(result.closed);

    login.matching_engine_count = 1;
    result = attempt(venue, login);
    EXPECT_EQ(result.said,
              "bench: login bob REJECTED (X: invalid username/computer ID; requested seq 99, stream next 3)\n");
    EXPECT_EQ(result.heard, "login rejected 'X', engine 1, highest 2 | goodbye 'A' invalid username/computer ID");
    EXPECT_TRUE(result.closed);

    login.computer_id = "desk2";
    result = attempt(venue, login);
    EXPECT_EQ(result.said,
              "bench: login bob REJECTED (L: client already logged in; requested seq 99, stream next 3)\n");
    EXPECT_EQ(result.heard, "login rejected 'L', engine 1, highest 2 | goodbye 'A' client already logged in");
    EXPECT_TRUE(result.closed);

    venue.send(bob, 'X');
    result = attempt(venue, login);
    EXPECT_EQ(result.said,
              "bench: login bob REJECTED (S: invalid trading session requested; requested seq 99, stream next 3)\n");
    EXPECT_EQ(result.heard, "login rejected 'S', engine 1, highest 2");
    EXPECT_FALSE(result.closed);

    login.matching_engine_id = 1;
    result = attempt(venue, login);
    EXPECT_EQ(result.said,
              "bench: login bob REJECTED (N: invalid start sequence number requested; requested seq 99, "
              "stream next 3)\n");
    EXPECT_EQ(result.heard, "login rejected 'N', engine 1, highest 2");
    EXPECT_FALSE(result.closed);

    login.requested_sequence = 3;
    result = attempt(venue, login);
    EXPECT_EQ(result.said, "bench: login bob requested seq 3 (stream next 3): accepted at 3, replaying 0 message(s)\n");
    EXPECT_EQ(result.heard, "login accepted, engine 1, highest 2");
    EXPECT_FALSE(result.closed);

    EXPECT_EQ(venue.bench.counters.rejected_logins, 7u);
    EXPECT_EQ(venue.bench.counters.logins, 2u);
}

TEST(Login, ThatIsCutShortIsMalformed) {
    Venue venue;
    const Bytes payload = login("alice").payload();
    for (const std::size_t size : {0u, 26u, 27u, 35u}) {
        const ClientHandle client = venue.connect();
        EXPECT_EQ(said_during([&] { venue.send(client, 'l', ByteView(payload).first(size)); }), "");
        EXPECT_EQ(venue.heard(client), "goodbye 'B' malformed login");
        EXPECT_TRUE(venue.connection(client).closed);
    }
    EXPECT_EQ(venue.bench.counters.rejected_logins, 0u);
    EXPECT_EQ(venue.bench.counters.logins, 0u);
}

TEST(Login, MayBeLongerThanItsEntriesTake) {
    Venue venue;
    Bytes payload = login("alice").payload();
    payload.resize(payload.size() + 10, 0xff);
    const ClientHandle client = venue.connect();
    venue.send(client, 'l', payload);
    EXPECT_TRUE(venue.order_entry.client(client).logged_in);
}

TEST(Login, SpeaksOneVersionOfTheSessionProtocol) {
    Venue venue;
    Login login = client::login("alice");
    for (const std::string version : {"", "1", "1.", "1.00", "1.1", " 1.0", "2.0", "1.0.0"}) {
        login.session_protocol = version;
        EXPECT_EQ(attempt(venue, login).heard,
                  "login rejected 'I', engine 1, highest 0 | goodbye 'A' incompatible session protocol version");
    }
    login.session_protocol = "1.0 ";
    EXPECT_EQ(attempt(venue, login).said,
              "bench: login alice requested seq 0 (stream next 1): accepted at 1, replaying 0 message(s)\n");
    login.username = "bob";
    login.session_protocol = std::string("1.0\0\0", 5);
    EXPECT_EQ(attempt(venue, login).said,
              "bench: login bob requested seq 0 (stream next 1): accepted at 1, replaying 0 message(s)\n");
}

TEST(Login, LooksAtThreeCharactersOfTheApplicationProtocol) {
    Venue venue;
    Login login = client::login("alice");
    for (const std::string version : {"", "M", "ME", "meo2.7", "DoM1.3", " MEO2.7"}) {
        login.application_protocol = version;
        EXPECT_EQ(attempt(venue, login).heard,
                  "login rejected 'A', engine 1, highest 0 | goodbye 'A' incompatible application protocol version");
    }
    for (const std::string version : {"MEO", "MEO1.0", "MEOmeo"}) {
        login.application_protocol = version;
        const ClientHandle alice = venue.connect();
        venue.send(alice, 'l', login.payload());
        EXPECT_TRUE(venue.order_entry.client(alice).logged_in) << version;
        venue.send(alice, 'X');
    }
}

TEST(Login, NamesExactlyOneMatchingEngine) {
    Venue venue;
    Login login = client::login("alice", 5);
    login.matching_engine_count = 0;
    EXPECT_EQ(attempt(venue, login).said,
              "bench: login alice REJECTED (C: invalid number of matching engines; requested seq 0, stream next 1)\n");
    login.matching_engine_count = 2;
    EXPECT_EQ(attempt(venue, login).said,
              "bench: login alice REJECTED (C: invalid number of matching engines; requested seq 5, stream next 1)\n");
}

TEST(Login, NeedsAUsernameAndAComputerId) {
    Venue venue;
    EXPECT_EQ(attempt(venue, login("")).said,
              "bench: login  REJECTED (X: invalid username/computer ID; requested seq 0, stream next 1)\n");
    EXPECT_EQ(attempt(venue, login("     ")).said,
              "bench: login  REJECTED (X: invalid username/computer ID; requested seq 0, stream next 1)\n");
    Login login = client::login("alice");
    login.computer_id = "";
    EXPECT_EQ(attempt(venue, login).said,
              "bench: login alice REJECTED (X: invalid username/computer ID; requested seq 0, stream next 1)\n");
}

TEST(Login, IsForOneConnectionOfAUserAtATime) {
    Venue venue;
    const ClientHandle first = venue.log_in("alice");
    Login login = client::login("alice");
    login.computer_id = "another";
    EXPECT_TRUE(attempt(venue, login).closed);
    EXPECT_FALSE(venue.connection(first).closed);
    EXPECT_FALSE(attempt(venue, client::login("bob")).closed);
    venue.send(first, 'X');
    EXPECT_EQ(attempt(venue, login).heard, "login accepted, engine 1, highest 2");
}

TEST(Login, NamesAnyEngineOrTheConfiguredSession) {
    VenueSettings settings;
    settings.engine.session = 7;
    Venue venue(settings);
    Login login = client::login("alice");
    login.matching_engine_id = 1;
    EXPECT_EQ(attempt(venue, login).heard, "login rejected 'S', engine 7, highest 0");
    login.matching_engine_id = 0;
    EXPECT_EQ(attempt(venue, login).heard,
              "login accepted, engine 7, highest 0 | 1: SN MEO2.7 session 7 | 2: SU 1 AAPL Q");
    login.username = "bob";
    login.matching_engine_id = 7;
    EXPECT_EQ(attempt(venue, login).heard,
              "login accepted, engine 7, highest 0 | 1: SN MEO2.7 session 7 | 2: SU 1 AAPL Q");
}

// The number of the session is in the login response alone: every sequenced message says engine 1, on purpose.
TEST(Login, BringsSequencedMessagesOfEngineOneWhateverTheSession) {
    VenueSettings settings;
    settings.engine.session = 7;
    Venue venue(settings);
    const ClientHandle alice = venue.log_in("alice");
    const std::vector<Bytes>& packets = venue.connection(alice).packets;
    ASSERT_EQ(packets.size(), 3u);
    EXPECT_EQ(get(packets[1], esesm::layout::sequenced_packet::matching_engine_id), 1u);
    EXPECT_EQ(get(packets[2], esesm::layout::sequenced_packet::matching_engine_id), 1u);
}

TEST(Login, ThatAskedForTooMuchOrTheWrongSessionMayBeRepaired) {
    Venue venue;
    const ClientHandle client = venue.connect();
    Login login = client::login("alice", 2);
    venue.send(client, 'l', login.payload());
    EXPECT_EQ(venue.heard(client), "login rejected 'N', engine 1, highest 0");
    login.requested_sequence = 1;
    login.matching_engine_id = 2;
    venue.send(client, 'l', login.payload());
    EXPECT_EQ(venue.heard(client), "login rejected 'S', engine 1, highest 0");
    EXPECT_FALSE(venue.order_entry.client(client).logged_in);
    login.matching_engine_id = 1;
    venue.send(client, 'l', login.payload());
    EXPECT_EQ(venue.heard(client), "login accepted, engine 1, highest 0 | 1: SN MEO2.7 session 1 | 2: SU 1 AAPL Q");
    EXPECT_TRUE(venue.order_entry.client(client).logged_in);
}

TEST(Login, ThatIsRepairableLeavesTheClientAStranger) {
    Venue venue;
    const ClientHandle client = venue.connect();
    venue.send(client, 'l', login("alice", 2).payload());
    venue.heard(client);
    venue.request(client, buy("b1").at("1.00").bytes());
    EXPECT_EQ(venue.heard(client), "goodbye 'B' not logged in");
}

TEST(Login, IsConfirmedUnlessQuiet) {
    VenueSettings settings;
    settings.quiet = false;
    Venue venue(settings);
    EXPECT_EQ(attempt(venue, login("alice")).said,
              "bench: login alice requested seq 0 (stream next 1): accepted at 1, replaying 0 message(s)\n"
              "[kavo_me] login alice accepted\n");
    EXPECT_EQ(attempt(venue, login("alice")).said,
              "bench: login alice REJECTED (L: client already logged in; requested seq 0, stream next 3)\n");
}

TEST(Login, SentWithOtherPacketsIsHandledInItsPlace) {
    Venue venue;
    const ClientHandle client = venue.connect();
    Bytes bytes = esesm::build_packet(esesm::PacketType::login_request, login("alice").payload());
    const Bytes order = esesm::build_packet(esesm::PacketType::unsequenced_data, buy("b1").at("1.00").bytes());
    bytes.insert(bytes.end(), order.begin(), order.end());
    venue.order_entry.receive(client, bytes);
    EXPECT_EQ(venue.heard(client),
              "login accepted, engine 1, highest 0 | 1: SN MEO2.7 session 1 | 2: SU 1 AAPL Q | "
              "3: NR b1 accepted #1000 100@1 | 4: O1 b1 #1000 buy 100@1 tif D type 1 | 5: P1 b1 #1000 @1 touch");
    EXPECT_FALSE(venue.connection(client).waiting);
}

TEST(SecondLogin, OnTheSameConnectionReplaysAgain) {
    Venue venue;
    const ClientHandle alice = venue.log_in("alice");
    venue.heard(alice);
    EXPECT_EQ(said_during([&] { venue.send(alice, 'l', login("alice", 2).payload()); }),
              "bench: login alice requested seq 2 (stream next 3): accepted at 2, replaying 1 message(s)\n");
    EXPECT_EQ(venue.heard(alice), "login accepted, engine 1, highest 2 | 2: SU 1 AAPL Q | replay complete");
    EXPECT_EQ(venue.bench.counters.logins, 2u);
    venue.request(alice, buy("b1").shares(0).at("1.00").bytes());
    EXPECT_EQ(venue.heard(alice), "3: NR b1 rejected 'K' 0@1");
}

TEST(SecondLogin, ThatAsksForTooMuchLeavesTheClientLoggedIn) {
    Venue venue;
    const ClientHandle alice = venue.log_in("alice");
    venue.heard(alice);
    venue.send(alice, 'l', login("alice", 4).payload());
    EXPECT_EQ(venue.heard(alice), "login rejected 'N', engine 1, highest 2");
    venue.request(alice, buy("b1").shares(0).at("1.00").bytes());
    EXPECT_EQ(venue.heard(alice), "3: NR b1 rejected 'K' 0@1");
}

// A reject that closes is no disconnect for the engine, not even when somebody was logged in: the orders stay.
TEST(SecondLogin, ThatIsRejectedForGoodClosesTheConnectionAndKeepsTheOrders) {
    VenueSettings settings;
    settings.engine.acod = true;
    Venue venue(settings);
    const ClientHandle alice = venue.log_in("alice");
    venue.request(alice, buy("b1").at("1.00").bytes());
    venue.heard(alice);
    Login login = client::login("alice");
    login.session_protocol = "9.9";
    EXPECT_EQ(
        said_during([&] { venue.send(alice, 'l', login.payload()); }),
        "bench: login alice REJECTED (I: incompatible session protocol version; requested seq 0, stream next 6)\n");
    EXPECT_EQ(venue.heard(alice),
              "login rejected 'I', engine 1, highest 5 | goodbye 'A' incompatible session protocol version");
    EXPECT_TRUE(venue.connection(alice).closed);
    EXPECT_EQ(venue.bids(), "100@1");
}

TEST(SecondLogin, UnderAnotherNameMovesTheConnectionToItsStream) {
    Venue venue;
    const ClientHandle client = venue.log_in("alice");
    venue.request(client, buy("b1").shares(300).at("1.00").bytes());
    venue.heard(client);
    venue.send(client, 'l', login("bob").payload());
    EXPECT_EQ(venue.heard(client), "login accepted, engine 1, highest 0 | 1: SN MEO2.7 session 1 | 2: SU 1 AAPL Q");
    EXPECT_EQ(venue.order_entry.client(client).username, "bob");
    venue.enter(sell("s1").at("1.00"), client + 1);
    venue.pass();
    EXPECT_EQ(venue.heard(client), "3: E1 b1 100@1 buy added AC match 1 exec 1");
    venue.request(client, cancel("b1").bytes());  // the orders stay with their connection
    EXPECT_EQ(venue.heard(client), "4: CR xb1 of b1 accepted #1000 | 5: XN b1 #1000 leaves 0 'U'");
    EXPECT_EQ(attempt(venue, login("alice")).heard, "login accepted, engine 1, highest 5");
}

TEST(SecondLogin, UnderANameThatIsTakenIsRejected) {
    Venue venue;
    const ClientHandle alice = venue.log_in("alice");
    venue.log_in("bob");
    venue.heard(alice);
    venue.send(alice, 'l', login("bob").payload());
    EXPECT_EQ(venue.heard(alice), "login rejected 'L', engine 1, highest 2 | goodbye 'A' client already logged in");
    EXPECT_TRUE(venue.connection(alice).closed);
}

// Packets of one batch may wait for each other, the last one for nobody.
TEST(LoginBatch, EndsWithAPacketThatWaitsForNoOther) {
    Venue venue({.symbols = {"AAPL", "MSFT"}});
    const ClientHandle alice = venue.log_in("alice");
    EXPECT_EQ(venue.heard(alice),
              "login accepted, engine 1, highest 0 | 1: SN MEO2.7 session 1 | 2: SU 1 AAPL Q | 3: SU 2 MSFT Q");
    EXPECT_FALSE(venue.connection(alice).more_follows.back());
    EXPECT_FALSE(venue.connection(alice).waiting);
    venue.connection(alice).more_follows.clear();
    venue.send(alice, 'l', login("alice", 1).payload());
    EXPECT_EQ(venue.heard(alice),
              "login accepted, engine 1, highest 3 | 1: SN MEO2.7 session 1 | 2: SU 1 AAPL Q | 3: SU 2 MSFT Q | "
              "replay complete");
    EXPECT_EQ(venue.connection(alice).more_follows, (std::vector<bool>{true, true, true, true, false}));
    EXPECT_FALSE(venue.connection(alice).waiting);
    venue.send(alice, 'l', login("alice").payload());
    EXPECT_EQ(venue.heard(alice), "login accepted, engine 1, highest 3");
    EXPECT_FALSE(venue.connection(alice).more_follows.back());
}

TEST(LoginBatch, OfARejectWaitsForNothing) {
    Venue venue;
    const ClientHandle client = venue.connect();
    venue.send(client, 'l', login("alice", 9).payload());
    EXPECT_EQ(venue.connection(client).more_follows, std::vector<bool>{false});
    venue.send(client, 'l', login("").payload());
    EXPECT_FALSE(venue.connection(client).more_follows.back());
    EXPECT_TRUE(venue.connection(client).closed);
    EXPECT_FALSE(venue.connection(client).waiting);
}

TEST(LoginBatch, WithoutProductsIsTheStartOfTheSessionAlone) {
    VenueSettings settings;
    settings.symbols = {};
    Venue venue(settings);
    const ClientHandle alice = venue.log_in("alice");
    EXPECT_EQ(venue.heard(alice), "login accepted, engine 1, highest 0 | 1: SN MEO2.7 session 1");
    EXPECT_FALSE(venue.connection(alice).waiting);
}

TEST(ScenarioLapse, BeginsWithTheFirstAcceptedLoginOnly) {
    Venue venue;
    venue.bench.arm_scenario("name=x,lapse_ms=5000", standard_error);
    attempt(venue, login("alice", 9));  // rejected
    venue.pass();
    EXPECT_FALSE(venue.bench.in_lapse(venue.clock.steady_ms()));
    venue.clock.advance_ms(1'000);
    const ClientHandle alice = venue.log_in("alice");
    // What the login itself brings comes before the silence.
    EXPECT_EQ(venue.heard(alice), "login accepted, engine 1, highest 0 | 1: SN MEO2.7 session 1 | 2: SU 1 AAPL Q");
    EXPECT_EQ(said_during([&] { venue.pass(); }),
              "bench: going silent for 5000 ms (no heartbeats; the client should disconnect after 3 s and log in again "
              "with its next expected sequence)\n");
    venue.clock.advance_ms(1000);
    venue.log_in("bob");
    EXPECT_EQ(venue.bench.lapse_until_ms, Venue::start_ms + 6'000);
    venue.clock.advance_ms(4000);
    venue.log_in("carol");
    EXPECT_EQ(said_during([&] { venue.order_entry.announce_lapse(venue.clock.steady_ms()); }), "");
    EXPECT_FALSE(venue.bench.in_lapse(venue.clock.steady_ms()));
}

TEST(ScenarioLapse, OfNoLengthNeverBegins) {
    Venue venue;
    venue.bench.arm_scenario("lapse_ms=-1", standard_error);
    venue.log_in("alice");
    EXPECT_EQ(venue.bench.lapse_until_ms, 0u);
    EXPECT_EQ(said_during([&] { venue.pass(); }), "");
}

TEST(ScenarioLapse, IsAnnouncedThoughAnotherOneWasBeforeIt) {
    Venue venue;
    venue.bench.lapse_ms = 5000;
    venue.bench.start_lapse(Venue::start_ms, 100);
    venue.pass();
    venue.clock.advance_ms(100);
    venue.log_in("alice");
    EXPECT_EQ(said_during([&] { venue.pass(); }),
              "bench: going silent for 5000 ms (no heartbeats; the client should disconnect after 3 s and log in again "
              "with its next expected sequence)\n");
}

}  // namespace
}  // namespace kavo::test
