#include "session/esesm.h"

#include <gtest/gtest.h>

#include <string>

#include "support/bytes_hex.h"

namespace kavo::esesm {
namespace {

using test::from_hex;
using test::hex_rows;
using test::to_hex;
using namespace std::string_literals;

void receive(ReceiveBuffer& buffer, ByteView bytes) {
    Bytes& incoming = buffer.incoming();
    incoming.insert(incoming.end(), bytes.begin(), bytes.end());
}

void receive(ReceiveBuffer& buffer, std::string_view hex) {
    receive(buffer, from_hex(hex));
}

// The packets that can be cut now, as "type:payload" in hexadecimal: "1: U:AABB".
std::string cut_all(ReceiveBuffer& buffer) {
    std::string list;
    while (const auto packet = buffer.cut()) {
        if (!list.empty()) list += ' ';
        list += static_cast<char>(packet->type);
        list += ':';
        for (const std::uint8_t byte : packet->payload) {
            char pair[8];
            std::snprintf(pair, sizeof pair, "%02X", static_cast<unsigned>(byte));
            list += pair;
        }
    }
    return list;
}

TEST(Cutter, FindsNothingBeforeAnythingHasArrived) {
    ReceiveBuffer buffer;
    EXPECT_EQ(cut_all(buffer), "");
}

TEST(Cutter, CutsAPacketWithoutPayload) {
    ReceiveBuffer buffer;
    receive(buffer, "01 00 31");
    EXPECT_EQ(cut_all(buffer), "1:");
    EXPECT_EQ(cut_all(buffer), "");
}

TEST(Cutter, WaitsForTheTypeBehindTheLength) {
    ReceiveBuffer buffer;
    receive(buffer, "01 00");
    EXPECT_EQ(cut_all(buffer), "");
    receive(buffer, "31");
    EXPECT_EQ(cut_all(buffer), "1:");
}

TEST(Cutter, WaitsForTheSecondByteOfTheLength) {
    ReceiveBuffer buffer;
    receive(buffer, "00");
    EXPECT_EQ(cut_all(buffer), "");
    receive(buffer, "01");
    EXPECT_EQ(cut_all(buffer), "");
    const Bytes rest(256, 'U');
    receive(buffer, ByteView(rest).first(255));
    EXPECT_EQ(cut_all(buffer), "");
    receive(buffer, ByteView(rest).first(1));
    const auto packet = buffer.cut();
    ASSERT_TRUE(packet);
    EXPECT_EQ(packet->payload.size(), 255u);
}

TEST(Cutter, CutsPacketsThatArriveTogetherInTheirOrder) {
    ReceiveBuffer buffer;
    receive(buffer, "01 00 31  03 00 55 AA BB  02 00 6C CC");
    EXPECT_EQ(cut_all(buffer), "1: U:AABB l:CC");
}

TEST(Cutter, KeepsTheBeginningOfAPacketBehindAWholeOne) {
    ReceiveBuffer buffer;
    receive(buffer, "01 00 31  03 00 55 AA");
    EXPECT_EQ(cut_all(buffer), "1:");
    receive(buffer, "BB  01 00 54");
    EXPECT_EQ(cut_all(buffer), "U:AABB T:");
}

TEST(Cutter, GivesTheSamePacketsByteByByteAsAtOnce) {
    const Bytes stream =
        from_hex("01 00 31  05 00 55 4E 31 00 FF  01 00 00  04 00 FF 01 00 31  03 00 58 00 00  01 00 54");
    const std::string packets = "1: U:4E3100FF \0: \xFF:010031 X:0000 T:"s;

    ReceiveBuffer at_once;
    receive(at_once, stream);
    EXPECT_EQ(cut_all(at_once), packets);

    ReceiveBuffer byte_by_byte;
    std::string list;
    for (const std::uint8_t byte : stream) {
        receive(byte_by_byte, ByteView(&byte, 1));
        const std::string cut = cut_all(byte_by_byte);
        if (cut.empty()) continue;
        if (!list.empty()) list += ' ';
        list += cut;
    }
    EXPECT_EQ(list, packets);
}

TEST(Cutter, GivesTheSamePacketsWhereverTheStreamIsSplit) {
    const Bytes stream = from_hex("02 00 55 AA  01 00 31  04 00 6C 01 02 03  01 00 58");
    for (std::size_t split = 0; split <= stream.size(); ++split) {
        ReceiveBuffer buffer;
        receive(buffer, ByteView(stream).first(split));
        std::string list = cut_all(buffer);
        receive(buffer, ByteView(stream).subspan(split));
        const std::string rest = cut_all(buffer);
        if (!list.empty() && !rest.empty()) list += ' ';
        EXPECT_EQ(list + rest, "U:AA 1: l:010203 X:") << "split behind " << split;
    }
}

TEST(Cutter, ThrowsEverythingAwayAtALengthOfZero) {
    ReceiveBuffer buffer;
    receive(buffer, "00 00  01 00 31");
    EXPECT_EQ(cut_all(buffer), "");
    receive(buffer, "01 00 54");
    EXPECT_EQ(cut_all(buffer), "T:");
}

TEST(Cutter, KeepsThePacketsInFrontOfALengthOfZero) {
    ReceiveBuffer buffer;
    receive(buffer, "02 00 55 AA  00 00  01 00 31");
    EXPECT_EQ(cut_all(buffer), "U:AA");
    EXPECT_EQ(cut_all(buffer), "");
    receive(buffer, "01 00 54");
    EXPECT_EQ(cut_all(buffer), "T:");
}

TEST(Cutter, TakesALengthOfZeroForWhatItIsWhenItArrivesInTwoPieces) {
    ReceiveBuffer buffer;
    receive(buffer, "00");
    EXPECT_EQ(cut_all(buffer), "");
    receive(buffer, "00");
    EXPECT_EQ(cut_all(buffer), "");
    receive(buffer, "01 00 31");
    EXPECT_EQ(cut_all(buffer), "1:");
}

TEST(Cutter, TakesThePayloadOfAPacketForNothingElse) {
    ReceiveBuffer buffer;
    receive(buffer, "06 00 55 00 00 01 00 31");
    EXPECT_EQ(cut_all(buffer), "U:0000010031");
}

TEST(Cutter, CutsTheLongestPacketThereIs) {
    ReceiveBuffer buffer;
    receive(buffer, "FF FF 55");
    const Bytes payload(65'534, 0xAB);
    receive(buffer, payload);
    receive(buffer, "01 00 31");
    const auto packet = buffer.cut();
    ASSERT_TRUE(packet);
    EXPECT_EQ(packet->type, PacketType::unsequenced_data);
    EXPECT_EQ(Bytes(packet->payload.begin(), packet->payload.end()), payload);
    EXPECT_EQ(cut_all(buffer), "1:");
}

TEST(Cutter, CutsTypesThatNobodyKnows) {
    ReceiveBuffer buffer;
    receive(buffer, "02 00 3F 01  01 00 00  01 00 FF");
    EXPECT_EQ(cut_all(buffer), "?:01 \0: \xFF:"s);
}

TEST(Cutter, GoesOnBehindWhatWasCutWhenMoreArrivesInBetween) {
    ReceiveBuffer buffer;
    receive(buffer, "01 00 31  02 00 55 AA");
    ASSERT_TRUE(buffer.cut());
    receive(buffer, "02 00 55 BB");
    EXPECT_EQ(cut_all(buffer), "U:AA U:BB");
}

TEST(Cutter, KnowsWhetherItHoldsAWholePacket) {
    ReceiveBuffer buffer;
    EXPECT_FALSE(buffer.holds_packet());
    receive(buffer, "02");
    EXPECT_FALSE(buffer.holds_packet());
    receive(buffer, "00 55");
    EXPECT_FALSE(buffer.holds_packet());
    receive(buffer, "AA 01");
    EXPECT_TRUE(buffer.holds_packet());
    EXPECT_EQ(cut_all(buffer), "U:AA");
    EXPECT_FALSE(buffer.holds_packet());
    receive(buffer, "00 31");
    EXPECT_TRUE(buffer.holds_packet());
}

TEST(Cutter, HoldsNoPacketBehindALengthOfZero) {
    ReceiveBuffer buffer;
    receive(buffer, "00 00  01 00 31");
    EXPECT_FALSE(buffer.holds_packet());
    EXPECT_EQ(cut_all(buffer), "");
    EXPECT_FALSE(buffer.holds_packet());
}

// A login payload: four texts, a count of entries and whatever follows it.
Bytes login_payload(std::string_view texts, std::uint8_t count, std::size_t more) {
    Bytes payload(texts.begin(), texts.end());
    payload.push_back(count);
    payload.resize(payload.size() + more);
    return payload;
}

constexpr std::string_view login_texts = "1.0  BOB  DESK7   MEO2.7  ";

TEST(LoginRequestReader, RefusesWhatIsShorterThanTheFixedPart) {
    EXPECT_FALSE(read_login_request({}));
    EXPECT_FALSE(read_login_request(as_bytes(login_texts)));  // 26 bytes
}

TEST(LoginRequestReader, TakesTheFixedPartAloneWhenItAnnouncesNoEntry) {
    ASSERT_EQ(login_payload(login_texts, 0, 0).size(), 27u);
    const auto request = read_login_request(login_payload(login_texts, 0, 0));
    ASSERT_TRUE(request);
    EXPECT_EQ(request->username, "BOB");
    EXPECT_TRUE(request->entries.empty());
}

TEST(LoginRequestReader, RefusesEntriesThatAreAnnouncedButMissing) {
    EXPECT_FALSE(read_login_request(login_payload(login_texts, 1, 0)));
    EXPECT_FALSE(read_login_request(login_payload(login_texts, 1, 8)));
    EXPECT_TRUE(read_login_request(login_payload(login_texts, 1, 9)));
    EXPECT_FALSE(read_login_request(login_payload(login_texts, 2, 17)));
    EXPECT_TRUE(read_login_request(login_payload(login_texts, 2, 18)));
}

TEST(LoginRequestReader, IgnoresWhatFollowsTheLastEntry) {
    const auto one = read_login_request(login_payload(login_texts, 1, 30));
    ASSERT_TRUE(one);
    EXPECT_EQ(one->entries.size(), 1u);
    const auto none = read_login_request(login_payload(login_texts, 0, 30));
    ASSERT_TRUE(none);
    EXPECT_TRUE(none->entries.empty());
}

TEST(LoginRequestReader, TakesAsManyEntriesAsAByteCanAnnounce) {
    Bytes payload = login_payload(login_texts, 255, 255 * 9);
    payload[27 + 254 * 9] = 0xAB;
    payload[28 + 254 * 9] = 0xCD;
    const auto request = read_login_request(payload);
    ASSERT_TRUE(request);
    ASSERT_EQ(request->entries.size(), 255u);
    EXPECT_EQ(request->entries[254].matching_engine_id, 0xABu);
    EXPECT_EQ(request->entries[254].requested_sequence, 0xCDu);
    payload.pop_back();
    EXPECT_FALSE(read_login_request(payload));
}

TEST(LoginRequestReader, ReadsBlanksAndNulsBehindATextAsNothing) {
    const auto request = read_login_request(login_payload("1.0\0\0BOB \0DESK7\0 \0MEO2.7\0 "s, 0, 0));
    ASSERT_TRUE(request);
    EXPECT_EQ(request->session_protocol_version, "1.0");
    EXPECT_EQ(request->username, "BOB");
    EXPECT_EQ(request->computer_id, "DESK7");
    EXPECT_EQ(request->application_protocol_version, "MEO2.7");
}

TEST(LoginRequestReader, ReadsATextOfPaddingAsEmpty) {
    const auto request = read_login_request(login_payload("1.0       \0\0\0\0\0\0\0\0MEO2.7  "s, 0, 0));
    ASSERT_TRUE(request);
    EXPECT_EQ(request->session_protocol_version, "1.0");
    EXPECT_EQ(request->username, "");
    EXPECT_EQ(request->computer_id, "");
    EXPECT_EQ(request->application_protocol_version, "MEO2.7");
}

TEST(LoginRequestReader, KeepsBlanksAndNulsInsideAText) {
    const auto request = read_login_request(login_payload(" 1.0 B\0B  \0DESK 7\0MEO 2.7 "s, 0, 0));
    ASSERT_TRUE(request);
    EXPECT_EQ(request->session_protocol_version, " 1.0");
    EXPECT_EQ(request->username, "B\0B"s);
    EXPECT_EQ(request->computer_id, "\0DESK 7"s);
    EXPECT_EQ(request->application_protocol_version, "MEO 2.7");
}

TEST(LoginRequestReader, TakesTextsThatFillTheirFields) {
    const auto request = read_login_request(login_payload("12345abcdeABCDEFGH87654321", 0, 0));
    ASSERT_TRUE(request);
    EXPECT_EQ(request->session_protocol_version, "12345");
    EXPECT_EQ(request->username, "abcde");
    EXPECT_EQ(request->computer_id, "ABCDEFGH");
    EXPECT_EQ(request->application_protocol_version, "87654321");
}

TEST(LoginStatusText, ExplainsEachStatus) {
    const auto text = [](char status) { return login_status_text(static_cast<LoginStatus>(status)); };
    EXPECT_EQ(text(' '), "successful");
    EXPECT_EQ(text('A'), "incompatible application protocol version");
    EXPECT_EQ(text('C'), "invalid number of matching engines");
    EXPECT_EQ(text('I'), "incompatible session protocol version");
    EXPECT_EQ(text('L'), "client already logged in");
    EXPECT_EQ(text('N'), "invalid start sequence number requested");
    EXPECT_EQ(text('S'), "invalid trading session requested");
    EXPECT_EQ(text('U'), "matching engine unavailable");
    EXPECT_EQ(text('X'), "invalid username/computer ID");
}

TEST(LoginStatusText, IsUnknownForEveryOtherCharacter) {
    for (int status = 0; status < 256; ++status) {
        if (" ACILNSUX"s.find(static_cast<char>(status)) != std::string::npos) continue;
        EXPECT_EQ(login_status_text(static_cast<LoginStatus>(status)), "unknown status") << status;
    }
    EXPECT_EQ(login_status_text(static_cast<LoginStatus>('Z')), "unknown status");
}

TEST(GoodbyeTexts, AreWhatBothServicesSay) {
    EXPECT_EQ(malformed_login_text, "malformed login");
    EXPECT_EQ(not_logged_in_text, "not logged in");
    EXPECT_EQ(login_timeout_text, "timed out waiting for login");
}

TEST(PacketBuilder, StatesTheLengthOfTypeAndPayload) {
    EXPECT_EQ(to_hex(build_packet(PacketType::unsequenced_data, {})), hex_rows("01 00 55"));
    EXPECT_EQ(to_hex(build_packet(PacketType::unsequenced_data, from_hex("AA"))), hex_rows("02 00 55 AA"));

    const Bytes packet = build_packet(PacketType::unsequenced_data, Bytes(299, 0xAA));
    EXPECT_EQ(packet.size(), 302u);
    EXPECT_EQ(to_hex(ByteView(packet).first(3)), hex_rows("2C 01 55"));
}

TEST(PacketBuilder, BuildsTheLongestPacketThereIs) {
    const Bytes packet = build_packet(PacketType::unsequenced_data, Bytes(65'534, 0xAA));
    EXPECT_EQ(packet.size(), 65'537u);
    EXPECT_EQ(to_hex(ByteView(packet).first(4)), hex_rows("FF FF 55 AA"));
}

TEST(PacketBuilder, BuildsWhatTheCutterTakesApart) {
    ReceiveBuffer buffer;
    receive(buffer, build_packet(PacketType::login_request, from_hex("01 02")));
    receive(buffer, server_heartbeat);
    receive(buffer, replay_complete);
    receive(buffer, build(Goodbye{GoodbyeReason::done, ""}));
    EXPECT_EQ(cut_all(buffer), "l:0102 0: c:01 G:41");
}

TEST(GoodbyePacket, GivesItsReasonAndItsTextWithoutANul) {
    EXPECT_EQ(as_text(build(Goodbye{GoodbyeReason::bad_packet, "malformed login"})), "\x11\0GBmalformed login"s);
    EXPECT_EQ(as_text(build(Goodbye{GoodbyeReason::login_timeout, login_timeout_text})),
              "\x1D\0GLtimed out waiting for login"s);
    EXPECT_EQ(as_text(build(Goodbye{GoodbyeReason::done, login_status_text(LoginStatus::already_logged_in)})),
              "\x1A\0GAclient already logged in"s);
    EXPECT_EQ(as_text(build(Goodbye{GoodbyeReason::done, ""})), "\x02\0GA"s);
}

TEST(LoginResponsePacket, MayHaveNoEntry) {
    EXPECT_EQ(to_hex(build(LoginResponse{})), hex_rows("02 00 72 00"));
}

TEST(LoginResponsePacket, CarriesTheSessionNumberWhereSequencedDataCarriesOne) {
    const Bytes response = build(LoginResponse{{{LoginStatus::successful, 42, 0}}});
    EXPECT_EQ(response[5], 42u);
    Bytes data(sequenced_size(0));
    build_sequenced(data, 1, {});
    EXPECT_EQ(data[11], 1u);
}

TEST(SequencedDataPacket, MayCarryAnEmptyMessage) {
    Bytes packet(sequenced_size(0), 0xEE);
    build_sequenced(packet, 5, {});
    EXPECT_EQ(to_hex(packet), hex_rows("0A 00 73 05 00 00 00 00 00 00 00 01"));
}

}  // namespace
}  // namespace kavo::esesm
