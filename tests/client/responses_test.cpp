// Responses as a client reads them, each from bytes that were worked out by hand: every field has bytes of its own, so
// none can be read where another stands.
#include "client/responses.h"

#include <gtest/gtest.h>

#include <string>

#include "golden/response_bytes.h"
#include "support/bytes_hex.h"

namespace kavo::client {
namespace {

using test::from_hex;

constexpr std::uint64_t timestamp = 0x1817161514131211;
constexpr std::uint64_t order_id = 0x3837363534333231;
constexpr WirePrice dollars_190_05 = 190'050'000;

TEST(Responses, NewOrderThatIsAccepted) {
    const Bytes bytes = from_hex(golden::new_order_that_is_accepted);
    const auto read = read_new_order_response(bytes);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->timestamp, timestamp);
    EXPECT_EQ(read->mpid, "FIRM");
    EXPECT_EQ(read->client_order_id, "order-1");
    EXPECT_EQ(read->product_id, 0x24232221u);
    EXPECT_EQ(read->order_id, order_id);
    EXPECT_EQ(read->price, 0x4847464544434241u);
    EXPECT_EQ(read->quantity, 0x54535251u);
    EXPECT_EQ(read->reason, meo::NewOrderReason::accepted);
    EXPECT_EQ(read->accepted(), true);
}

TEST(Responses, NewOrderThatIsRejected) {
    const Bytes bytes = from_hex(golden::new_order_that_is_rejected);
    const auto read = read_new_order_response(bytes);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->timestamp, timestamp);
    EXPECT_EQ(read->mpid, "AB");
    EXPECT_EQ(read->client_order_id, "");
    EXPECT_EQ(read->product_id, 0u);
    EXPECT_EQ(read->order_id, 0u);
    EXPECT_EQ(read->price, 190'000'001u);
    EXPECT_EQ(read->quantity, 4'294'967'295u);
    EXPECT_EQ(read->reason, meo::NewOrderReason::invalid_tif);
    EXPECT_EQ(read->accepted(), false);
}

TEST(Responses, OrderThatWasAccepted) {
    const Bytes bytes = from_hex(golden::order_that_was_accepted);
    const auto read = read_order_accepted(bytes);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->timestamp, timestamp);
    EXPECT_EQ(read->mpid, "FIRM");
    EXPECT_EQ(read->order_id, order_id);
    EXPECT_EQ(read->client_order_id, "ord 7");
    EXPECT_EQ(read->product_id, 0x24232221u);
    EXPECT_EQ(read->price, 0x4847464544434241u);
    EXPECT_EQ(read->quantity, 0x54535251u);
    EXPECT_EQ(read->flags.bits, 0x0115u);
    EXPECT_EQ(read->tif, meo::TimeInForce::timed);
    EXPECT_EQ(read->order_type, meo::OrderType::market);
    EXPECT_EQ(read->echo.a, 0x64636261u);
    EXPECT_EQ(read->echo.b, 0x7877767574737271u);
    EXPECT_EQ(read->echo.c, '\x81');
    EXPECT_EQ(read->echo.text_a, "desk seven");
    EXPECT_EQ(read->echo.text_b, "A B");
    EXPECT_EQ(read->echo.d, 0x9897969594939291u);
    EXPECT_EQ(read->echo.e, 0xA4A3A2A1u);
    EXPECT_EQ(read->echo.f, 0xB8B7B6B5B4B3B2B1u);
    EXPECT_EQ(read->echo.text_c, "Z");
    EXPECT_EQ(read->echo.g, '\xC1');
    EXPECT_EQ(read->expire_time, 0xD8D7D6D5D4D3D2D1u);
}

TEST(Responses, OrderThatRests) {
    const Bytes bytes = from_hex(golden::order_that_rests);
    const auto read = read_order_resting(bytes);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->timestamp, timestamp);
    EXPECT_EQ(read->product_id, 0x24232221u);
    EXPECT_EQ(read->order_id, order_id);
    EXPECT_EQ(read->client_order_id, "order-1");
    EXPECT_EQ(read->price, dollars_190_05);
    EXPECT_EQ(read->at_touch, true);
}

TEST(Responses, ExecutionOfAMakerWhoBuys) {
    const Bytes bytes = from_hex(golden::execution_of_a_maker_who_buys);
    const auto read = read_execution(bytes);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->timestamp, timestamp);
    EXPECT_EQ(read->mpid, "FIRM");
    EXPECT_EQ(read->product_id, 0x24232221u);
    EXPECT_EQ(read->client_order_id, "order-1");
    EXPECT_EQ(read->match_number, 0x6867666564636261u);
    EXPECT_EQ(read->execution_id, 0x7877767574737271u);
    EXPECT_EQ(read->price, dollars_190_05);
    EXPECT_EQ(read->quantity, 0x54535251u);
    EXPECT_EQ(read->buy, true);
    EXPECT_EQ(read->liquidity, meo::Liquidity::added);
    EXPECT_EQ(read->market, 'C');
}

TEST(Responses, ExecutionOfATakerWhoSells) {
    const Bytes bytes = from_hex(golden::execution_of_a_taker_who_sells);
    const auto read = read_execution(bytes);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->timestamp, timestamp);
    EXPECT_EQ(read->mpid, "AB");
    EXPECT_EQ(read->client_order_id, "exactly-twenty-chars");
    EXPECT_EQ(read->price, 429'496'729'500u);
    EXPECT_EQ(read->quantity, 100u);
    EXPECT_EQ(read->buy, false);
    EXPECT_EQ(read->liquidity, meo::Liquidity::removed);
    EXPECT_EQ(read->market, 'A');
}

TEST(Responses, OrderThatIsGone) {
    const Bytes bytes = from_hex(golden::order_that_is_gone);
    const auto read = read_order_cancelled(bytes);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->timestamp, timestamp);
    EXPECT_EQ(read->mpid, "FIRM");
    EXPECT_EQ(read->client_order_id, "order-1");
    EXPECT_EQ(read->product_id, 0x24232221u);
    EXPECT_EQ(read->order_id, order_id);
    EXPECT_EQ(read->leaves, 0x54535251u);
    EXPECT_EQ(read->reason, meo::SystemCancelReason::post_only);
}

TEST(Responses, AnswerToAReplace) {
    const Bytes bytes = from_hex(golden::answer_to_a_replace);
    const auto read = read_replace_response(bytes);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->timestamp, timestamp);
    EXPECT_EQ(read->mpid, "AB");
    EXPECT_EQ(read->client_order_id, "new-1");
    EXPECT_EQ(read->orig_client_order_id, "old-1");
    EXPECT_EQ(read->product_id, 0x24232221u);
    EXPECT_EQ(read->order_id, order_id);
    EXPECT_EQ(read->leaves, 0x94939291u);
    EXPECT_EQ(read->price, 0x4847464544434241u);
    EXPECT_EQ(read->reason, meo::ReplaceReason::no_quantity);
    EXPECT_EQ(read->accepted(), false);
}

TEST(Responses, OrderAfterAReplace) {
    const Bytes bytes = from_hex(golden::order_after_a_replace);
    const auto read = read_replace_notification(bytes);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->timestamp, timestamp);
    EXPECT_EQ(read->mpid, "AB");
    EXPECT_EQ(read->client_order_id, "new-1");
    EXPECT_EQ(read->orig_client_order_id, "old-1");
    EXPECT_EQ(read->product_id, 0x84838281u);
    EXPECT_EQ(read->order_id, order_id);
    EXPECT_EQ(read->price, 0x4847464544434241u);
    EXPECT_EQ(read->quantity, 0x54535251u);
    EXPECT_EQ(read->leaves, 0x94939291u);
    EXPECT_EQ(read->echo, 'a');
    EXPECT_EQ(read->tif, meo::TimeInForce::regular);
}

TEST(Responses, AnswerToACancel) {
    const Bytes bytes = from_hex(golden::answer_to_a_cancel);
    const auto read = read_cancel_response(bytes);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->timestamp, timestamp);
    EXPECT_EQ(read->mpid, "A");
    EXPECT_EQ(read->client_order_id, "cancel-1");
    EXPECT_EQ(read->orig_client_order_id, "exactly-twenty-chars");
    EXPECT_EQ(read->product_id, 0x24232221u);
    EXPECT_EQ(read->order_id, order_id);
    EXPECT_EQ(read->reason, meo::CancelReason::mpid_mismatch);
    EXPECT_EQ(read->accepted(), false);
}

TEST(Responses, StartOfSession) {
    const Bytes bytes = from_hex(golden::start_of_session);
    const auto read = read_start_of_session(bytes);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->timestamp, timestamp);
    EXPECT_EQ(read->version, "MEO2.7");
    EXPECT_EQ(read->session, 200u);
}

TEST(Responses, SymbolUpdate) {
    const Bytes bytes = from_hex(golden::symbol_update);
    const auto read = read_symbol_update(bytes);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->timestamp, timestamp);
    EXPECT_EQ(read->product_id, 0x24232221u);
    EXPECT_EQ(read->symbol, "SPY");
    EXPECT_EQ(read->listing_market, 'P');
}

// Which of the ten readers take a message, as the types they read.
std::string readers_of(ByteView message) {
    std::string list;
    const auto note = [&](bool read, const char* type) {
        if (read) list += std::string(type) + " ";
    };
    note(read_new_order_response(message).has_value(), "NR");
    note(read_order_accepted(message).has_value(), "O1");
    note(read_order_resting(message).has_value(), "P1");
    note(read_execution(message).has_value(), "E1");
    note(read_order_cancelled(message).has_value(), "XN");
    note(read_replace_response(message).has_value(), "MR");
    note(read_replace_notification(message).has_value(), "MN");
    note(read_cancel_response(message).has_value(), "CR");
    note(read_start_of_session(message).has_value(), "SN");
    note(read_symbol_update(message).has_value(), "SU");
    return list;
}

struct TypeAndSize {
    std::string type;
    std::size_t size;
};

TEST(ResponseReaders, TakeAMessageOfTheirTypeAtExactlyItsSize) {
    const TypeAndSize all_types[] = {{"NR", 69}, {"O1", 139}, {"P1", 60}, {"E1", 105}, {"XN", 73},
                                     {"MR", 89}, {"MN", 123}, {"CR", 81}, {"SN", 28},  {"SU", 61}};
    for (const auto& [type, size] : all_types) {
        Bytes message(type.begin(), type.end());
        message.resize(size);
        EXPECT_EQ(readers_of(message), type + " ");
        message.push_back(0);
        EXPECT_EQ(readers_of(message), "") << type << " with a byte too many";
        message.resize(size - 1);
        EXPECT_EQ(readers_of(message), "") << type << " with a byte too few";
    }
    EXPECT_EQ(readers_of({}), "");
}

}  // namespace
}  // namespace kavo::client
