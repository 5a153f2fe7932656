#include <gtest/gtest.h>

#include "client/feed_messages.h"
#include "support/bytes_hex.h"

namespace kavo::client {
namespace {

using test::from_hex;

// A header of sequence 1, type 3 and session 1 that states `length`, and behind it `message_size` bytes.
Bytes packet_of(std::uint16_t length, std::size_t message_size) {
    const mach::HeaderBytes header = build(mach::Header{1, length, mach::PacketType::application_data, 1});
    Bytes packet(header.begin(), header.end());
    packet.resize(packet.size() + message_size, 0xEE);
    return packet;
}

void expect_refused(const Bytes& bytes) {
    ByteView datagram = bytes;
    EXPECT_FALSE(read_feed_packet(datagram));
    EXPECT_EQ(datagram.data(), bytes.data());
    EXPECT_EQ(datagram.size(), bytes.size());
}

TEST(FeedPacketReader, FindsNothingInAnEmptyDatagram) {
    expect_refused({});
}

TEST(FeedPacketReader, RefusesWhatIsShorterThanAHeaderAndLeavesItAlone) {
    expect_refused(from_hex("01 00 00 00 00 00 00 00 0C 00 03"));
}

TEST(FeedPacketReader, RefusesALengthSmallerThanAHeader) {
    expect_refused(packet_of(11, 8));
    expect_refused(packet_of(0, 8));
}

TEST(FeedPacketReader, RefusesALengthThatReachesBeyondTheDatagram) {
    expect_refused(packet_of(21, 8));
    expect_refused(packet_of(0xFFFF, 8));
}

TEST(FeedPacketReader, TakesAPacketThatEndsWithItsDatagram) {
    const Bytes bytes = packet_of(20, 8);
    ByteView datagram = bytes;
    const auto packet = read_feed_packet(datagram);
    ASSERT_TRUE(packet);
    EXPECT_EQ(packet->message.size(), 8u);
    EXPECT_TRUE(datagram.empty());
}

TEST(FeedPacketReader, LendsTheMessageFromTheDatagramItself) {
    const Bytes bytes = packet_of(20, 8);
    ByteView datagram = bytes;
    const auto packet = read_feed_packet(datagram);
    ASSERT_TRUE(packet);
    EXPECT_EQ(packet->message.data(), bytes.data() + 12);
}

TEST(FeedPacketReader, StopsInFrontOfABrokenPacketBehindAWholeOne) {
    Bytes bytes = packet_of(14, 2);
    const Bytes broken = packet_of(40, 8);
    bytes.insert(bytes.end(), broken.begin(), broken.end());
    ByteView datagram = bytes;
    EXPECT_TRUE(read_feed_packet(datagram));
    EXPECT_FALSE(read_feed_packet(datagram));
    EXPECT_EQ(datagram.size(), broken.size());
}

TEST(FeedPacketReader, KeepsATypeThatNobodyKnows) {
    Bytes bytes = packet_of(12, 0);
    bytes[10] = 200;
    ByteView datagram = bytes;
    const auto packet = read_feed_packet(datagram);
    ASSERT_TRUE(packet);
    EXPECT_EQ(static_cast<int>(packet->header.type), 200);
}

}  // namespace
}  // namespace kavo::client
