#include "kavo/basics/printable.h"

#include <gtest/gtest.h>

namespace kavo::companion {
namespace {

using namespace std::string_literals;

TEST(Printable, LeavesTextsThatCanBeRead) {
    EXPECT_EQ(printable("b1"), "b1");
    EXPECT_EQ(printable("Gr\xc3\xbc\xc3\x9f"), "Gr\xc3\xbc\xc3\x9f");
    EXPECT_EQ(printable("\xf0\x9f\x90\x8c"), "\xf0\x9f\x90\x8c");
    EXPECT_EQ(printable(""), "");
}

TEST(Printable, ShowsControlCharactersAndDoublesTheMarkThatShowsThem) {
    EXPECT_EQ(printable("a\nb\x1b[2J\x7f"), R"(a\x0ab\x1b[2J\x7f)");
    EXPECT_EQ(printable("\0x"s), R"(\x00x)");
    EXPECT_EQ(printable(R"(\x0a)"), R"(\\x0a)");
    EXPECT_EQ(printable("\xc2\x85"), R"(\xc2\x85)");  // next line, of the second set of control characters
}

TEST(Printable, LeavesTheMarksOfASentenceWhoseTextsWereMadePrintableBefore) {
    EXPECT_EQ(printable_sentence("a fill of \"" + printable("\n") + "\"\n"), R"(a fill of "\x0a"\x0a)");
    EXPECT_EQ(sentence_for_markup(R"(<\x0a>)"), R"(&lt;\x0a&gt;)");
}

TEST(Printable, ShowsBytesThatAreNoCharacter) {
    EXPECT_EQ(printable("\xff"), R"(\xff)");
    EXPECT_EQ(printable("\xc3"), R"(\xc3)");  // cut short
    EXPECT_EQ(printable("\xc3("), R"(\xc3()");
    EXPECT_EQ(printable("\xc0\xaf"), R"(\xc0\xaf)");  // a slash in a longer form than it needs
    EXPECT_EQ(printable("\xe0\x80\xaf"), R"(\xe0\x80\xaf)");
    EXPECT_EQ(printable("\xed\xa0\x80"), R"(\xed\xa0\x80)");  // half a pair
    EXPECT_EQ(printable("\xf4\x90\x80\x80"), R"(\xf4\x90\x80\x80)");
}

TEST(Printable, ShowsWhatTurnsTheDirectionOfWriting) {
    EXPECT_EQ(printable("a\xe2\x80\xae"
                        "b"),
              R"(a\xe2\x80\xaeb)");
    EXPECT_EQ(printable("\xef\xbb\xbf"), R"(\xef\xbb\xbf)");
}

TEST(Printable, ForMarkupHasNothingThatBeginsOrEndsAnElement) {
    EXPECT_EQ(for_markup("</failure>&\"'\n]]>"), R"(&lt;/failure&gt;&amp;&quot;&#39;\x0a]]&gt;)");
}

TEST(SinceStart, CountsInThousandthsOfASecond) {
    EXPECT_EQ(since_start(1'001'203'400'000, 1'000'000'000'000), "+1.203 s");
    EXPECT_EQ(since_start(999'500'000'000, 1'000'000'000'000), "-0.500 s");
    EXPECT_EQ(since_start(0, 1'000'000'000'000), "");
}

}  // namespace
}  // namespace kavo::companion
