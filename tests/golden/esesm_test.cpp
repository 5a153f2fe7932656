// The packets of the session protocol, byte by byte.
#include "session/esesm.h"

#include <gtest/gtest.h>

#include "support/bytes_hex.h"

namespace kavo::esesm {
namespace {

using test::from_hex;
using test::hex_rows;
using test::to_hex;

// Holds one packet as it is received and cut.
struct Received {
    explicit Received(std::string_view hex) {
        const Bytes bytes = from_hex(hex);
        buffer.incoming().insert(buffer.incoming().end(), bytes.begin(), bytes.end());
        packet = buffer.cut();
    }
    ReceiveBuffer buffer;
    std::optional<Packet> packet;
};

TEST(EsesmBytes, LoginRequest) {
    const Received received(R"(
        2E 00                               # packet length 46
        6C                                  # type 'l'
        31 2E 30 20 20                      # session_protocol_version "1.0", blanks
        42 4F 42 00 00                      # username "BOB", NULs
        44 45 53 4B 20 37 20 20             # computer_id "DESK 7", blanks
        4D 45 4F 32 2E 37 20 00             # application_protocol_version "MEO2.7", a blank and a NUL
        02                                  # matching_engine_count 2
        00                                  # matching_engine_id 0
        11 12 13 14 15 16 17 18             # requested_sequence 0x1817161514131211
        FF                                  # matching_engine_id 255
        02 00 00 00 00 00 00 00             # requested_sequence 2
    )");
    ASSERT_TRUE(received.packet);
    EXPECT_EQ(received.packet->type, PacketType::login_request);

    const auto request = read_login_request(received.packet->payload);
    ASSERT_TRUE(request);
    EXPECT_EQ(request->session_protocol_version, "1.0");
    EXPECT_EQ(request->username, "BOB");
    EXPECT_EQ(request->computer_id, "DESK 7");
    EXPECT_EQ(request->application_protocol_version, "MEO2.7");
    ASSERT_EQ(request->entries.size(), 2u);
    EXPECT_EQ(request->entries[0].matching_engine_id, 0u);
    EXPECT_EQ(request->entries[0].requested_sequence, 0x1817161514131211u);
    EXPECT_EQ(request->entries[1].matching_engine_id, 255u);
    EXPECT_EQ(request->entries[1].requested_sequence, 2u);
}

TEST(EsesmBytes, LoginResponseThatAccepts) {
    EXPECT_EQ(to_hex(build(LoginResponse{{{LoginStatus::successful, 200, 0x1817161514131211}}})), hex_rows(R"(
        0C 00                               # packet length 12
        72                                  # type 'r'
        01                                  # one entry
        20                                  # login_status ' '
        C8                                  # matching_engine_id: session number 200
        11 12 13 14 15 16 17 18             # highest_sequence
    )"));
}

TEST(EsesmBytes, LoginResponseOfTwoEntries) {
    EXPECT_EQ(
        to_hex(build(LoginResponse{{{LoginStatus::invalid_user, 1, 0}, {LoginStatus::invalid_engine_count, 2, 9}}})),
        hex_rows(R"(
        16 00                               # packet length 22
        72                                  # type 'r'
        02                                  # two entries
        58                                  # login_status 'X'
        01                                  # matching_engine_id 1
        00 00 00 00 00 00 00 00             # highest_sequence 0
        43                                  # login_status 'C'
        02                                  # matching_engine_id 2
        09 00 00 00 00 00 00 00             # highest_sequence 9
    )"));
}

TEST(EsesmBytes, Goodbye) {
    EXPECT_EQ(to_hex(build(Goodbye{GoodbyeReason::bad_packet, not_logged_in_text})), hex_rows(R"(
        0F 00                               # packet length 15
        47                                  # type 'G'
        42                                  # goodbye_reason 'B'
        6E 6F 74 20 6C 6F 67 67 65 64 20 69 6E  # "not logged in", without a NUL
    )"));
}

TEST(EsesmBytes, ServerHeartbeat) {
    EXPECT_EQ(to_hex(server_heartbeat), hex_rows("01 00 30"));
    EXPECT_EQ(to_hex(build_packet(PacketType::server_heartbeat, {})), hex_rows("01 00 30"));
}

TEST(EsesmBytes, SequencedData) {
    const Bytes message = from_hex("AA BB CC");
    Bytes packet(sequenced_size(message.size()), 0xEE);
    build_sequenced(packet, 0x1817161514131211, message);
    EXPECT_EQ(to_hex(packet), hex_rows(R"(
        0D 00                               # packet length 13
        73                                  # type 's'
        11 12 13 14 15 16 17 18             # sequence
        01                                  # matching_engine_id, always 1
        AA BB CC                            # the message
    )"));
}

TEST(EsesmBytes, UnsequencedData) {
    EXPECT_EQ(to_hex(build_packet(PacketType::unsequenced_data, from_hex("AA BB CC"))), hex_rows(R"(
        04 00                               # packet length 4
        55                                  # type 'U'
        AA BB CC                            # the message, nothing else
    )"));
}

TEST(EsesmBytes, ReplayComplete) {
    EXPECT_EQ(to_hex(replay_complete), hex_rows("02 00 63 01"));
}

TEST(EsesmBytes, ClientHeartbeat) {
    const Received received("01 00 31");
    ASSERT_TRUE(received.packet);
    EXPECT_EQ(received.packet->type, PacketType::client_heartbeat);
    EXPECT_TRUE(received.packet->payload.empty());
}

TEST(EsesmBytes, ClientTest) {
    const Received received("01 00 54");
    ASSERT_TRUE(received.packet);
    EXPECT_EQ(received.packet->type, PacketType::client_test);
    EXPECT_TRUE(received.packet->payload.empty());
}

TEST(EsesmBytes, Logout) {
    const Received received("03 00 58 AA BB");
    ASSERT_TRUE(received.packet);
    EXPECT_EQ(received.packet->type, PacketType::logout_request);
    EXPECT_EQ(to_hex(received.packet->payload), hex_rows("AA BB"));
}

}  // namespace
}  // namespace kavo::esesm
