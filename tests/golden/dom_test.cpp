// The messages of the depth-of-market feed, byte by byte, built and read back.
#include <gtest/gtest.h>

#include "client/feed_messages.h"
#include "feed/dom_messages.h"
#include "support/bytes_hex.h"

namespace kavo::dom {
namespace {

using test::from_hex;
using test::to_hex;

constexpr std::uint32_t timestamp = 0x14131211;
constexpr std::uint32_t secid = 0x24232221;
constexpr std::uint64_t order_id = 0x3837363534333231;
constexpr std::uint64_t match_number = 0x6867666564636261;
constexpr std::uint32_t quantity = 0x54535251;
constexpr WirePrice dollars_190_05 = 190'050'000;

// What the record is built into, and what reads as a record that is built into the same. A byte more or less makes it
// nothing that anybody knows.
template <typename Record>
void expect_bytes(const Record& record, std::string_view rows) {
    const Bytes bytes = from_hex(rows);
    EXPECT_EQ(to_hex(build(record)), to_hex(bytes));
    const client::FeedMessage read_back = client::read_feed_message(bytes);
    ASSERT_TRUE(std::holds_alternative<Record>(read_back));
    EXPECT_EQ(to_hex(build(std::get<Record>(read_back))), to_hex(bytes));

    Bytes longer = bytes;
    longer.push_back(0);
    EXPECT_EQ(client::read_feed_message(longer).index(), 0u);
    EXPECT_EQ(client::read_feed_message(ByteView(bytes).first(bytes.size() - 1)).index(), 0u);
}

TEST(DomBytes, SystemTime) {
    expect_bytes(SystemTime{0x24232221}, R"(
        31                                  # type '1'
        21 22 23 24                         # seconds
    )");
}

TEST(DomBytes, SystemState) {
    expect_bytes(SystemState{timestamp, 200}, R"(
        53                                  # type 'S'
        11 12 13 14                         # timestamp
        44 6F 4D 31 2E 33 20 20             # protocol version "DoM1.3"
        C8                                  # session number 200
        53                                  # system state 'S'
    )");
}

TEST(DomBytes, SeriesDefinition) {
    expect_bytes(SeriesDefinition{timestamp, secid, "AAPL", 'Q'}, R"(
        01                                  # type 0x01
        11 12 13 14                         # timestamp
        21 22 23 24                         # secid
        41 41 50 4C 20 20 20 20 20 20 20    # symbol "AAPL"
        00                                  # 0
        4E                                  # 'N'
        00                                  # 0
        64 00                               # 100
        30 34 3A 30 30 3A 30 30             # opening time "04:00:00"
        32 30 3A 30 30 3A 30 30             # closing time "20:00:00"
        51                                  # listing market 'Q'
    )");
}

TEST(DomBytes, SeriesOpen) {
    expect_bytes(SeriesOpen{timestamp, secid}, R"(
        05                                  # type 0x05
        11 12 13 14                         # timestamp
        21 22 23 24                         # secid
    )");
}

TEST(DomBytes, SeriesTradingStatus) {
    expect_bytes(SeriesTradingStatus{timestamp, secid}, R"(
        04                                  # type 0x04
        11 12 13 14                         # timestamp
        21 22 23 24                         # secid
        02                                  # 2
        03                                  # 3
        4E                                  # 'N'
    )");
}

TEST(DomBytes, AddOrder) {
    expect_bytes(AddOrder{timestamp, secid, order_id, 'S', dollars_190_05, quantity, "RTAL"}, R"(
        14                                  # type 0x14
        11 12 13 14                         # timestamp
        21 22 23 24                         # secid
        31 32 33 34 35 36 37 38             # order id
        53                                  # side 'S'
        D0 EE 53 0B 00 00 00 00             # price 190.05: 190050000 millionths
        51 52 53 54                         # quantity
        52 54 41 4C                         # attribution "RTAL"
    )");
}

TEST(DomBytes, ModifyOrder) {
    expect_bytes(ModifyOrder{timestamp, secid, order_id, dollars_190_05, quantity, true}, R"(
        15                                  # type 0x15
        11 12 13 14                         # timestamp
        21 22 23 24                         # secid
        31 32 33 34 35 36 37 38             # order id
        D0 EE 53 0B 00 00 00 00             # price 190.05: 190050000 millionths
        51 52 53 54                         # quantity that rests now
        01                                  # flag 1: priority lost
    )");
}

TEST(DomBytes, DeleteOrder) {
    expect_bytes(DeleteOrder{timestamp, secid, order_id}, R"(
        17                                  # type 0x17
        11 12 13 14                         # timestamp
        21 22 23 24                         # secid
        31 32 33 34 35 36 37 38             # order id
    )");
}

TEST(DomBytes, OrderExecuted) {
    expect_bytes(OrderExecuted{timestamp, secid, order_id, match_number, dollars_190_05, quantity, true}, R"(
        18                                  # type 0x18
        11 12 13 14                         # timestamp
        21 22 23 24                         # secid
        31 32 33 34 35 36 37 38             # order id of the resting order
        61 62 63 64 65 66 67 68             # match number
        D0 EE 53 0B 00 00 00 00             # price 190.05: 190050000 millionths
        51 52 53 54                         # executed quantity
        01                                  # 1: the resting order is a sell
    )");
}

TEST(DomBytes, OfAnyOtherTypeAreNothing) {
    constexpr std::string_view known("1S\x01\x04\x05\x14\x15\x17\x18");
    for (int type = 0; type < 256; ++type) {
        if (known.find(static_cast<char>(type)) != std::string_view::npos) continue;
        for (std::size_t size = 1; size <= 50; ++size) {
            Bytes message(size);
            message[0] = static_cast<std::uint8_t>(type);
            EXPECT_EQ(client::read_feed_message(message).index(), 0u) << type;
        }
    }
    EXPECT_EQ(client::read_feed_message({}).index(), 0u);
}

}  // namespace
}  // namespace kavo::dom
