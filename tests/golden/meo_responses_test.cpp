// Order-entry responses, byte by byte: every field has bytes of its own, so none can stand where another belongs.
#include <gtest/gtest.h>

#include "engine/meo.h"
#include "golden/response_bytes.h"
#include "support/bytes_hex.h"

namespace kavo {
namespace {

using meo::ClientOrderId;
using meo::Mpid;
using test::from_hex;
using test::hex_rows;
using test::to_hex;

constexpr std::uint64_t timestamp = 0x1817161514131211;
constexpr std::uint64_t order_id = 0x3837363534333231;
constexpr Price dollars_190_05 = 1'900'500;

TEST(MeoResponseBytes, NewOrderThatIsAccepted) {
    meo::NewOrderRequest request;
    request.mpid = Mpid("FIRM");
    request.client_order_id = ClientOrderId("order-1");
    request.product_id = 0x24232221;
    request.price = 0x4847464544434241;
    request.quantity = 0x54535251;

    const meo::Message message =
        build(meo::NewOrderResponse{timestamp, request, order_id, meo::NewOrderReason::accepted});
    EXPECT_EQ(message.bytes().size(), 69u);
    EXPECT_EQ(to_hex(message.bytes()), hex_rows(golden::new_order_that_is_accepted));
}

TEST(MeoResponseBytes, NewOrderThatIsRejected) {
    meo::NewOrderRequest request;
    request.mpid = Mpid("AB");
    request.price = 190'000'001;
    request.quantity = 4'294'967'295;

    const meo::Message message = build(meo::NewOrderResponse{timestamp, request, 0, meo::NewOrderReason::invalid_tif});
    EXPECT_EQ(to_hex(message.bytes()), hex_rows(golden::new_order_that_is_rejected));
}

TEST(MeoResponseBytes, OrderAcceptedGivesBackWhatTheRequestCarried) {
    const Bytes request_bytes = from_hex(R"(
        4E 31                                                       # type "N1"
        E1 E2 E3 E4 E5 E6 E7 E8                                     # not read
        46 49 52 4D                                                 # mpid "FIRM"
        6F 72 64 20 37 20 20 20 00 00 00 00 00 00 00 00 00 00 00 00 # client_order_id "ord 7", blanks, NULs
        21 22 23 24                                                 # product_id
        41 42 43 44 45 46 47 48                                     # price
        51 52 53 54                                                 # size
        15 01                                                       # order_flags
        54                                                          # tif 'T'
        32                                                          # order_type '2'
        61 62 63 64                                                 # echo a
        71 72 73 74 75 76 77 78                                     # echo b
        81                                                          # echo c
        64 65 73 6B 20 73 65 76 65 6E 20 20 20 20 20 20             # echo text a "desk seven", blanks
        41 20 42 20                                                 # echo text b "A B", a blank
        91 92 93 94 95 96 97 98                                     # echo d
        A1 A2 A3 A4                                                 # echo e
        B1 B2 B3 B4 B5 B6 B7 B8                                     # echo f
        5A 20 00 59                                                 # echo text c "Z", over at the NUL
        C1                                                          # echo g
        D1 D2 D3 D4 D5 D6 D7 D8                                     # expire_time
        F1 F2 F3 F4 F5 F6 F7 F8 F9 FA FB                            # not read
    )");
    const auto request = meo::read_new_order(request_bytes);
    ASSERT_TRUE(request);

    const meo::Message message = build(meo::OrderAccepted{timestamp, *request, order_id});
    EXPECT_EQ(message.bytes().size(), 139u);
    EXPECT_EQ(to_hex(message.bytes()), hex_rows(golden::order_that_was_accepted));
}

TEST(MeoResponseBytes, OrderResting) {
    const ClientOrderId id("order-1");
    const meo::Message message = build(meo::OrderResting{timestamp, 0x24232221, order_id, id, dollars_190_05, true});
    EXPECT_EQ(message.bytes().size(), 60u);
    EXPECT_EQ(to_hex(message.bytes()), hex_rows(golden::order_that_rests));
}

TEST(MeoResponseBytes, ExecutionOfAMakerWhoBuys) {
    const ClientOrderId id("order-1");
    const meo::Message message =
        build(meo::Execution{timestamp, Mpid("FIRM"), 0x24232221, id, 0x6867666564636261, 0x7877767574737271,
                             dollars_190_05, 0x54535251, true, meo::Liquidity::added, 'Q'});
    EXPECT_EQ(message.bytes().size(), 105u);
    EXPECT_EQ(to_hex(message.bytes()), hex_rows(golden::execution_of_a_maker_who_buys));
}

TEST(MeoResponseBytes, ExecutionOfATakerWhoSellsAtTheHighestPriceThereIs) {
    const ClientOrderId id("exactly-twenty-chars");
    const meo::Message message = build(
        meo::Execution{timestamp, Mpid("AB"), 1, id, 1, 2, 4'294'967'295, 100, false, meo::Liquidity::removed, 'N'});
    EXPECT_EQ(to_hex(message.bytes()), hex_rows(golden::execution_of_a_taker_who_sells));
}

TEST(MeoResponseBytes, ExecutionTellsWhereTheProductIsListed) {
    const ClientOrderId id("order-1");
    const auto liquidity_code = [&id](char listing_market) {
        const meo::Message message = build(meo::Execution{timestamp, Mpid("FIRM"), 1, id, 1, 1, dollars_190_05, 100,
                                                          true, meo::Liquidity::added, listing_market});
        return std::string(as_text(message.bytes().subspan(80, 3)));
    };
    using namespace std::string_literals;
    EXPECT_EQ(liquidity_code('N'), "AA\0"s);
    EXPECT_EQ(liquidity_code('A'), "AA\0"s);
    EXPECT_EQ(liquidity_code('Q'), "AC\0"s);
    EXPECT_EQ(liquidity_code('P'), "AB\0"s);
    EXPECT_EQ(liquidity_code('n'), "AB\0"s);
    EXPECT_EQ(liquidity_code('\0'), "AB\0"s);
}

TEST(MeoResponseBytes, OrderCancelled) {
    const ClientOrderId id("order-1");
    const meo::Message message = build(meo::OrderCancelled{timestamp, Mpid("FIRM"), id, 0x24232221, order_id,
                                                           0x54535251, meo::SystemCancelReason::post_only});
    EXPECT_EQ(message.bytes().size(), 73u);
    EXPECT_EQ(to_hex(message.bytes()), hex_rows(golden::order_that_is_gone));
}

meo::ReplaceRequest replace_request() {
    meo::ReplaceRequest request;
    request.mpid = Mpid("AB");
    request.client_order_id = ClientOrderId("new-1");
    request.orig_client_order_id = ClientOrderId("old-1");
    request.product_id = 0x24232221;
    request.price = 0x4847464544434241;
    request.quantity = 0x54535251;
    request.echo = 'a';
    request.tif = meo::TimeInForce::regular;
    return request;
}

TEST(MeoResponseBytes, ReplaceResponse) {
    const meo::ReplaceRequest request = replace_request();
    const meo::Message message =
        build(meo::ReplaceResponse{timestamp, request, order_id, 0x94939291, meo::ReplaceReason::no_quantity});
    EXPECT_EQ(message.bytes().size(), 89u);
    EXPECT_EQ(to_hex(message.bytes()), hex_rows(golden::answer_to_a_replace));
}

TEST(MeoResponseBytes, ReplaceNotification) {
    const meo::ReplaceRequest request = replace_request();
    const meo::Message message = build(meo::ReplaceNotification{timestamp, request, 0x84838281, order_id, 0x94939291});
    EXPECT_EQ(message.bytes().size(), 123u);
    EXPECT_EQ(to_hex(message.bytes()), hex_rows(golden::order_after_a_replace));
}

TEST(MeoResponseBytes, CancelResponse) {
    meo::CancelRequest request;
    request.mpid = Mpid("A");
    request.client_order_id = ClientOrderId("cancel-1");
    request.orig_client_order_id = ClientOrderId("exactly-twenty-chars");
    request.product_id = 0x24232221;
    const meo::Message message =
        build(meo::CancelResponse{timestamp, request, order_id, meo::CancelReason::mpid_mismatch});
    EXPECT_EQ(message.bytes().size(), 81u);
    EXPECT_EQ(to_hex(message.bytes()), hex_rows(golden::answer_to_a_cancel));
}

TEST(MeoResponseBytes, StartOfSession) {
    const meo::Message message = build(meo::StartOfSession{timestamp, 200});
    EXPECT_EQ(message.bytes().size(), 28u);
    EXPECT_EQ(to_hex(message.bytes()), hex_rows(golden::start_of_session));
}

TEST(MeoResponseBytes, SymbolUpdate) {
    const meo::Message message = build(meo::SymbolUpdate{timestamp, 0x24232221, "SPY", 'P'});
    EXPECT_EQ(message.bytes().size(), 61u);
    EXPECT_EQ(to_hex(message.bytes()), hex_rows(golden::symbol_update));
}

}  // namespace
}  // namespace kavo
