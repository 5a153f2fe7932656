#include "client/session.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>

#include "client/transcript.h"

namespace kavo::client {
namespace {

using esesm::LoginStatus;
using Kind = Session::Arrival::Kind;

Bytes login_answer(LoginStatus status, std::uint64_t highest) {
    return build(esesm::LoginResponse{{{status, 1, highest}}});
}

// A message of the stream; what it says does not matter to a session.
Bytes numbered(std::uint64_t sequence) {
    const Bytes message(3, 0xEE);
    Bytes packet(esesm::sequenced_size(message.size()));
    esesm::build_sequenced(packet, sequence, message);
    return packet;
}

Bytes bytes_of(ByteView packet) {
    return {packet.begin(), packet.end()};
}

std::string word(const Session::Arrival& arrival) {
    const std::string number = std::to_string(arrival.sequence);
    switch (arrival.kind) {
        case Kind::accepted: return "accepted";
        case Kind::refused: return "refused";
        case Kind::message: return number + (arrival.missed == 0 ? "" : " after " + std::to_string(arrival.missed));
        case Kind::repeated: return "repeated " + number;
        case Kind::hole: return "hole " + number;
        case Kind::replay_complete: return "complete";
        case Kind::heartbeat: return "heartbeat";
        case Kind::goodbye: return "goodbye";
        case Kind::other: return "other";
    }
    return {};
}

// A session and the venue's end of its connection, at a time that a test sets.
struct Line {
    explicit Line(std::uint64_t first_wanted) : session(login("alice", first_wanted)) { session.connected(now_ms); }

    // What the session makes of what the venue says.
    std::string hear(std::initializer_list<Bytes> packets) {
        for (const Bytes& packet : packets) session.receive(packet, now_ms);
        std::vector<std::string> words;
        while (const auto arrival = session.next()) words.push_back(word(*arrival));
        return joined(words);
    }
    // Takes all that the session says.
    Bytes said() {
        const Bytes all = bytes_of(session.to_send());
        session.sent(all.size(), now_ms);
        return all;
    }
    // The number that a login asks for, when that is all that is said; 99 for anything else.
    std::uint64_t asked_for() {
        const Bytes all = said();
        const auto packet = esesm::read_packet(all);
        if (!packet || packet->type != esesm::PacketType::login_request) return 99;
        const auto request = esesm::read_login_request(packet->payload);
        if (!request || request->entries.size() != 1 || packet->payload.size() + 3 != all.size()) return 99;
        return request->entries[0].requested_sequence;
    }
    void reconnect() {
        session.disconnected();
        session.connected(now_ms);
        session.log_in();
    }

    std::uint64_t now_ms = 1'000'000;
    Session session;
};

const Bytes heartbeat_from_venue{1, 0, '0'};
const Bytes heartbeat_from_client{1, 0, '1'};
const Bytes replay_complete{2, 0, 'c', 1};

TEST(Session, AsksWithItsFirstLoginForWhatItWasToldTo) {
    Line whole(1);
    whole.session.log_in();
    EXPECT_EQ(whole.asked_for(), 1u);
    Line present_end(0);
    present_end.session.log_in();
    EXPECT_EQ(present_end.asked_for(), 0u);
}

TEST(Session, SaysNothingUntilItIsToldTo) {
    const Line line(1);
    EXPECT_TRUE(line.session.to_send().empty());
    EXPECT_FALSE(line.session.logged_in());
}

TEST(Session, CountsFromThePresentEndWhenItAskedForThat) {
    Line line(0);
    line.session.log_in();
    EXPECT_EQ(line.session.next_sequence(), 0u);
    EXPECT_EQ(line.hear({login_answer(LoginStatus::successful, 41), numbered(42)}), "accepted | 42");
    EXPECT_TRUE(line.session.logged_in());
    EXPECT_EQ(line.session.next_sequence(), 43u);
}

TEST(Session, TakesAReplayAndThenWhatIsNew) {
    Line line(1);
    line.session.log_in();
    EXPECT_EQ(line.hear({login_answer(LoginStatus::successful, 2), numbered(1), numbered(2), replay_complete,
                         numbered(3), heartbeat_from_venue}),
              "accepted | 1 | 2 | complete | 3 | heartbeat");
    EXPECT_EQ(line.session.next_sequence(), 4u);
    EXPECT_EQ(line.session.end(), Session::End::none);
}

TEST(Session, ComesBackForExactlyTheNextMessage) {
    Line line(1);
    line.session.log_in();
    line.hear({login_answer(LoginStatus::successful, 0), numbered(1), numbered(2)});
    line.said();
    line.reconnect();
    EXPECT_EQ(line.asked_for(), 3u);
    EXPECT_EQ(line.hear({login_answer(LoginStatus::successful, 4), numbered(3), numbered(4), replay_complete}),
              "accepted | 3 | 4 | complete");
}

TEST(Session, ForgetsHalfAPacketAndWhatWasNotSentWithItsConnection) {
    Line line(1);
    line.session.log_in();
    line.hear({login_answer(LoginStatus::successful, 0), numbered(1)});
    Bytes half = numbered(2);
    half.pop_back();
    EXPECT_EQ(line.hear({half}), "");
    line.session.send(buy("b1").at("1.00"));
    line.reconnect();
    EXPECT_EQ(line.asked_for(), 2u);
    EXPECT_EQ(line.hear({login_answer(LoginStatus::successful, 2), numbered(2)}), "accepted | 2");
}

TEST(Session, PutsTogetherWhatArrivesInPieces) {
    Line line(1);
    line.session.log_in();
    const Bytes answer = login_answer(LoginStatus::successful, 0);
    const Bytes first(answer.begin(), answer.begin() + 1);
    const Bytes rest(answer.begin() + 1, answer.end());
    EXPECT_EQ(line.hear({first}), "");
    EXPECT_EQ(line.hear({rest, numbered(1)}), "accepted | 1");
}

TEST(Session, EndsWithAHoleAndAsksForItAgain) {
    Line line(1);
    line.session.log_in();
    EXPECT_EQ(line.hear({login_answer(LoginStatus::successful, 0), numbered(1), numbered(3), numbered(4)}),
              "accepted | 1 | hole 3 | hole 4");
    EXPECT_EQ(line.session.end(), Session::End::hole);
    EXPECT_EQ(line.session.next_sequence(), 2u);
    line.said();
    line.reconnect();
    EXPECT_EQ(line.session.end(), Session::End::none);
    EXPECT_EQ(line.asked_for(), 2u);
    EXPECT_EQ(line.hear({login_answer(LoginStatus::successful, 4), numbered(2), numbered(3), numbered(4)}),
              "accepted | 2 | 3 | 4");
}

// A lapse that begins with the login gives numbers to messages that are never sent.
TEST(Session, TakesAHoleBehindALoginWithoutAReplayForAHole) {
    Line line(5);
    line.session.log_in();
    EXPECT_EQ(line.hear({login_answer(LoginStatus::successful, 4), numbered(7)}), "accepted | hole 7");
    EXPECT_EQ(line.session.next_sequence(), 5u);
}

TEST(Session, TellsHowMuchTheVenueHasLetGoOfWhereAReplayBeginsLate) {
    Line line(5);
    line.session.log_in();
    EXPECT_EQ(line.hear({login_answer(LoginStatus::successful, 9), numbered(8), numbered(9)}),
              "accepted | 8 after 3 | 9");
    EXPECT_EQ(line.session.end(), Session::End::none);
    EXPECT_EQ(line.session.next_sequence(), 10u);
}

TEST(Session, TakesAHoleInsideAReplayForAHole) {
    Line line(1);
    line.session.log_in();
    EXPECT_EQ(line.hear({login_answer(LoginStatus::successful, 4), numbered(1), numbered(3)}), "accepted | 1 | hole 3");
}

TEST(Session, MayLogInAgainOnTheSameConnectionToFillAHole) {
    Line line(1);
    line.session.log_in();
    line.hear({login_answer(LoginStatus::successful, 0), numbered(1), numbered(3)});
    line.said();
    line.session.log_in();
    EXPECT_EQ(line.asked_for(), 2u);
    EXPECT_EQ(line.session.end(), Session::End::none);
    // What was under way when the venue had not heard of the login yet.
    EXPECT_EQ(line.hear({numbered(4)}), "hole 4");
    EXPECT_EQ(line.session.end(), Session::End::none);
    EXPECT_EQ(line.hear({login_answer(LoginStatus::successful, 4), numbered(2), numbered(3), numbered(4)}),
              "accepted | 2 | 3 | 4");
}

TEST(Session, MarksWhatARepeatedLoginBringsASecondTime) {
    Line line(1);
    line.session.log_in();
    line.hear({login_answer(LoginStatus::successful, 0), numbered(1), numbered(2)});
    line.said();
    line.session.log_in(login("alice", 1));
    EXPECT_EQ(line.asked_for(), 1u);
    EXPECT_EQ(line.hear({login_answer(LoginStatus::successful, 3), numbered(1), numbered(2), numbered(3)}),
              "accepted | repeated 1 | repeated 2 | 3");
    EXPECT_EQ(line.session.next_sequence(), 4u);
}

TEST(Session, KeepsItsPlaceWhenItIsRefused) {
    Line line(7);
    line.session.log_in();
    EXPECT_EQ(line.hear({login_answer(LoginStatus::invalid_start_sequence, 2)}), "refused");
    EXPECT_EQ(line.session.end(), Session::End::refused);
    EXPECT_EQ(line.session.refusal(), LoginStatus::invalid_start_sequence);
    EXPECT_EQ(line.session.next_sequence(), 7u);
    EXPECT_FALSE(line.session.logged_in());
}

TEST(Session, StaysRefusedWhenAGoodbyeFollows) {
    Line line(1);
    line.session.log_in();
    EXPECT_EQ(line.hear({login_answer(LoginStatus::already_logged_in, 2),
                         build(esesm::Goodbye{esesm::GoodbyeReason::done, "client already logged in"})}),
              "refused | goodbye");
    EXPECT_EQ(line.session.end(), Session::End::refused);
}

TEST(Session, EndsWithAGoodbye) {
    Line line(1);
    line.session.log_in();
    line.hear({login_answer(LoginStatus::successful, 0)});
    EXPECT_EQ(line.hear({build(esesm::Goodbye{esesm::GoodbyeReason::bad_packet, "why"})}), "goodbye");
    EXPECT_EQ(line.session.end(), Session::End::goodbye);
    EXPECT_FALSE(line.session.logged_in());
}

TEST(Session, EndsWithItsConnectionAndStillGivesOutWhatHadCome) {
    Line line(1);
    line.session.log_in();
    line.session.receive(login_answer(LoginStatus::successful, 0), line.now_ms);
    line.session.receive(numbered(1), line.now_ms);
    line.session.disconnected();
    EXPECT_EQ(line.session.end(), Session::End::disconnected);
    EXPECT_EQ(line.hear({}), "accepted | 1");
    EXPECT_EQ(line.session.next_sequence(), 2u);
}

TEST(SessionHeartbeat, IsDueHalfASecondAfterTheLastThingSaid) {
    Line line(1);
    line.session.log_in();
    line.said();
    line.now_ms += 499;
    line.session.check_time(line.now_ms);
    EXPECT_TRUE(line.session.to_send().empty());
    line.now_ms += 1;
    line.session.check_time(line.now_ms);
    EXPECT_EQ(line.said(), heartbeat_from_client);
    line.session.check_time(line.now_ms);
    EXPECT_TRUE(line.session.to_send().empty());
}

TEST(SessionHeartbeat, IsPutOffByARequest) {
    Line line(1);
    line.now_ms += 400;
    line.session.send(cancel("b1"));
    line.said();
    line.now_ms += 499;
    line.session.check_time(line.now_ms);
    EXPECT_TRUE(line.session.to_send().empty());
}

TEST(SessionHeartbeat, IsNotPiledUpInFrontOfAConnectionThatTakesNothing) {
    Line line(1);
    for (int i = 0; i < 4; ++i) {
        line.now_ms += 500;
        line.session.check_time(line.now_ms);
    }
    EXPECT_EQ(bytes_of(line.session.to_send()), heartbeat_from_client);
}

TEST(SessionHeartbeat, GoesOnBehindAHoleAndEndsWithTheConnection) {
    Line line(1);
    line.session.log_in();
    line.said();
    line.hear({login_answer(LoginStatus::successful, 0), numbered(2)});
    EXPECT_EQ(line.session.end(), Session::End::hole);
    line.now_ms += 500;
    line.session.check_time(line.now_ms);
    EXPECT_EQ(line.said(), heartbeat_from_client);
    line.session.disconnected();
    line.now_ms += 500;
    line.session.check_time(line.now_ms);
    EXPECT_TRUE(line.session.to_send().empty());
}

TEST(SessionHeartbeat, LeavesTheRestOfAPacketThatWasSentInPart) {
    Line line(1);
    line.session.say(esesm::PacketType::client_test);
    line.session.sent(2, line.now_ms);
    EXPECT_EQ(bytes_of(line.session.to_send()), Bytes{'T'});
}

TEST(SessionSilence, OfThreeSecondsEndsTheConnection) {
    Line line(1);
    line.session.log_in();
    line.hear({login_answer(LoginStatus::successful, 0)});
    line.now_ms += 2'999;
    line.session.check_time(line.now_ms);
    EXPECT_EQ(line.session.end(), Session::End::none);
    line.now_ms += 1;
    line.session.check_time(line.now_ms);
    EXPECT_EQ(line.session.end(), Session::End::silence);
}

TEST(SessionSilence, IsBrokenByAnyByte) {
    Line line(1);
    line.now_ms += 2'999;
    line.hear({Bytes{1}});
    line.now_ms += 2'999;
    line.session.check_time(line.now_ms);
    EXPECT_EQ(line.session.end(), Session::End::none);
}

TEST(SessionSilence, BeginsAnewWithAConnection) {
    Line line(1);
    line.now_ms += 3'000;
    line.session.check_time(line.now_ms);
    EXPECT_EQ(line.session.end(), Session::End::silence);
    line.reconnect();
    line.session.check_time(line.now_ms);
    EXPECT_EQ(line.session.end(), Session::End::none);
}

TEST(SessionRequests, AreUnsequencedPackets) {
    Line line(1);
    const NewOrder order = buy("b1").at("1.00");
    line.session.send(order);
    EXPECT_EQ(line.said(), esesm::build_packet(esesm::PacketType::unsequenced_data, order.bytes()));
    line.session.log_out();
    EXPECT_EQ(line.said(), (Bytes{1, 0, 'X'}));
}

TEST(SessionArrivals, CarryTheMessageAndThePacketAroundIt) {
    Line line(1);
    line.session.log_in();
    line.hear({login_answer(LoginStatus::successful, 0)});
    line.session.receive(numbered(1), line.now_ms);
    const auto arrival = line.session.next();
    ASSERT_TRUE(arrival);
    EXPECT_EQ(bytes_of(arrival->message), Bytes(3, 0xEE));
    EXPECT_EQ(bytes_of(arrival->packet), numbered(1));
}

TEST(SessionArrivals, ThatAreCutShortAreNothingKnown) {
    Line line(1);
    line.session.log_in();
    EXPECT_EQ(line.hear({esesm::build_packet(esesm::PacketType::sequenced_data, Bytes(8)),
                         esesm::build_packet(esesm::PacketType::login_response, Bytes(10, 1)),
                         esesm::build_packet(static_cast<esesm::PacketType>('?'), {})}),
              "other | other | other");
    EXPECT_FALSE(line.session.logged_in());
}

}  // namespace
}  // namespace kavo::client
