// The comparisons of exact bytes are only as good as the two functions that carry them.
#include <gtest/gtest.h>

#include <stdexcept>

#include "support/bytes_hex.h"

namespace kavo::test {
namespace {

TEST(HexText, SpellsBytesInPairsWithCommentsBetween) {
    EXPECT_EQ(from_hex("0A fF # 99 a comment\n\t30#31\n32"), (Bytes{0x0A, 0xFF, 0x30, 0x32}));
    EXPECT_EQ(from_hex(" # nothing but a comment"), Bytes{});
}

TEST(HexText, IsRefusedWhenItIsNoPairOfDigits) {
    for (const char* text : {"1", "123", "1G", "x1", "-1", "+1"})
        EXPECT_THROW(from_hex(text), std::invalid_argument) << text;
}

TEST(HexText, ShowsBytesInRowsBehindTheirOffsets) {
    EXPECT_EQ(to_hex(Bytes{}), "");
    EXPECT_EQ(to_hex(Bytes{0x01, 0x0A, 0xFF}), "   0: 01 0A FF");
    EXPECT_EQ(hex_rows("00 01 02 03 04 05 06 07 08"), "   0: 00 01 02 03 04 05 06 07\n   8: 08");
}

}  // namespace
}  // namespace kavo::test
