#include <gtest/gtest.h>

#include <string>

#include "engine/meo.h"

namespace kavo::meo {
namespace {

using namespace std::string_literals;

// A request of `size` bytes that begins with its type; texts are written where a scene wants them.
struct Raw {
    Raw(std::string_view type, std::size_t size) : bytes(size) { write(0, type); }
    Raw& write(std::size_t at, std::string_view text) {
        std::copy(text.begin(), text.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at));
        return *this;
    }
    Bytes bytes;
};

bool is_new_order(const Raw& raw) {
    return read_new_order(raw.bytes).has_value();
}
bool is_replace(const Raw& raw) {
    return read_replace(raw.bytes).has_value();
}
bool is_cancel(const Raw& raw) {
    return read_cancel(raw.bytes).has_value();
}

TEST(NewOrderReader, NeedsAHundredAndThirtyOneBytes) {
    EXPECT_FALSE(is_new_order(Raw("N1", 130)));
    EXPECT_TRUE(is_new_order(Raw("N1", 131)));
    EXPECT_TRUE(is_new_order(Raw("N1", 1000)));
    EXPECT_FALSE(is_new_order(Raw("N1", 2)));
}

TEST(ReplaceReader, NeedsAHundredAndElevenBytes) {
    EXPECT_FALSE(is_replace(Raw("M1", 110)));
    EXPECT_TRUE(is_replace(Raw("M1", 111)));
    EXPECT_TRUE(is_replace(Raw("M1", 1000)));
    EXPECT_FALSE(is_replace(Raw("M1", 2)));
}

TEST(CancelReader, NeedsSixtyEightBytes) {
    EXPECT_FALSE(is_cancel(Raw("CO", 67)));
    EXPECT_TRUE(is_cancel(Raw("CO", 68)));
    EXPECT_TRUE(is_cancel(Raw("CO", 1000)));
    EXPECT_FALSE(is_cancel(Raw("CO", 2)));
}

TEST(MeoRequestReaders, TakeNoOtherTypeThanTheirOwn) {
    for (const char* type : {"N1", "M1", "CO", "n1", "N2", "X1", "  "}) {
        const Raw raw(type, 200);
        EXPECT_EQ(is_new_order(raw), type == "N1"s) << type;
        EXPECT_EQ(is_replace(raw), type == "M1"s) << type;
        EXPECT_EQ(is_cancel(raw), type == "CO"s) << type;
    }
}

TEST(MeoRequestReaders, RefuseAnEmptyMessage) {
    EXPECT_FALSE(read_new_order({}));
    EXPECT_FALSE(read_replace({}));
    EXPECT_FALSE(read_cancel({}));
}

TEST(MeoRequestReaders, NeverJudgeContent) {
    Raw senseless("N1", 131);
    std::fill(senseless.bytes.begin() + 2, senseless.bytes.end(), std::uint8_t{0xFF});
    const auto request = read_new_order(senseless.bytes);
    ASSERT_TRUE(request);
    EXPECT_EQ(request->product_id, 0xFFFFFFFFu);
    EXPECT_EQ(request->price, 0xFFFFFFFFFFFFFFFFu);
    EXPECT_EQ(request->flags.bits, 0xFFFFu);
    EXPECT_EQ(static_cast<char>(request->tif), '\xFF');
    EXPECT_EQ(static_cast<char>(request->order_type), '\xFF');
    EXPECT_EQ(request->expire_time, 0xFFFFFFFFFFFFFFFFu);
}

// The client order id that a new order carries when its field of 20 bytes holds this.
std::string client_order_id(const std::string& field) {
    EXPECT_EQ(field.size(), 20u);
    const auto request = read_new_order(Raw("N1", 131).write(14, field).bytes);
    EXPECT_TRUE(request);
    return request->client_order_id.str();
}

TEST(ClientOrderIdOfARequest, LosesTheBlanksAndNulsBehindIt) {
    EXPECT_EQ(client_order_id("AB                  "), "AB");
    EXPECT_EQ(client_order_id("AB"s + std::string(18, '\0')), "AB");
    EXPECT_EQ(client_order_id("AB      "s + std::string(12, '\0')), "AB");
}

TEST(ClientOrderIdOfARequest, KeepsBlanksInFrontAndInside) {
    EXPECT_EQ(client_order_id("A B                 "), "A B");
    EXPECT_EQ(client_order_id("  A B               "), "  A B");
}

TEST(ClientOrderIdOfARequest, EndsAtItsFirstNul) {
    EXPECT_EQ(client_order_id("AB\0CD"s + std::string(15, ' ')), "AB");
    EXPECT_EQ(client_order_id("AB  \0CD"s + std::string(13, ' ')), "AB");
    EXPECT_EQ(client_order_id("\0ABCD"s + std::string(15, ' ')), "");
}

TEST(ClientOrderIdOfARequest, MayFillItsField) {
    EXPECT_EQ(client_order_id("exactly-twenty-chars"), "exactly-twenty-chars");
}

TEST(ClientOrderIdOfARequest, IsEmptyWhenItsFieldHoldsOnlyPadding) {
    for (const std::string& field : {std::string(20, ' '), std::string(20, '\0'), "   "s + std::string(17, '\0')}) {
        const auto request = read_new_order(Raw("N1", 131).write(14, field).bytes);
        ASSERT_TRUE(request);
        EXPECT_TRUE(request->client_order_id.empty());
        EXPECT_EQ(request->client_order_id, ClientOrderId());
    }
}

TEST(ClientOrderIdOfARequest, IsTheSameIdHoweverItIsPadded) {
    const auto blanks = read_new_order(Raw("N1", 131).write(14, "AB                  ").bytes);
    ASSERT_TRUE(blanks);
    const auto nuls = read_new_order(Raw("N1", 131).write(14, "AB"s + std::string(18, '\0')).bytes);
    ASSERT_TRUE(nuls);
    EXPECT_EQ(blanks->client_order_id, nuls->client_order_id);
}

Mpid mpid(const std::string& field) {
    EXPECT_EQ(field.size(), 4u);
    const auto request = read_new_order(Raw("N1", 131).write(10, field).bytes);
    EXPECT_TRUE(request);
    return request->mpid;
}

TEST(MpidOfARequest, IsCompleteOnlyWithFourCharacters) {
    EXPECT_TRUE(mpid("FIRM").complete());
    EXPECT_FALSE(mpid("AB  ").complete());
    EXPECT_FALSE(mpid("ABC ").complete());
    EXPECT_FALSE(mpid("ABC\0"s).complete());
    EXPECT_FALSE(mpid("    ").complete());
    EXPECT_FALSE(mpid("\0\0\0\0"s).complete());
}

TEST(MpidOfARequest, CountsAllThatStandsBeforeItsLastCharacter) {
    EXPECT_TRUE(mpid("A  B").complete());
    EXPECT_TRUE(mpid("   B").complete());
    EXPECT_TRUE(mpid("A\0\0B"s).complete());
    EXPECT_EQ(mpid("A\0\0B"s).view(), "A\0\0B"s);
}

TEST(MpidOfARequest, IsTheSameHoweverItIsPadded) {
    EXPECT_EQ(mpid("AB  "), mpid("AB\0\0"s));
    EXPECT_EQ(mpid("AB \0"s), mpid("AB\0 "s));
    EXPECT_EQ(mpid("AB\0\0"s).view(), "AB  ");
    EXPECT_FALSE(mpid("AB\0C"s) == mpid("AB C"));
}

TEST(EchoTexts, AreCutAtTheirFirstNulAndLoseTrailingBlanks) {
    const Raw raw = Raw("N1", 131).write(67, "a text of 16 ch.").write(83, " B \0"s).write(107, "C\0D "s);
    const auto request = read_new_order(raw.bytes);
    ASSERT_TRUE(request);
    EXPECT_EQ(request->echo.text_a, "a text of 16 ch.");
    EXPECT_EQ(request->echo.text_b, " B");
    EXPECT_EQ(request->echo.text_c, "C");
}

TEST(ReplaceReader, KeepsTheTwoIdsApart) {
    const Raw raw =
        Raw("M1", 111).write(10, "FIRM").write(14, "the-new-twenty-chars").write(34, "the-old-twenty-chars");
    const auto request = read_replace(raw.bytes);
    ASSERT_TRUE(request);
    EXPECT_EQ(request->mpid.view(), "FIRM");
    EXPECT_EQ(request->client_order_id.view(), "the-new-twenty-chars");
    EXPECT_EQ(request->orig_client_order_id.view(), "the-old-twenty-chars");
}

TEST(CancelReader, KeepsTheTwoIdsApart) {
    const Raw raw = Raw("CO", 68).write(10, "FIRM").write(14, "cancel the twenty ch").write(34, "the order of 20 char");
    const auto request = read_cancel(raw.bytes);
    ASSERT_TRUE(request);
    EXPECT_EQ(request->mpid.view(), "FIRM");
    EXPECT_EQ(request->client_order_id.view(), "cancel the twenty ch");
    EXPECT_EQ(request->orig_client_order_id.view(), "the order of 20 char");
}

TEST(OrderFlagBits, HaveEachMeaningInBitsOfItsOwn) {
    EXPECT_FALSE(OrderFlags{0}.sell());
    EXPECT_TRUE(OrderFlags{1}.sell());
    EXPECT_FALSE(OrderFlags{0xFFFE}.sell());

    EXPECT_EQ(OrderFlags{0x0002}.short_sale(), 1u);
    EXPECT_EQ(OrderFlags{0x0004}.short_sale(), 2u);
    EXPECT_EQ(OrderFlags{0x0006}.short_sale(), 3u);
    EXPECT_EQ(OrderFlags{0xFFF9}.short_sale(), 0u);

    EXPECT_TRUE(OrderFlags{0x0010}.post_only());
    EXPECT_FALSE(OrderFlags{0xFFEF}.post_only());

    EXPECT_EQ(OrderFlags{0x0100}.attribution(), attributed_to_participant);
    EXPECT_EQ(OrderFlags{0x0200}.attribution(), attributed_to_retail);
    EXPECT_EQ(OrderFlags{0x0300}.attribution(), 3u);
    EXPECT_EQ(OrderFlags{0xFCFF}.attribution(), 0u);
}

}  // namespace
}  // namespace kavo::meo
