#include "client/feed_messages.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace kavo::client {
namespace {

// Which of the nine readers take a message, as the types they read.
std::string readers_of(ByteView message) {
    std::string list;
    const auto note = [&](bool read, const char* type) {
        if (read) list += std::string(type) + " ";
    };
    note(read_system_time(message).has_value(), "time");
    note(read_system_state(message).has_value(), "state");
    note(read_series_definition(message).has_value(), "definition");
    note(read_series_open(message).has_value(), "open");
    note(read_series_trading_status(message).has_value(), "status");
    note(read_add_order(message).has_value(), "add");
    note(read_modify_order(message).has_value(), "modify");
    note(read_delete_order(message).has_value(), "delete");
    note(read_order_executed(message).has_value(), "executed");
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

TEST(FeedMessageReaders, TakeAMessageOfTheirTypeAtExactlyItsSize) {
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

TEST(FeedMessageReaders, TakeNoOtherType) {
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

TEST(FeedMessageReaders, GiveTextsWithoutTheirPadding) {
    const auto definition_bytes = build(dom::SeriesDefinition{0, 1, "BRK B", 'N'});
    const auto definition = read_series_definition(definition_bytes);
    ASSERT_TRUE(definition);
    EXPECT_EQ(definition->symbol, "BRK B");

    const auto add_bytes = build(dom::AddOrder{0, 1, 1, 'B', 1, 1, ""});
    const auto add = read_add_order(add_bytes);
    ASSERT_TRUE(add);
    EXPECT_EQ(add->attribution, "");
}

}  // namespace
}  // namespace kavo::client
