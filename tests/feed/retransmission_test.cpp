// The service behind the feed, without sockets: who may log in, which messages are sent again, and every way in which a
// conversation ends.
#include "feed/retransmission.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <utility>
#include <vector>

#include "client/recovery_client.h"
#include "memory/memory_peers.h"
#include "support/bytes_hex.h"
#include "support/bytes_of_feed.h"
#include "support/packets.h"
#include "support/said.h"
#include "support/scene.h"

namespace kavo::test {
namespace {

constexpr std::uint64_t largest = 0xFFFFFFFFFFFFFFFF;

Bytes login_packet(const Login& login = receiver_login()) {
    return packet('l', login.payload());
}
// One receiver's connection to the service of a feed that has published nothing yet. What is sent to it shows as lines,
// see recovery_client.h; of retransmitted messages only the numbers.
struct RetransmissionTest : testing::Test {
    void send(const Bytes& bytes) {
        said += said_during([&] { service.receive(connection(), bytes); });
    }
    void log_in() {
        send(login_packet());
        heard();
    }
    // What came from the service since the last call.
    std::string heard() {
        std::vector<std::string> lines;
        esesm::ReceiveBuffer cutter;
        cutter.incoming() = std::exchange(peer().received, {});
        while (const auto cut = cutter.cut()) {
            const std::string text = recovery_text(packet(static_cast<char>(cut->type), cut->payload));
            lines.push_back(cut->type == esesm::PacketType::sequenced_data ? text.substr(0, text.find(':')) : text);
        }
        if (!connection().open()) lines.push_back("closed");
        return joined(lines);
    }
    // The numbers of the messages that are sent again on request.
    std::string sent_again(std::uint64_t first, std::uint64_t last) {
        service.open_connection(++fd);
        log_in();
        send(retransmission(first, last));
        std::string lines = heard();
        const std::string end = "goodbye 'A' retransmission complete | closed";
        EXPECT_TRUE(lines.ends_with(end)) << lines;
        lines.resize(lines.size() - std::min(lines.size(), end.size()));
        if (!lines.empty()) lines.resize(lines.size() - 3);  // the separator
        return lines;
    }
    RConn& connection() { return service.connections().back(); }
    MemoryPeer& peer() { return peers.peers[fd]; }
    const Bytes& sent() { return peer().received; }

    CaughtFeed caught;
    DomFeed& feed = caught.feed;
    int fd = 100;
    MemoryPeers peers;
    std::string said;  // on standard error
    Retransmission service{feed, caught.clock, peers.transport(), CaughtFeed::session, caught.commentary};

    RetransmissionTest() { service.open_connection(fd); }
};

using ReceiverLogin = RetransmissionTest;
using ReceiverPacket = RetransmissionTest;
using RetransmittedRange = RetransmissionTest;
using ReceiverConnection = RetransmissionTest;

TEST_F(ReceiverLogin, IsAcceptedWithTheSessionAndTheLastNumberPublished) {
    caught.publish(12);
    send(login_packet());
    EXPECT_EQ(heard(), "login accepted, engine 7, highest 12");
    EXPECT_TRUE(connection().logged_in);
    EXPECT_TRUE(connection().open());
    EXPECT_EQ(said, "");
}

TEST_F(ReceiverLogin, IsAnsweredByTheseBytes) {
    caught.publish(0x123);
    send(login_packet());
    EXPECT_EQ(to_hex(sent()), hex_rows("0C 00 72   # twelve bytes follow the length: a login response\n"
                                       "01 20 07   # one entry: successful, session 7\n"
                                       "23 01 00 00 00 00 00 00"));
}

TEST_F(ReceiverLogin, ShowsNumberZeroBeforeTheFirstMessage) {
    send(login_packet());
    EXPECT_EQ(heard(), "login accepted, engine 7, highest 0");
}

TEST_F(ReceiverLogin, IsForTheFeedsProtocolInWhateverVersion) {
    for (const std::string protocol : {"DoM", "DoM1.3", "DoM9", "DoMinion"}) {
        Login login = receiver_login();
        login.application_protocol = protocol;
        send(login_packet(login));
        EXPECT_EQ(heard(), "login accepted, engine 7, highest 0") << protocol;
    }
}

TEST_F(ReceiverLogin, NeedsNeitherAUserNorAComputer) {
    Login login = receiver_login("");
    login.computer_id = "";
    send(login_packet(login));
    EXPECT_EQ(heard(), "login accepted, engine 7, highest 0");
}

TEST_F(ReceiverLogin, MayNameAnyMatchingEngine) {
    Login login = receiver_login();
    login.matching_engine_id = 99;
    send(login_packet(login));
    EXPECT_EQ(heard(), "login accepted, engine 7, highest 0");
}

TEST_F(ReceiverLogin, OfTheSameNameMayComeTwice) {
    log_in();
    service.open_connection(++fd);
    send(login_packet());
    EXPECT_EQ(heard(), "login accepted, engine 7, highest 0");
}

TEST_F(ReceiverLogin, InAnotherSessionProtocolEndsTheConnection) {
    Login login = receiver_login();
    login.session_protocol = "1.1";
    login.application_protocol = "MEO2.7";  // the session protocol is looked at first
    send(login_packet(login));
    EXPECT_EQ(heard(),
              "login rejected 'I', engine 7, highest 0 | goodbye 'A' incompatible session protocol version | closed");
    EXPECT_EQ(said, "bench: retransmission login recv REJECTED (I: incompatible session protocol version)\n");
}

TEST_F(ReceiverLogin, InAnotherApplicationProtocolEndsTheConnection) {
    for (const std::string protocol : {"MEO2.7", "dom1.3", "Do", ""}) {
        Login login = receiver_login("bob");
        login.application_protocol = protocol;
        login.matching_engine_count = 0;  // looked at behind the protocol
        said = "";
        service.open_connection(++fd);
        send(login_packet(login));
        EXPECT_EQ(heard(),
                  "login rejected 'A', engine 7, highest 0 | goodbye 'A' incompatible application protocol version | "
                  "closed")
            << protocol;
        EXPECT_EQ(said, "bench: retransmission login bob REJECTED (A: incompatible application protocol version)\n");
    }
}

TEST_F(ReceiverLogin, WithoutExactlyOneEngineEndsTheConnection) {
    for (const auto count : {std::uint8_t{0}, std::uint8_t{2}}) {
        Login login = receiver_login();
        login.matching_engine_count = count;
        login.requested_sequence = 5;  // looked at behind the number of engines
        said = "";
        service.open_connection(++fd);
        send(login_packet(login));
        EXPECT_EQ(heard(),
                  "login rejected 'C', engine 7, highest 0 | goodbye 'A' invalid number of matching engines | closed");
        EXPECT_EQ(said, "bench: retransmission login recv REJECTED (C: invalid number of matching engines)\n");
    }
}

TEST_F(ReceiverLogin, FromASequenceIsRejectedButMayBeTriedAgainOnTheSameConnection) {
    caught.publish(3);
    Login login = receiver_login();
    login.requested_sequence = 1;
    send(login_packet(login));
    EXPECT_EQ(heard(), "login rejected 'N', engine 7, highest 3");
    EXPECT_EQ(said, "bench: retransmission login recv REJECTED (N: invalid start sequence number requested)\n");
    EXPECT_FALSE(connection().logged_in);

    send(login_packet());
    EXPECT_EQ(heard(), "login accepted, engine 7, highest 3");
    send(retransmission(2, 2));
    EXPECT_EQ(heard(), "2 | goodbye 'A' retransmission complete | closed");
}

TEST_F(ReceiverLogin, FromASequenceLeavesTheReceiverWithoutARightToAsk) {
    Login login = receiver_login();
    login.requested_sequence = 1;
    send(login_packet(login));
    heard();
    send(retransmission(1, 1));
    EXPECT_EQ(heard(), "goodbye 'B' not logged in | closed");
}

TEST_F(ReceiverLogin, IsJudgedAgainWhenItComesASecondTime) {
    log_in();
    send(login_packet());
    EXPECT_EQ(heard(), "login accepted, engine 7, highest 0");
    Login login = receiver_login();
    login.session_protocol = "2.0";
    send(login_packet(login));
    EXPECT_EQ(heard(),
              "login rejected 'I', engine 7, highest 0 | goodbye 'A' incompatible session protocol version | closed");
}

TEST_F(ReceiverLogin, ThatIsCutShortEndsTheConnectionWithoutAResponse) {
    const Bytes whole = receiver_login().payload();
    ASSERT_EQ(whole.size(), 36u);
    for (const std::size_t size : {0u, 1u, 26u, 27u, 35u}) {
        for (const bool logged_in : {false, true}) {
            service.open_connection(++fd);
            if (logged_in) log_in();
            send(packet('l', ByteView(whole).first(size)));
            EXPECT_EQ(heard(), "goodbye 'B' malformed login | closed") << size;
        }
    }
    EXPECT_EQ(said, "");
}

TEST_F(ReceiverLogin, MayHaveBytesBehindItsEntry) {
    Bytes longer = receiver_login().payload();
    longer.push_back(0xFF);
    send(packet('l', longer));
    EXPECT_EQ(heard(), "login accepted, engine 7, highest 0");
}

TEST_F(ReceiverLogin, TimesOutMoreThanThirtySecondsAfterTheConnection) {
    caught.clock.advance_ms(30'000);
    service.run_timer(connection());
    EXPECT_EQ(heard(), "");
    caught.clock.advance_ms(1);
    service.run_timer(connection());
    EXPECT_EQ(heard(), "goodbye 'L' timed out waiting for login | closed");
    EXPECT_EQ(peer().closed, 1);
    EXPECT_EQ(said, "");
}

TEST_F(ReceiverLogin, TimesOutThoughTheReceiverKeepsTalking) {
    caught.clock.advance_ms(29'999);
    send(packet('1'));
    caught.clock.advance_ms(2);
    service.run_timer(connection());
    EXPECT_EQ(heard(), "goodbye 'L' timed out waiting for login | closed");
}

TEST_F(ReceiverLogin, TimesOutAfterOneThatWasRejectedForItsSequence) {
    Login login = receiver_login();
    login.requested_sequence = 1;
    caught.clock.advance_ms(29'000);
    send(login_packet(login));
    heard();
    caught.clock.advance_ms(1'001);
    service.run_timer(connection());
    EXPECT_EQ(heard(), "goodbye 'L' timed out waiting for login | closed");
}

TEST_F(ReceiverLogin, OnceAcceptedNeverTimesOut) {
    log_in();
    caught.clock.advance_ms(1'000'000);
    service.run_timer(connection());
    EXPECT_EQ(heard(), "");
}

TEST_F(RetransmittedRange, IsSentAsItWasPublishedWithItsNumbers) {
    feed.publish(from_hex("41 42 43"));
    feed.publish(from_hex("FF"));
    log_in();
    send(retransmission(1, 2));
    EXPECT_EQ(to_hex(sent()), hex_rows("0D 00 73   # thirteen bytes: sequenced data\n"
                                       "01 00 00 00 00 00 00 00 01   # message 1, engine 1\n"
                                       "41 42 43\n"
                                       "0B 00 73\n"
                                       "02 00 00 00 00 00 00 00 01\n"
                                       "FF\n"
                                       "19 00 47 41   # twenty-five bytes: goodbye, reason A\n"
                                       "72 65 74 72 61 6E 73 6D 69 73 73 69 6F 6E 20   # 'retransmission '\n"
                                       "63 6F 6D 70 6C 65 74 65   # 'complete'"));
    EXPECT_EQ(peer().closed, 1);
}

TEST_F(RetransmittedRange, IsAnyPartOfWhatHasBeenPublished) {
    caught.publish(9);
    EXPECT_EQ(sent_again(1, 9), "1 | 2 | 3 | 4 | 5 | 6 | 7 | 8 | 9");
    EXPECT_EQ(sent_again(3, 5), "3 | 4 | 5");
    EXPECT_EQ(sent_again(7, 7), "7");
    EXPECT_EQ(sent_again(9, 9), "9");
    EXPECT_EQ(feed.counters.retransmissions, 4u);
}

TEST_F(RetransmittedRange, EndsWithTheLastMessagePublished) {
    caught.publish(4);
    EXPECT_EQ(sent_again(3, 1000), "3 | 4");
    EXPECT_EQ(sent_again(4, largest), "4");
    EXPECT_EQ(sent_again(0, largest), "1 | 2 | 3 | 4");
    EXPECT_EQ(sent_again(1, largest), "1 | 2 | 3 | 4");
}

TEST_F(RetransmittedRange, IsEmptyBeyondTheLastMessagePublished) {
    caught.publish(4);
    EXPECT_EQ(sent_again(5, 5), "");
    EXPECT_EQ(sent_again(5, largest), "");
    EXPECT_EQ(sent_again(largest, largest), "");
    EXPECT_EQ(feed.counters.retransmissions, 3u);  // served all the same
}

TEST_F(RetransmittedRange, IsEmptyWhenItIsInverted) {
    caught.publish(4);
    EXPECT_EQ(sent_again(3, 2), "");
    EXPECT_EQ(sent_again(4, 1), "");
    EXPECT_EQ(sent_again(largest, 0), "");
    EXPECT_EQ(sent_again(0, 0), "");
}

TEST_F(RetransmittedRange, IsEmptyBeforeAnythingHasBeenPublished) {
    EXPECT_EQ(sent_again(0, 0), "");
    EXPECT_EQ(sent_again(1, 1), "");
    EXPECT_EQ(sent_again(1, largest), "");
}

TEST_F(RetransmittedRange, BeginsWithTheOldestMessageHeld) {
    caught.publish(300);
    feed.history.trim(201);
    ASSERT_EQ(feed.history.oldest(), 100u);
    std::string all = "100";
    for (int number = 101; number <= 300; ++number) all += " | " + std::to_string(number);
    EXPECT_EQ(sent_again(1, 1000), all);
    EXPECT_EQ(sent_again(0, largest), all);
    EXPECT_EQ(sent_again(99, 101), "100 | 101");
    EXPECT_EQ(sent_again(100, 100), "100");
}

TEST_F(RetransmittedRange, IsEmptyBelowTheOldestMessageHeld) {
    caught.publish(300);
    feed.history.trim(201);
    EXPECT_EQ(sent_again(1, 99), "");
    EXPECT_EQ(sent_again(99, 99), "");
    EXPECT_EQ(sent_again(0, 0), "");
}

TEST_F(RetransmittedRange, MayHoldAMessageThatWasTooLongToBeSent) {
    caught.publish(1, 1389);
    log_in();
    send(retransmission(1, 1));
    EXPECT_EQ(sent().size(), 3 + 9 + 1389 + 27u);
    EXPECT_EQ(to_hex(ByteView(sent()).subspan(12, 1389)), to_hex(Bytes(1389, 1)));
}

TEST_F(RetransmittedRange, MaySpanManyBlocksOfTheHistory) {
    caught.publish(5000, 50);
    log_in();
    send(retransmission(1, largest));
    std::string all;
    for (int number = 1; number <= 5000; ++number) all += std::to_string(number) + " | ";
    EXPECT_EQ(heard(), all + "goodbye 'A' retransmission complete | closed");
}

TEST_F(RetransmittedRange, HoldsWhatWasDroppedOnTheFeed) {
    feed.faults.drop_every = 1;
    said_during([&] { caught.send(3); });
    ASSERT_EQ(caught.take_sent(), "");
    EXPECT_EQ(sent_again(1, 3), "1 | 2 | 3");
}

TEST_F(RetransmittedRange, HoldsWhatHasBeenPublishedButNotFlushed) {
    caught.publish(2);
    ASSERT_EQ(caught.take_sent(), "");
    EXPECT_EQ(sent_again(1, 3), "1 | 2");
}

TEST_F(ReceiverPacket, ThatAsksWithoutALoginEndsTheConnection) {
    caught.publish(2);
    send(retransmission(1, 2));
    EXPECT_EQ(heard(), "goodbye 'B' not logged in | closed");
    service.open_connection(++fd);
    send(packet('a'));  // the login is looked at before the length
    EXPECT_EQ(heard(), "goodbye 'B' not logged in | closed");
    service.open_connection(++fd);
    send(packet('U', as_bytes("RO")));
    EXPECT_EQ(heard(), "goodbye 'B' unknown request | closed");
    EXPECT_EQ(feed.counters.retransmissions, 0u);
    EXPECT_EQ(said, "");
}

TEST_F(ReceiverPacket, ThatIsTooShortForARangeEndsTheConnection) {
    caught.publish(2);
    const Bytes whole = retransmission_payload(1, 2);
    for (const std::size_t size : {0u, 8u, 15u}) {
        service.open_connection(++fd);
        log_in();
        send(packet('a', ByteView(whole).first(size)));
        EXPECT_EQ(heard(), "goodbye 'B' malformed retransmission request | closed") << size;
    }
    EXPECT_EQ(feed.counters.retransmissions, 0u);
}

TEST_F(ReceiverPacket, MayHaveBytesBehindTheRange) {
    caught.publish(2);
    Bytes longer = retransmission_payload(2, 2);
    longer.insert(longer.end(), 20, 0xFF);
    log_in();
    send(packet('a', longer));
    EXPECT_EQ(heard(), "2 | goodbye 'A' retransmission complete | closed");
}

TEST_F(ReceiverPacket, OfAnUnknownTypeEndsTheConnectionLoggedInOrNot) {
    for (const char type : {'r', 's', 'G', '0', 'c', 'Z', 'A', 'L', '\0', '\xFF'}) {
        service.open_connection(++fd);
        send(packet(type, as_bytes("anything")));
        EXPECT_EQ(heard(), "goodbye 'B' unknown packet type | closed") << type;
        service.open_connection(++fd);
        log_in();
        send(packet(type));
        EXPECT_EQ(heard(), "goodbye 'B' unknown packet type | closed") << type;
    }
}

TEST_F(ReceiverPacket, ThatIsAHeartbeatIsIgnoredLoggedInOrNot) {
    for (const char type : {'1', 'T'}) {
        service.open_connection(++fd);
        send(packet(type));
        send(packet(type, as_bytes("payload")));
        EXPECT_EQ(heard(), "");
        log_in();
        send(packet(type));
        EXPECT_EQ(heard(), "");
        EXPECT_TRUE(connection().open());
    }
}

TEST_F(ReceiverPacket, ThatIsALogoutEndsTheConnectionWithoutAWord) {
    send(packet('X'));
    EXPECT_EQ(heard(), "closed");
    EXPECT_EQ(peer().closed, 1);
    service.open_connection(++fd);
    log_in();
    send(packet('X', as_bytes("payload")));
    EXPECT_EQ(heard(), "closed");
    EXPECT_EQ(peer().closed, 1);
    EXPECT_EQ(said, "");
}

TEST_F(ReceiverPacket, MayArriveByteByByte) {
    caught.publish(3);
    for (const std::uint8_t byte : together({login_packet(), packet('1'), retransmission(2, 3)})) send({byte});
    EXPECT_EQ(heard(), "login accepted, engine 7, highest 3 | 2 | 3 | goodbye 'A' retransmission complete | closed");
}

TEST_F(ReceiverPacket, MayArriveWithOthersAtOnce) {
    caught.publish(3);
    send(together({packet('1'), login_packet(), packet('T'), retransmission(1, 1)}));
    EXPECT_EQ(heard(), "login accepted, engine 7, highest 3 | 1 | goodbye 'A' retransmission complete | closed");
}

TEST_F(ReceiverPacket, WaitsUntilItIsWhole) {
    caught.publish(1);
    log_in();
    const Bytes whole = retransmission(1, 1);
    send(Bytes(whole.begin(), whole.end() - 1));
    EXPECT_EQ(heard(), "");
    send({whole.back()});
    EXPECT_EQ(heard(), "1 | goodbye 'A' retransmission complete | closed");
}

TEST_F(ReceiverPacket, BehindAServedRequestIsNeverRead) {
    caught.publish(3);
    log_in();
    send(together({retransmission(1, 1), retransmission(2, 3), packet('Z')}));
    EXPECT_EQ(heard(), "1 | goodbye 'A' retransmission complete | closed");
    EXPECT_EQ(feed.counters.retransmissions, 1u);
    EXPECT_EQ(peer().closed, 1);
}

TEST_F(ReceiverPacket, BehindARefusedRequestIsNeverRead) {
    send(together({retransmission(1, 1), login_packet(), packet('Z')}));
    EXPECT_EQ(heard(), "goodbye 'B' not logged in | closed");
}

TEST_F(ReceiverPacket, OfLengthZeroTakesEverythingReceivedWithIt) {
    caught.publish(1);
    log_in();
    send(together({from_hex("00 00"), retransmission(1, 1)}));
    EXPECT_EQ(heard(), "");
    send(retransmission(1, 1));
    EXPECT_EQ(heard(), "1 | goodbye 'A' retransmission complete | closed");
}

TEST_F(ReceiverConnection, ThatBreaksWhileItIsServedIsClosedOnce) {
    caught.publish(3);
    log_in();
    peer().broken = true;
    send(retransmission(1, 3));
    EXPECT_FALSE(connection().open());
    EXPECT_EQ(peer().closed, 1);
    const std::string lines = heard();
    EXPECT_EQ(lines.find("goodbye"), std::string::npos) << lines;
}

TEST_F(ReceiverConnection, ThatBreaksDuringTheLoginIsClosedOnce) {
    peer().broken = true;
    send(together({login_packet(), retransmission(1, 1)}));
    EXPECT_FALSE(connection().open());
    EXPECT_EQ(peer().closed, 1);
}

TEST_F(ReceiverConnection, ThatBreaksDuringAGoodbyeIsClosedOnce) {
    peer().broken = true;
    send(packet('Z'));
    EXPECT_FALSE(connection().open());
    EXPECT_EQ(peer().closed, 1);
}

TEST_F(ReceiverConnection, IsForgottenOnceItIsClosed) {
    service.open_connection(++fd);
    service.open_connection(++fd);
    ASSERT_EQ(service.connections().size(), 3u);
    for (RConn& open : service.connections()) open.readable = false;  // there is no socket behind it
    send(packet('X'));
    service.serve();
    EXPECT_EQ(service.connections().size(), 2u);
}

TEST_F(ReceiverConnection, HasNothingToDoWithTheOthers) {
    caught.publish(2);
    service.open_connection(++fd);
    RConn& first = service.connections().front();
    said_during([&] { service.receive(first, login_packet()); });
    EXPECT_TRUE(first.logged_in);
    EXPECT_FALSE(connection().logged_in);
    said_during([&] { service.receive(first, packet('Z')); });
    EXPECT_FALSE(first.open());
    EXPECT_TRUE(connection().open());
}

}  // namespace
}  // namespace kavo::test
