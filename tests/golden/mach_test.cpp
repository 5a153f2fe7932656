// MACH packets and the datagrams that they make up, byte by byte.
#include <gtest/gtest.h>

#include "client/feed_messages.h"
#include "feed/dom_messages.h"
#include "support/bytes_hex.h"
#include "support/bytes_of_feed.h"

namespace kavo {
namespace {

using test::CaughtFeed;
using test::from_hex;
using test::hex_rows;
using test::to_hex;

TEST(MachBytes, HeaderInFrontOfAMessage) {
    EXPECT_EQ(to_hex(build(mach::Header{0x1817161514131211, 17, mach::PacketType::application_data, 200})), hex_rows(R"(
        11 12 13 14 15 16 17 18             # sequence
        11 00                               # length 17, the header's 12 included
        03                                  # type 3: application data
        C8                                  # session number 200
    )"));
}

TEST(MachBytes, BarePacketIsAHeaderAlone) {
    EXPECT_EQ(to_hex(build(mach::Header{0x1817161514131211, 12, mach::PacketType::heartbeat, 255})), hex_rows(R"(
        11 12 13 14 15 16 17 18             # sequence
        0C 00                               # length 12
        00                                  # type 0: heartbeat
        FF                                  # session number 255
    )"));
}

TEST(MachBytes, StartPacketOfASession) {
    CaughtFeed caught;
    caught.feed.send_start();
    ASSERT_EQ(caught.sent.size(), 1u);
    EXPECT_EQ(to_hex(caught.sent[0]), hex_rows(R"(
        00 00 00 00 00 00 00 00             # sequence 0
        0C 00                               # length 12
        01                                  # type 1: start
        07                                  # session number 7
    )"));
}

TEST(MachBytes, HeartbeatAfterThreeMessages) {
    CaughtFeed caught;
    caught.publish(3);
    caught.feed.flush();
    caught.clock.advance_ms(1000);
    caught.feed.heartbeat_when_idle();
    ASSERT_EQ(caught.sent.size(), 2u);
    EXPECT_EQ(to_hex(caught.sent[1]), hex_rows(R"(
        03 00 00 00 00 00 00 00             # sequence 3: the last one used
        0C 00                               # length 12
        00                                  # type 0: heartbeat
        07                                  # session number 7
    )"));
}

TEST(MachBytes, DatagramOfTwoMessages) {
    CaughtFeed caught;
    caught.feed.publish(build(dom::SystemTime{0x24232221}));
    caught.feed.publish(build(dom::DeleteOrder{0x14131211, 2, 1000}));
    caught.feed.flush();
    ASSERT_EQ(caught.sent.size(), 1u);
    EXPECT_EQ(to_hex(caught.sent[0]), hex_rows(R"(
        01 00 00 00 00 00 00 00             # sequence 1
        11 00                               # length 17
        03                                  # type 3: application data
        07                                  # session number 7
        31                                  # System Time
        21 22 23 24                         # seconds
        02 00 00 00 00 00 00 00             # sequence 2
        1D 00                               # length 29
        03                                  # type 3: application data
        07                                  # session number 7
        17                                  # Delete Order
        11 12 13 14                         # timestamp
        02 00 00 00                         # secid 2
        E8 03 00 00 00 00 00 00             # order id 1000
    )"));
}

TEST(MachBytes, DatagramTakenApart) {
    const Bytes bytes = from_hex(R"(
        11 12 13 14 15 16 17 18             # sequence
        0F 00                               # length 15
        03                                  # type 3: application data
        C8                                  # session number 200
        AA BB CC                            # the message
        21 22 23 24 25 26 27 28             # sequence
        0C 00                               # length 12
        01                                  # type 1: start
        01                                  # session number 1
    )");
    ByteView datagram = bytes;

    const auto first = client::read_feed_packet(datagram);
    ASSERT_TRUE(first);
    EXPECT_EQ(first->header.sequence, 0x1817161514131211u);
    EXPECT_EQ(first->header.length, 15u);
    EXPECT_EQ(first->header.type, mach::PacketType::application_data);
    EXPECT_EQ(first->header.session, 200u);
    EXPECT_EQ(to_hex(first->message), hex_rows("AA BB CC"));

    const auto second = client::read_feed_packet(datagram);
    ASSERT_TRUE(second);
    EXPECT_EQ(second->header.sequence, 0x2827262524232221u);
    EXPECT_EQ(second->header.length, 12u);
    EXPECT_EQ(second->header.type, mach::PacketType::start);
    EXPECT_EQ(second->header.session, 1u);
    EXPECT_TRUE(second->message.empty());

    EXPECT_TRUE(datagram.empty());
    EXPECT_FALSE(client::read_feed_packet(datagram));
}

TEST(MachBytes, HistoryKeepsAMessageAsThePacketThatBringsItAgain) {
    CaughtFeed caught;
    caught.publish(1);
    caught.feed.publish(from_hex("AA BB CC"));
    EXPECT_EQ(to_hex(caught.feed.history.at(2)), hex_rows(R"(
        0D 00                               # packet length 13: type, sequence, engine, message
        73                                  # type 's'
        02 00 00 00 00 00 00 00             # sequence 2
        01                                  # matching engine 1, whatever the session number is
        AA BB CC                            # the message
    )"));
}

}  // namespace
}  // namespace kavo
