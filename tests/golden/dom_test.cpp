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

TEST(DomBytes, SystemTime) {
    const Bytes bytes = from_hex(R"(
        31                                  # type '1'
        21 22 23 24                         # seconds
    )");
    EXPECT_EQ(to_hex(build(SystemTime{0x24232221})), to_hex(bytes));

    const auto read_back = client::read_system_time(bytes);
    ASSERT_TRUE(read_back);
    EXPECT_EQ(read_back->seconds, 0x24232221u);
}

TEST(DomBytes, SystemState) {
    const Bytes bytes = from_hex(R"(
        53                                  # type 'S'
        11 12 13 14                         # timestamp
        44 6F 4D 31 2E 33 20 20             # protocol version "DoM1.3"
        C8                                  # session number 200
        53                                  # system state 'S'
    )");
    EXPECT_EQ(to_hex(build(SystemState{timestamp, 200})), to_hex(bytes));

    const auto read_back = client::read_system_state(bytes);
    ASSERT_TRUE(read_back);
    EXPECT_EQ(read_back->timestamp, timestamp);
    EXPECT_EQ(read_back->session, 200u);
}

TEST(DomBytes, SeriesDefinition) {
    const Bytes bytes = from_hex(R"(
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
    EXPECT_EQ(to_hex(build(SeriesDefinition{timestamp, secid, "AAPL", 'Q'})), to_hex(bytes));

    const auto read_back = client::read_series_definition(bytes);
    ASSERT_TRUE(read_back);
    EXPECT_EQ(read_back->timestamp, timestamp);
    EXPECT_EQ(read_back->secid, secid);
    EXPECT_EQ(read_back->symbol, "AAPL");
    EXPECT_EQ(read_back->listing_market, 'Q');
}

TEST(DomBytes, SeriesOpen) {
    const Bytes bytes = from_hex(R"(
        05                                  # type 0x05
        11 12 13 14                         # timestamp
        21 22 23 24                         # secid
    )");
    EXPECT_EQ(to_hex(build(SeriesOpen{timestamp, secid})), to_hex(bytes));

    const auto read_back = client::read_series_open(bytes);
    ASSERT_TRUE(read_back);
    EXPECT_EQ(read_back->timestamp, timestamp);
    EXPECT_EQ(read_back->secid, secid);
}

TEST(DomBytes, SeriesTradingStatus) {
    const Bytes bytes = from_hex(R"(
        04                                  # type 0x04
        11 12 13 14                         # timestamp
        21 22 23 24                         # secid
        02                                  # 2
        03                                  # 3
        4E                                  # 'N'
    )");
    EXPECT_EQ(to_hex(build(SeriesTradingStatus{timestamp, secid})), to_hex(bytes));

    const auto read_back = client::read_series_trading_status(bytes);
    ASSERT_TRUE(read_back);
    EXPECT_EQ(read_back->timestamp, timestamp);
    EXPECT_EQ(read_back->secid, secid);
}

TEST(DomBytes, AddOrder) {
    const Bytes bytes = from_hex(R"(
        14                                  # type 0x14
        11 12 13 14                         # timestamp
        21 22 23 24                         # secid
        31 32 33 34 35 36 37 38             # order id
        53                                  # side 'S'
        D0 EE 53 0B 00 00 00 00             # price 190.05: 190050000 millionths
        51 52 53 54                         # quantity
        52 54 41 4C                         # attribution "RTAL"
    )");
    EXPECT_EQ(to_hex(build(AddOrder{timestamp, secid, order_id, 'S', dollars_190_05, quantity, "RTAL"})),
              to_hex(bytes));

    const auto read_back = client::read_add_order(bytes);
    ASSERT_TRUE(read_back);
    EXPECT_EQ(read_back->timestamp, timestamp);
    EXPECT_EQ(read_back->secid, secid);
    EXPECT_EQ(read_back->order_id, order_id);
    EXPECT_EQ(read_back->side, 'S');
    EXPECT_EQ(read_back->price, dollars_190_05);
    EXPECT_EQ(read_back->quantity, quantity);
    EXPECT_EQ(read_back->attribution, "RTAL");
}

TEST(DomBytes, ModifyOrder) {
    const Bytes bytes = from_hex(R"(
        15                                  # type 0x15
        11 12 13 14                         # timestamp
        21 22 23 24                         # secid
        31 32 33 34 35 36 37 38             # order id
        D0 EE 53 0B 00 00 00 00             # price 190.05: 190050000 millionths
        51 52 53 54                         # quantity that rests now
        01                                  # flag 1: priority lost
    )");
    EXPECT_EQ(to_hex(build(ModifyOrder{timestamp, secid, order_id, dollars_190_05, quantity, true})), to_hex(bytes));

    const auto read_back = client::read_modify_order(bytes);
    ASSERT_TRUE(read_back);
    EXPECT_EQ(read_back->timestamp, timestamp);
    EXPECT_EQ(read_back->secid, secid);
    EXPECT_EQ(read_back->order_id, order_id);
    EXPECT_EQ(read_back->price, dollars_190_05);
    EXPECT_EQ(read_back->quantity, quantity);
    EXPECT_TRUE(read_back->lost_priority);
}

TEST(DomBytes, DeleteOrder) {
    const Bytes bytes = from_hex(R"(
        17                                  # type 0x17
        11 12 13 14                         # timestamp
        21 22 23 24                         # secid
        31 32 33 34 35 36 37 38             # order id
    )");
    EXPECT_EQ(to_hex(build(DeleteOrder{timestamp, secid, order_id})), to_hex(bytes));

    const auto read_back = client::read_delete_order(bytes);
    ASSERT_TRUE(read_back);
    EXPECT_EQ(read_back->timestamp, timestamp);
    EXPECT_EQ(read_back->secid, secid);
    EXPECT_EQ(read_back->order_id, order_id);
}

TEST(DomBytes, OrderExecuted) {
    const Bytes bytes = from_hex(R"(
        18                                  # type 0x18
        11 12 13 14                         # timestamp
        21 22 23 24                         # secid
        31 32 33 34 35 36 37 38             # order id of the resting order
        61 62 63 64 65 66 67 68             # match number
        D0 EE 53 0B 00 00 00 00             # price 190.05: 190050000 millionths
        51 52 53 54                         # executed quantity
        01                                  # 1: the resting order is a sell
    )");
    EXPECT_EQ(to_hex(build(OrderExecuted{timestamp, secid, order_id, match_number, dollars_190_05, quantity, true})),
              to_hex(bytes));

    const auto read_back = client::read_order_executed(bytes);
    ASSERT_TRUE(read_back);
    EXPECT_EQ(read_back->timestamp, timestamp);
    EXPECT_EQ(read_back->secid, secid);
    EXPECT_EQ(read_back->order_id, order_id);
    EXPECT_EQ(read_back->match_number, match_number);
    EXPECT_EQ(read_back->price, dollars_190_05);
    EXPECT_EQ(read_back->quantity, quantity);
    EXPECT_TRUE(read_back->resting_sell);
}

}  // namespace
}  // namespace kavo::dom
