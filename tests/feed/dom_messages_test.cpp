#include "feed/dom_messages.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "client/feed_messages.h"
#include "support/bytes_hex.h"

namespace kavo::dom {
namespace {

using test::from_hex;
using test::hex_rows;
using test::to_hex;

std::string text_at(ByteView message, std::size_t at, std::size_t size) {
    return std::string(as_text(message.subspan(at, size)));
}

TEST(SeriesDefinitionMessage, CutsATickerThatIsTooLong) {
    EXPECT_EQ(text_at(build(SeriesDefinition{0, 1, "ABCDEFGHIJK", 'Q'}), 9, 11), "ABCDEFGHIJK");
    EXPECT_EQ(text_at(build(SeriesDefinition{0, 1, "ABCDEFGHIJKL", 'Q'}), 9, 11), "ABCDEFGHIJK");
    EXPECT_EQ(build(SeriesDefinition{0, 1, "ABCDEFGHIJKL", 'Q'})[20], 0u);
}

TEST(SeriesDefinitionMessage, FillsAShortTickerWithBlanks) {
    EXPECT_EQ(text_at(build(SeriesDefinition{0, 1, "F", 'Q'}), 9, 11), "F          ");
    EXPECT_EQ(text_at(build(SeriesDefinition{0, 1, "", 'Q'}), 9, 11), "           ");
    const auto bytes = build(SeriesDefinition{0, 1, "BRK B", 'N'});
    EXPECT_EQ(client::read_series_definition(bytes)->symbol, "BRK B");
}

TEST(AddOrderMessage, CutsAnAttributionThatIsTooLong) {
    EXPECT_EQ(text_at(build(AddOrder{0, 1, 1, 'B', 1, 1, "FIRMS"}), 30, 4), "FIRM");
}

TEST(AddOrderMessage, LeavesFourBlanksWhereNobodyIsNamed) {
    const auto bytes = build(AddOrder{0, 1, 1, 'B', 1, 1, ""});
    EXPECT_EQ(text_at(bytes, 30, 4), "    ");
    EXPECT_EQ(client::read_add_order(bytes)->attribution, "");
}

TEST(AddOrderMessage, CarriesTheLargestNumbers) {
    const AddOrder largest{0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFFFFFFFFFF, 'B', to_wire(0xFFFFFFFF), 0xFFFFFFFF, "ZZZZ"};
    EXPECT_EQ(to_hex(build(largest)), hex_rows(R"(
        14
        FF FF FF FF                         # timestamp
        FF FF FF FF                         # secid
        FF FF FF FF FF FF FF FF             # order id
        42                                  # side 'B'
        9C FF FF FF 63 00 00 00             # price 429496.7295: 429496729500 millionths
        FF FF FF FF                         # quantity
        5A 5A 5A 5A                         # attribution "ZZZZ"
    )"));
}

TEST(ModifyOrderMessage, HasAFlagOfOneOnlyWhenPriorityWasLost) {
    EXPECT_EQ(build(ModifyOrder{0, 1, 1, 1, 1, true})[29], 1u);
    EXPECT_EQ(build(ModifyOrder{0, 1, 1, 1, 1, false})[29], 0u);
}

TEST(OrderExecutedMessage, TellsARestingSellFromARestingBuy) {
    EXPECT_EQ(build(OrderExecuted{0, 1, 1, 1, 1, 1, true})[37], 1u);
    EXPECT_EQ(build(OrderExecuted{0, 1, 1, 1, 1, 1, false})[37], 0u);

    const auto read_back = client::read_order_executed(build(OrderExecuted{0, 1, 1, 1, 1, 1, false}));
    ASSERT_TRUE(read_back);
    EXPECT_FALSE(read_back->resting_sell);
}

}  // namespace
}  // namespace kavo::dom
