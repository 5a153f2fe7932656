#include "common/text.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <limits>

namespace kavo {
namespace {

TEST(AppendNumber, WritesPlainDecimalBehindWhatIsThere) {
    std::string text = "n=";
    append_number(text, 0);
    text += ' ';
    append_number(text, 42u);
    text += ' ';
    append_number(text, -7);
    EXPECT_EQ(text, "n=0 42 -7");
}

TEST(AppendNumber, HasRoomForTheLongestNumbers) {
    std::string text;
    append_number(text, std::numeric_limits<std::uint64_t>::max());
    EXPECT_EQ(text, "18446744073709551615");
    text.clear();
    append_number(text, std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(text, "-9223372036854775808");
}

TEST(Printable, IsTheSameNumber) {
    char text[32];
    std::snprintf(text, sizeof text, "%llu", printable(18'446'744'073'709'551'615u));
    EXPECT_STREQ(text, "18446744073709551615");
}

}  // namespace
}  // namespace kavo
