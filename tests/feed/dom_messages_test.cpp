#include "feed/dom_messages.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

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
}

TEST(AddOrderMessage, CutsAnAttributionThatIsTooLong) {
    EXPECT_EQ(text_at(build(AddOrder{0, 1, 1, 'B', 1, 1, "FIRMS"}), 30, 4), "FIRM");
}

TEST(AddOrderMessage, LeavesFourBlanksWhereNobodyIsNamed) {
    EXPECT_EQ(text_at(build(AddOrder{0, 1, 1, 'B', 1, 1, ""}), 30, 4), "    ");
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

    OrderExecuted read_back;
    ASSERT_TRUE(read(build(OrderExecuted{0, 1, 1, 1, 1, 1, false}), read_back));
    EXPECT_FALSE(read_back.resting_sell);
}

// Which of the nine readers take a message, as the types they read.
std::string readers_of(ByteView message) {
    std::string list;
    const auto ask = [&](auto record, const char* type) {
        if (read(message, record)) list += std::string(type) + " ";
    };
    ask(SystemTime{}, "time");
    ask(SystemState{}, "state");
    ask(SeriesDefinition{}, "definition");
    ask(SeriesOpen{}, "open");
    ask(SeriesTradingStatus{}, "status");
    ask(AddOrder{}, "add");
    ask(ModifyOrder{}, "modify");
    ask(DeleteOrder{}, "delete");
    ask(OrderExecuted{}, "executed");
    return list;
}

struct TypeAndSize {
    std::uint8_t type;
    std::size_t size;
    const char* name;
};
constexpr TypeAndSize all_types[] = {
    {0x31, 5, "time "},    {0x53, 15, "state "},  {0x01, 42, "definition "},
    {0x05, 9, "open "},    {0x04, 12, "status "}, {0x14, 34, "add "},
    {0x15, 30, "modify "}, {0x17, 17, "delete "}, {0x18, 38, "executed "},
};

TEST(DomReaders, TakeAMessageOfTheirTypeAtExactlyItsSize) {
    for (const TypeAndSize& entry : all_types) {
        Bytes message(entry.size);
        message[0] = entry.type;
        EXPECT_EQ(readers_of(message), entry.name);
        message.push_back(0);
        EXPECT_EQ(readers_of(message), "") << entry.name << "with a byte too many";
        message.resize(entry.size - 1);
        EXPECT_EQ(readers_of(message), "") << entry.name << "with a byte too few";
    }
}

TEST(DomReaders, TakeNoOtherType) {
    for (int type = 0; type < 256; ++type) {
        const auto is_type = [type](const TypeAndSize& entry) { return entry.type == type; };
        if (std::any_of(std::begin(all_types), std::end(all_types), is_type)) continue;
        for (const TypeAndSize& entry : all_types) {
            Bytes message(entry.size);
            message[0] = static_cast<std::uint8_t>(type);
            EXPECT_EQ(readers_of(message), "") << type;
        }
    }
    EXPECT_EQ(readers_of({}), "");
}

TEST(DomReaders, GiveTextsWithoutTheirPadding) {
    const auto definition_bytes = build(SeriesDefinition{0, 1, "BRK B", 'N'});
    SeriesDefinition definition;
    ASSERT_TRUE(read(definition_bytes, definition));
    EXPECT_EQ(definition.symbol, "BRK B");

    const auto add_bytes = build(AddOrder{0, 1, 1, 'B', 1, 1, ""});
    AddOrder add;
    ASSERT_TRUE(read(add_bytes, add));
    EXPECT_EQ(add.attribution, "");
}

}  // namespace
}  // namespace kavo::dom
