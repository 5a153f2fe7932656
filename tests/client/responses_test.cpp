// Responses as a client reads them, each from bytes that were worked out by hand: every field has bytes of its own, so
// none can be read where another stands.
#include "client/responses.h"

#include <gtest/gtest.h>

#include <string>

#include "support/bytes_hex.h"

namespace kavo::client {
namespace {

using test::from_hex;

constexpr std::uint64_t timestamp = 0x1817161514131211;
constexpr std::uint64_t order_id = 0x3837363534333231;
constexpr WirePrice dollars_190_05 = 190'050'000;

TEST(Responses, NewOrderThatIsAccepted) {
    const Bytes bytes = from_hex(R"(
        4E 52                                                       # type "NR"
        11 12 13 14 15 16 17 18                                     # timestamp
        46 49 52 4D                                                 # mpid "FIRM"
        6F 72 64 65 72 2D 31 00 00 00 00 00 00 00 00 00 00 00 00 00 # client_order_id "order-1"
        21 22 23 24                                                 # product_id
        31 32 33 34 35 36 37 38                                     # order id
        41 42 43 44 45 46 47 48                                     # price as received
        51 52 53 54                                                 # size as received
        20                                                          # reason ' '
        00 00 00 00 00 00 00 00 00 00                               # reserved
    )");
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
    const Bytes bytes = from_hex(R"(
        4E 52                                                       # type "NR"
        11 12 13 14 15 16 17 18                                     # timestamp
        41 42 20 20                                                 # mpid "AB"
        00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 # client_order_id, empty
        00 00 00 00                                                 # product_id 0
        00 00 00 00 00 00 00 00                                     # order id 0
        81 2B 53 0B 00 00 00 00                                     # price 190000001, as received
        FF FF FF FF                                                 # size 4294967295
        62                                                          # reason 'b'
        00 00 00 00 00 00 00 00 00 00                               # reserved
    )");
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
    const Bytes bytes = from_hex(R"(
        4F 31                                                       # type "O1"
        11 12 13 14 15 16 17 18                                     # timestamp
        46 49 52 4D                                                 # mpid "FIRM"
        31 32 33 34 35 36 37 38                                     # order id
        6F 72 64 20 37 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 # client_order_id "ord 7", NULs only
        21 22 23 24                                                 # product_id
        41 42 43 44 45 46 47 48                                     # price
        51 52 53 54                                                 # size
        15 01                                                       # order_flags
        54                                                          # tif 'T'
        32                                                          # order_type '2'
        61 62 63 64                                                 # echo a
        71 72 73 74 75 76 77 78                                     # echo b
        81                                                          # echo c
        64 65 73 6B 20 73 65 76 65 6E 00 00 00 00 00 00             # echo text a, its trailing blanks now NULs
        41 20 42 00                                                 # echo text b, likewise
        91 92 93 94 95 96 97 98                                     # echo d
        A1 A2 A3 A4                                                 # echo e
        B1 B2 B3 B4 B5 B6 B7 B8                                     # echo f
        5A 00 00 00                                                 # echo text c, without what followed its NUL
        C1                                                          # echo g
        81                                                          # echo c again
        D1 D2 D3 D4 D5 D6 D7 D8                                     # expire_time
        00 00 00 00 00 00 00 00 00 00                               # reserved
    )");
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
    const Bytes bytes = from_hex(R"(
        50 31                                                       # type "P1"
        11 12 13 14 15 16 17 18                                     # timestamp
        21 22 23 24                                                 # product_id
        31 32 33 34 35 36 37 38                                     # order id
        6F 72 64 65 72 2D 31 00 00 00 00 00 00 00 00 00 00 00 00 00 # client_order_id "order-1"
        D0 EE 53 0B 00 00 00 00                                     # price 190.05: 190050000 millionths
        59                                                          # 'Y': at the touch
        00 00 00 00 00 00 00 00 00                                  # reserved
    )");
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
    const Bytes bytes = from_hex(R"(
        45 31                                                       # type "E1"
        11 12 13 14 15 16 17 18                                     # timestamp
        46 49 52 4D                                                 # mpid "FIRM"
        21 22 23 24                                                 # product_id
        6F 72 64 65 72 2D 31 00 00 00 00 00 00 00 00 00 00 00 00 00 # client_order_id "order-1"
        61 62 63 64 65 66 67 68                                     # match number
        71 72 73 74 75 76 77 78                                     # execution id
        00                                                          # zero
        45                                                          # 'E'
        D0 EE 53 0B 00 00 00 00                                     # price 190.05: 190050000 millionths
        51 52 53 54                                                 # executed quantity
        00 00                                                       # side 0: buy
        00                                                          # zero
        48                                                          # 'H'
        00 00 00 00 00 00 00 00                                     # zero
        41 43 00                                                    # liquidity "AC": added, listed at 'Q'
        00 00 00 00                                                 # zero
        50 00                                                       # 'P', NUL
        00 00 00 00                                                 # zero
        00 00 00 00 00 00 00 00 00 00 00 00                         # reserved
    )");
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
    const Bytes bytes = from_hex(R"(
        45 31                                                       # type "E1"
        11 12 13 14 15 16 17 18                                     # timestamp
        41 42 20 20                                                 # mpid "AB"
        01 00 00 00                                                 # product_id 1
        65 78 61 63 74 6C 79 2D 74 77 65 6E 74 79 2D 63 68 61 72 73 # client_order_id "exactly-twenty-chars"
        01 00 00 00 00 00 00 00                                     # match number 1
        02 00 00 00 00 00 00 00                                     # execution id 2
        00                                                          # zero
        45                                                          # 'E'
        9C FF FF FF 63 00 00 00                                     # price 429496.7295: 429496729500 millionths
        64 00 00 00                                                 # executed quantity 100
        01 00                                                       # side 1: sell
        00                                                          # zero
        48                                                          # 'H'
        00 00 00 00 00 00 00 00                                     # zero
        52 41 00                                                    # liquidity "RA": removed, listed at 'N'
        00 00 00 00                                                 # zero
        50 00                                                       # 'P', NUL
        00 00 00 00                                                 # zero
        00 00 00 00 00 00 00 00 00 00 00 00                         # reserved
    )");
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
    const Bytes bytes = from_hex(R"(
        58 4E                                                       # type "XN"
        11 12 13 14 15 16 17 18                                     # timestamp
        46 49 52 4D                                                 # mpid "FIRM"
        6F 72 64 65 72 2D 31 00 00 00 00 00 00 00 00 00 00 00 00 00 # client_order_id "order-1"
        21 22 23 24                                                 # product_id
        31 32 33 34 35 36 37 38                                     # order id
        51 52 53 54                                                 # leaves
        45                                                          # reason 'E'
        00 00 00 00 00 00 00 00                                     # zero
        00 00 00 00                                                 # zero
        20 20                                                       # two blanks
        00 00 00 00 00 00 00 00                                     # reserved
    )");
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
    const Bytes bytes = from_hex(R"(
        4D 52                                                       # type "MR"
        11 12 13 14 15 16 17 18                                     # timestamp
        41 42 20 20                                                 # mpid "AB"
        6E 65 77 2D 31 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 # client_order_id "new-1"
        6F 6C 64 2D 31 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 # orig_client_order_id "old-1"
        21 22 23 24                                                 # product_id of the request
        31 32 33 34 35 36 37 38                                     # order id
        91 92 93 94                                                 # leaves
        41 42 43 44 45 46 47 48                                     # price as received
        4B                                                          # reason 'K'
        00 00 00 00 00 00 00 00 00 00                               # reserved
    )");
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
    const Bytes bytes = from_hex(R"(
        4D 4E                                                       # type "MN"
        11 12 13 14 15 16 17 18                                     # timestamp
        41 42 20 20                                                 # mpid "AB"
        6E 65 77 2D 31 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 # client_order_id "new-1"
        6F 6C 64 2D 31 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 # orig_client_order_id "old-1"
        81 82 83 84                                                 # product_id: the order's own
        31 32 33 34 35 36 37 38                                     # order id
        41 42 43 44 45 46 47 48                                     # price as received
        51 52 53 54                                                 # size as received
        91 92 93 94                                                 # leaves
        61                                                          # echo 'a'
        00 00 00 00 00 00 00 00                                     # zero
        20 20                                                       # two blanks
        00 00 00 00                                                 # zero
        52                                                          # tif 'R' as received
        00 00 00 00 00 00 00 00                                     # zero
        00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00          # reserved
    )");
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
    const Bytes bytes = from_hex(R"(
        43 52                                                       # type "CR"
        11 12 13 14 15 16 17 18                                     # timestamp
        41 20 20 20                                                 # mpid "A"
        63 61 6E 63 65 6C 2D 31 00 00 00 00 00 00 00 00 00 00 00 00 # client_order_id "cancel-1"
        65 78 61 63 74 6C 79 2D 74 77 65 6E 74 79 2D 63 68 61 72 73 # orig_client_order_id "exactly-twenty-chars"
        21 22 23 24                                                 # product_id of the request
        31 32 33 34 35 36 37 38                                     # order id
        00 00 00 00                                                 # zero
        51                                                          # reason 'Q'
        00 00 00 00 00 00 00 00 00 00                               # reserved
    )");
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
    const Bytes bytes = from_hex(R"(
        53 4E                                                       # type "SN"
        11 12 13 14 15 16 17 18                                     # timestamp
        4D 45 4F 32 2E 37 20 20                                     # application protocol version "MEO2.7"
        C8                                                          # session number 200
        53                                                          # system status 'S'
        00 00 00 00 00 00 00 00                                     # zero
    )");
    const auto read = read_start_of_session(bytes);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->timestamp, timestamp);
    EXPECT_EQ(read->version, "MEO2.7");
    EXPECT_EQ(read->session, 200u);
}

TEST(Responses, SymbolUpdate) {
    const Bytes bytes = from_hex(R"(
        53 55                                                       # type "SU"
        11 12 13 14 15 16 17 18                                     # timestamp
        21 22 23 24                                                 # product_id
        53 50 59 20 20 20 20 20 20 20 20                            # symbol "SPY"
        00                                                          # zero
        4E                                                          # 'N'
        00                                                          # zero
        64 00 00 00                                                 # 100
        30 34 3A 30 30 3A 30 30                                     # opening time "04:00:00"
        32 30 3A 30 30 3A 30 30                                     # closing time "20:00:00"
        50                                                          # listing code 'P'
        00 00 00 00 00 00 00 00 00 00 00 00                         # zero
    )");
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
