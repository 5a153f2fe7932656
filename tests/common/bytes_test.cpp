#include "common/bytes.h"

#include <gtest/gtest.h>

#include <string>

#include "support/bytes_hex.h"

namespace kavo {
namespace {

using test::from_hex;
using test::hex_rows;
using test::to_hex;
using namespace std::string_literals;

constexpr Number<std::uint8_t> u8_at_1{1};
constexpr Number<std::uint16_t> u16_at_1{1};
constexpr Number<std::uint32_t> u32_at_1{1};
constexpr Number<std::uint64_t> u64_at_1{1};

TEST(ByteFields, NumbersAreReadLowestByteFirstFromAnyOffset) {
    const Bytes message = from_hex("EE 81 92 A3 B4 C5 D6 E7 F8 EE");
    EXPECT_EQ(get(message, u8_at_1), 0x81u);
    EXPECT_EQ(get(message, u16_at_1), 0x9281u);
    EXPECT_EQ(get(message, u32_at_1), 0xB4A39281u);
    EXPECT_EQ(get(message, u64_at_1), 0xF8E7D6C5B4A39281u);
}

TEST(ByteFields, NumbersAreWrittenLowestByteFirstAndTouchNothingElse) {
    Bytes message(10, 0xEE);
    put(message, u64_at_1, std::uint64_t{0xF8E7D6C5B4A39281});
    EXPECT_EQ(to_hex(message), hex_rows("EE 81 92 A3 B4 C5 D6 E7 F8 EE"));

    message.assign(10, 0xEE);
    put(message, u32_at_1, std::uint32_t{0xB4A39281});
    EXPECT_EQ(to_hex(message), hex_rows("EE 81 92 A3 B4 EE EE EE EE EE"));

    message.assign(10, 0xEE);
    put(message, u16_at_1, std::uint16_t{0x9281});
    EXPECT_EQ(to_hex(message), hex_rows("EE 81 92 EE EE EE EE EE EE EE"));

    message.assign(10, 0xEE);
    put(message, u8_at_1, std::uint8_t{0x81});
    EXPECT_EQ(to_hex(message), hex_rows("EE 81 EE EE EE EE EE EE EE EE"));
}

TEST(ByteFields, TheLargestNumbersSurvive) {
    Bytes message(9);
    put(message, u64_at_1, std::uint64_t{0xFFFFFFFFFFFFFFFF});
    EXPECT_EQ(get(message, u8_at_1), 0xFFu);
    EXPECT_EQ(get(message, u16_at_1), 0xFFFFu);
    EXPECT_EQ(get(message, u32_at_1), 0xFFFFFFFFu);
    EXPECT_EQ(get(message, u64_at_1), 0xFFFFFFFFFFFFFFFFu);
}

TEST(ByteFields, ALetterIsAnyByte) {
    constexpr Letter letter{1};
    Bytes message(3, 0xEE);
    put(message, letter, 'Q');
    EXPECT_EQ(to_hex(message), hex_rows("EE 51 EE"));
    EXPECT_EQ(get(message, letter), 'Q');
    put(message, letter, '\xFE');
    EXPECT_EQ(to_hex(message), hex_rows("EE FE EE"));
    EXPECT_EQ(get(message, letter), '\xFE');
}

TEST(ByteFields, AdjoinWhenEachStartsWhereTheOneBeforeItEnds) {
    constexpr Text text{1, 3};
    constexpr Number<std::uint32_t> number{4};
    constexpr Letter letter{8};
    constexpr Unread rest{9, 2};
    EXPECT_TRUE(adjoin(text, number, letter, rest));
    EXPECT_EQ(end_of(text), 4u);
    EXPECT_EQ(end_of(number), 8u);
    EXPECT_EQ(end_of(letter), 9u);
    EXPECT_EQ(end_of(rest), 11u);
}

TEST(ByteFields, DoNotAdjoinAcrossAGapOrAnOverlapWhereverItLies) {
    constexpr Text text{0, 3};
    constexpr Number<std::uint16_t> number{3};
    EXPECT_FALSE(adjoin(text, Number<std::uint16_t>{4}));
    EXPECT_FALSE(adjoin(text, Number<std::uint16_t>{2}));
    EXPECT_FALSE(adjoin(text, number, Letter{6}));
    EXPECT_FALSE(adjoin(text, number, Letter{4}));
    EXPECT_FALSE(adjoin(text, Letter{4}, Letter{5}));
    EXPECT_FALSE(adjoin(number, text));
}

TEST(PutText, FillsTheRestOfItsFieldWithThePaddingItWasGiven) {
    Bytes message(7, 0xEE);
    put_text(message, Text{1, 5}, "AB", ' ');
    EXPECT_EQ(to_hex(message), hex_rows("EE 41 42 20 20 20 EE"));
    put_text(message, Text{1, 5}, "XYZ", '\0');
    EXPECT_EQ(to_hex(message), hex_rows("EE 58 59 5A 00 00 EE"));
    put_text(message, Text{1, 5}, "", ' ');
    EXPECT_EQ(to_hex(message), hex_rows("EE 20 20 20 20 20 EE"));
}

TEST(PutText, CutsAtTheWidthOfItsField) {
    Bytes message(7, 0xEE);
    put_text(message, Text{1, 5}, "ABCDE", ' ');
    EXPECT_EQ(to_hex(message), hex_rows("EE 41 42 43 44 45 EE"));
    put_text(message, Text{1, 5}, "UVWXYZ", ' ');
    EXPECT_EQ(to_hex(message), hex_rows("EE 55 56 57 58 59 EE"));
}

TEST(PutText, KeepsTheBytesOfTheTextAsTheyAre) {
    Bytes message(6, 0xEE);
    put_text(message, Text{0, 6}, "\0 \xFF"s, '*');
    EXPECT_EQ(to_hex(message), hex_rows("00 20 FF 2A 2A 2A"));
}

std::string padded(const std::string& field) {
    return std::string(padded_text(as_bytes("<" + field + ">"), Text{1, field.size()}));
}

TEST(PaddedText, EndsBehindItsLastByteThatIsNeitherNulNorBlank) {
    EXPECT_EQ(padded("ABCD"), "ABCD");
    EXPECT_EQ(padded("AB  "), "AB");
    EXPECT_EQ(padded("AB\0\0"s), "AB");
    EXPECT_EQ(padded("AB \0 \0"s), "AB");
}

TEST(PaddedText, KeepsWhatStandsBeforeThat) {
    EXPECT_EQ(padded("  AB"), "  AB");
    EXPECT_EQ(padded("A B "), "A B");
    EXPECT_EQ(padded("\0A\0B\0"s), "\0A\0B"s);
}

TEST(PaddedText, IsEmptyWhenItsFieldHoldsOnlyPadding) {
    EXPECT_EQ(padded("     "), "");
    EXPECT_EQ(padded("\0\0\0\0\0"s), "");
    EXPECT_EQ(padded(" \0 \0 "s), "");
}

std::string terminated(const std::string& field) {
    return std::string(terminated_text(as_bytes("<" + field + ">"), Text{1, field.size()}));
}

TEST(TerminatedText, EndsAtItsFirstNulAndLosesTheBlanksBeforeIt) {
    EXPECT_EQ(terminated("ABCD"), "ABCD");
    EXPECT_EQ(terminated("AB  "), "AB");
    EXPECT_EQ(terminated("AB\0\0"s), "AB");
    EXPECT_EQ(terminated("AB  \0\0"s), "AB");
    EXPECT_EQ(terminated("AB \0CD"s), "AB");
    EXPECT_EQ(terminated("AB\0  \0"s), "AB");
}

TEST(TerminatedText, KeepsLeadingAndInnerBlanks) {
    EXPECT_EQ(terminated("  A B  "), "  A B");
}

TEST(TerminatedText, IsEmptyWhenNothingStandsBeforeItsFirstNul) {
    EXPECT_EQ(terminated("      "), "");
    EXPECT_EQ(terminated("\0ABC"s), "");
    EXPECT_EQ(terminated("   \0ABC"s), "");
}

TEST(Padding, IsTheBlankAndTheNulAlone) {
    for (int byte = 0; byte < 256; ++byte) {
        EXPECT_EQ(is_padding(static_cast<char>(byte)), byte == 0x00 || byte == 0x20) << byte;
    }
}

TEST(ByteViews, LendTheSameBytesAsTextAndBack) {
    const Bytes bytes = from_hex("41 00 FF");
    EXPECT_EQ(as_text(bytes), "A\0\xFF"s);
    EXPECT_EQ(to_hex(as_bytes("A\0\xFF"s)), to_hex(bytes));
    EXPECT_EQ(as_text({}), "");
}

}  // namespace
}  // namespace kavo
