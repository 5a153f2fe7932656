#include <gtest/gtest.h>

#include <string>

#include "engine/meo.h"

namespace kavo::meo {
namespace {

using namespace std::string_literals;

std::string text_at(const Message& message, std::size_t at, std::size_t size) {
    return std::string(as_text(message.bytes().subspan(at, size)));
}

TEST(MeoResponses, AreAsLongAsTheirLayouts) {
    const NewOrderRequest new_order;
    const ReplaceRequest replace;
    const CancelRequest cancel;
    const ClientOrderId id("a");
    EXPECT_EQ(build(NewOrderResponse{1, new_order, 2, NewOrderReason::accepted}).bytes().size(), 69u);
    EXPECT_EQ(build(OrderAccepted{1, new_order, 2}).bytes().size(), 139u);
    EXPECT_EQ(build(OrderResting{1, 2, 3, id, 4, true}).bytes().size(), 60u);
    EXPECT_EQ(build(Execution{1, Mpid(), 2, id, 3, 4, 5, 6, true, Liquidity::added, 'Q'}).bytes().size(), 105u);
    EXPECT_EQ(build(OrderCancelled{1, Mpid(), id, 2, 3, 4, SystemCancelReason::expired}).bytes().size(), 73u);
    EXPECT_EQ(build(ReplaceResponse{1, replace, 2, 3, ReplaceReason::accepted}).bytes().size(), 89u);
    EXPECT_EQ(build(ReplaceNotification{1, replace, 2, 3, 4}).bytes().size(), 123u);
    EXPECT_EQ(build(CancelResponse{1, cancel, 2, CancelReason::accepted}).bytes().size(), 81u);
    EXPECT_EQ(build(StartOfSession{1, 2}).bytes().size(), 28u);
    EXPECT_EQ(build(SymbolUpdate{1, 2, "AAPL", 'Q'}).bytes().size(), 61u);
}

TEST(NewOrderResponseMessage, GivesEachReasonItsLetter) {
    const NewOrderRequest request;
    const auto letter = [&request](NewOrderReason reason) {
        return text_at(build(NewOrderResponse{1, request, 0, reason}), 58, 1);
    };
    EXPECT_EQ(letter(NewOrderReason::accepted), " ");
    EXPECT_EQ(letter(NewOrderReason::unknown_product), "S");
    EXPECT_EQ(letter(NewOrderReason::no_client_order_id), "O");
    EXPECT_EQ(letter(NewOrderReason::invalid_mpid), "I");
    EXPECT_EQ(letter(NewOrderReason::no_quantity), "K");
    EXPECT_EQ(letter(NewOrderReason::quantity_above_maximum), "M");
    EXPECT_EQ(letter(NewOrderReason::invalid_order_type), "T");
    EXPECT_EQ(letter(NewOrderReason::invalid_price), "J");
    EXPECT_EQ(letter(NewOrderReason::invalid_tif), "b");
    EXPECT_EQ(letter(NewOrderReason::invalid_expire_time), "@");
    EXPECT_EQ(letter(NewOrderReason::invalid_short_sale), "V");
    EXPECT_EQ(letter(NewOrderReason::duplicate_client_order_id), "A");
    EXPECT_EQ(letter(NewOrderReason::scripted), "R");
}

TEST(ReplaceResponseMessage, GivesEachReasonItsLetter) {
    const ReplaceRequest request;
    const auto letter = [&request](ReplaceReason reason) {
        return text_at(build(ReplaceResponse{1, request, 0, 0, reason}), 78, 1);
    };
    EXPECT_EQ(letter(ReplaceReason::accepted), " ");
    EXPECT_EQ(letter(ReplaceReason::duplicate_client_order_id), "A");
    EXPECT_EQ(letter(ReplaceReason::mpid_mismatch), "Q");
    EXPECT_EQ(letter(ReplaceReason::invalid_price), "J");
    EXPECT_EQ(letter(ReplaceReason::no_quantity), "K");
    EXPECT_EQ(letter(ReplaceReason::scripted), "H");
    EXPECT_EQ(letter(ReplaceReason::unknown_or_late), "D");
}

TEST(CancelResponseMessage, GivesEachReasonItsLetter) {
    const CancelRequest request;
    const auto letter = [&request](CancelReason reason) {
        return text_at(build(CancelResponse{1, request, 0, reason}), 70, 1);
    };
    EXPECT_EQ(letter(CancelReason::accepted), " ");
    EXPECT_EQ(letter(CancelReason::mpid_mismatch), "Q");
    EXPECT_EQ(letter(CancelReason::product_mismatch), "S");
    EXPECT_EQ(letter(CancelReason::unknown_or_late), "D");
}

TEST(OrderCancelledMessage, GivesEachReasonItsLetter) {
    const ClientOrderId id("a");
    const auto letter = [&id](SystemCancelReason reason) {
        return text_at(build(OrderCancelled{1, Mpid(), id, 1, 1, 0, reason}), 50, 1);
    };
    EXPECT_EQ(letter(SystemCancelReason::post_only), "E");
    EXPECT_EQ(letter(SystemCancelReason::expired), "C");
    EXPECT_EQ(letter(SystemCancelReason::client_request), "U");
    EXPECT_EQ(letter(SystemCancelReason::disconnect), "D");
    EXPECT_EQ(letter(SystemCancelReason::unsolicited), "H");
}

TEST(OrderRestingMessage, TellsWhetherItIsAtTheTouch) {
    const ClientOrderId id("a");
    EXPECT_EQ(text_at(build(OrderResting{1, 1, 1, id, 1, true}), 50, 1), "Y");
    EXPECT_EQ(text_at(build(OrderResting{1, 1, 1, id, 1, false}), 50, 1), "N");
}

TEST(ExecutionMessage, TellsTheSideOfTheOrder) {
    const ClientOrderId id("a");
    const auto side = [&id](bool buy) {
        return text_at(build(Execution{1, Mpid(), 1, id, 1, 1, 1, 1, buy, Liquidity::added, 'Q'}), 68, 2);
    };
    EXPECT_EQ(side(true), "\0\0"s);
    EXPECT_EQ(side(false), "\1\0"s);
}

TEST(SymbolUpdateMessage, CutsATickerThatIsTooLong) {
    EXPECT_EQ(text_at(build(SymbolUpdate{1, 1, "ABCDEFGHIJK", 'Q'}), 14, 12), "ABCDEFGHIJK\0"s);
    EXPECT_EQ(text_at(build(SymbolUpdate{1, 1, "ABCDEFGHIJKL", 'Q'}), 14, 12), "ABCDEFGHIJK\0"s);
}

TEST(SymbolUpdateMessage, FillsAShortTickerWithBlanks) {
    EXPECT_EQ(text_at(build(SymbolUpdate{1, 1, "F", 'Q'}), 14, 12), "F          \0"s);
    EXPECT_EQ(text_at(build(SymbolUpdate{1, 1, "", 'Q'}), 14, 12), "           \0"s);
}

TEST(MeoResponses, FillAShortMpidWithBlanksAndAShortIdWithNuls) {
    const ClientOrderId id("ab c");
    const Message message = build(OrderCancelled{1, Mpid("X"), id, 1, 1, 0, SystemCancelReason::expired});
    EXPECT_EQ(text_at(message, 10, 4), "X   ");
    EXPECT_EQ(text_at(message, 14, 20), "ab c"s + std::string(16, '\0'));
}

TEST(MeoResponses, LeaveAMissingMpidBlankAndAMissingIdNul) {
    const NewOrderRequest request;
    const Message message = build(NewOrderResponse{1, request, 0, NewOrderReason::invalid_mpid});
    EXPECT_EQ(text_at(message, 10, 4), "    ");
    EXPECT_EQ(text_at(message, 14, 20), std::string(20, '\0'));
}

TEST(MeoResponses, GiveAReceivedPriceBackAsItCame) {
    NewOrderRequest request;
    request.price = 190'000'001;
    const Message message = build(NewOrderResponse{1, request, 0, NewOrderReason::invalid_price});
    EXPECT_EQ(get(message.bytes(), Number<std::uint64_t>{46}), 190'000'001u);
}

TEST(MeoResponses, GiveAPriceOfTheBookInMillionths) {
    const ClientOrderId id("a");
    const Message resting = build(OrderResting{1, 1, 1, id, 19'000, true});
    EXPECT_EQ(get(resting.bytes(), Number<std::uint64_t>{42}), 1'900'000u);
    const Message fill = build(Execution{1, Mpid(), 1, id, 1, 1, 4'294'967'295, 1, true, Liquidity::added, 'Q'});
    EXPECT_EQ(get(fill.bytes(), Number<std::uint64_t>{56}), 429'496'729'500u);
}

TEST(ClientOrderIdText, IsGivenBackWithoutItsFilling) {
    EXPECT_EQ(ClientOrderId().view(), "");
    EXPECT_TRUE(ClientOrderId().empty());
    EXPECT_EQ(ClientOrderId("a b").view(), "a b");
    EXPECT_FALSE(ClientOrderId("a b").empty());
    EXPECT_EQ(ClientOrderId("exactly-twenty-chars").str(), "exactly-twenty-chars");
}

TEST(ClientOrderIdText, IsCutAtTwentyCharacters) {
    EXPECT_EQ(ClientOrderId("exactly-twenty-chars and more").view(), "exactly-twenty-chars");
}

TEST(MpidText, IsFilledUpWithBlanksAndCutAtFour) {
    EXPECT_EQ(Mpid().view(), "    ");
    EXPECT_EQ(Mpid("AB").view(), "AB  ");
    EXPECT_EQ(Mpid("FIRMS").view(), "FIRM");
    EXPECT_TRUE(Mpid("FIRM").complete());
    EXPECT_FALSE(Mpid("AB").complete());
}

}  // namespace
}  // namespace kavo::meo
