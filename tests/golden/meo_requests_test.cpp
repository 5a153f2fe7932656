// Order-entry requests, byte by byte: every field has bytes of its own, so none can be taken for another.
#include <gtest/gtest.h>

#include "engine/meo.h"
#include "support/bytes_hex.h"

namespace kavo {
namespace {

using test::from_hex;

TEST(MeoRequestBytes, NewOrder) {
    const Bytes message = from_hex(R"(
        4E 31                                                       # type "N1"
        E1 E2 E3 E4 E5 E6 E7 E8                                     # not read
        46 49 52 4D                                                 # mpid "FIRM"
        6F 72 64 20 37 20 20 20 00 00 00 00 00 00 00 00 00 00 00 00 # client_order_id "ord 7", blanks, NULs
        21 22 23 24                                                 # product_id 0x24232221
        41 42 43 44 45 46 47 48                                     # price 0x4847464544434241
        51 52 53 54                                                 # size 0x54535251
        15 01                                                       # order_flags 0x0115
        54                                                          # tif 'T'
        32                                                          # order_type '2'
        61 62 63 64                                                 # echo a 0x64636261
        71 72 73 74 75 76 77 78                                     # echo b 0x7877767574737271
        81                                                          # echo c 0x81
        64 65 73 6B 20 73 65 76 65 6E 20 20 20 20 20 20             # echo text a "desk seven", blanks
        41 20 42 00                                                 # echo text b "A B", a NUL
        91 92 93 94 95 96 97 98                                     # echo d 0x9897969594939291
        A1 A2 A3 A4                                                 # echo e 0xA4A3A2A1
        B1 B2 B3 B4 B5 B6 B7 B8                                     # echo f 0xB8B7B6B5B4B3B2B1
        5A 20 00 59                                                 # echo text c "Z", over at the NUL
        C1                                                          # echo g 0xC1
        D1 D2 D3 D4 D5 D6 D7 D8                                     # expire_time 0xD8D7D6D5D4D3D2D1
        F1 F2 F3 F4 F5 F6 F7 F8 F9 FA FB                            # not read
    )");
    ASSERT_EQ(message.size(), 131u);

    const auto request = meo::read_new_order(message);
    ASSERT_TRUE(request);
    EXPECT_EQ(request->mpid.view(), "FIRM");
    EXPECT_EQ(request->client_order_id.view(), "ord 7");
    EXPECT_EQ(request->product_id, 0x24232221u);
    EXPECT_EQ(request->price, 0x4847464544434241u);
    EXPECT_EQ(request->quantity, 0x54535251u);
    EXPECT_EQ(request->flags.bits, 0x0115u);
    EXPECT_TRUE(request->flags.sell());
    EXPECT_EQ(request->flags.short_sale(), 2u);
    EXPECT_TRUE(request->flags.post_only());
    EXPECT_EQ(request->flags.attribution(), meo::attributed_to_participant);
    EXPECT_EQ(request->tif, meo::TimeInForce::timed);
    EXPECT_EQ(request->order_type, meo::OrderType::market);
    EXPECT_EQ(request->echo.a, 0x64636261u);
    EXPECT_EQ(request->echo.b, 0x7877767574737271u);
    EXPECT_EQ(request->echo.c, '\x81');
    EXPECT_EQ(request->echo.text_a, "desk seven");
    EXPECT_EQ(request->echo.text_b, "A B");
    EXPECT_EQ(request->echo.d, 0x9897969594939291u);
    EXPECT_EQ(request->echo.e, 0xA4A3A2A1u);
    EXPECT_EQ(request->echo.f, 0xB8B7B6B5B4B3B2B1u);
    EXPECT_EQ(request->echo.text_c, "Z");
    EXPECT_EQ(request->echo.g, '\xC1');
    EXPECT_EQ(request->expire_time, 0xD8D7D6D5D4D3D2D1u);
}

TEST(MeoRequestBytes, Replace) {
    const Bytes message = from_hex(R"(
        4D 31                                                       # type "M1"
        E1 E2 E3 E4 E5 E6 E7 E8                                     # not read
        41 42 20 20                                                 # mpid "AB"
        6E 65 77 2D 31 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 # client_order_id "new-1"
        6F 6C 64 2D 31 20 20 20 20 20 20 20 20 20 20 20 20 20 20 20 # orig_client_order_id "old-1", blanks
        21 22 23 24                                                 # product_id 0x24232221
        41 42 43 44 45 46 47 48                                     # price 0x4847464544434241
        51 52 53 54                                                 # size 0x54535251
        61                                                          # echo 'a'
        71 72 73 74 75 76 77 78                                     # not interpreted
        54 58 54 44                                                 # not interpreted
        52                                                          # tif 'R'
        91 92 93 94 95 96 97 98                                     # not interpreted
        A1 A2 A3 A4 A5 A6 A7 A8 A9 AA AB AC AD AE AF B0 B1 B2 B3    # not read
    )");
    ASSERT_EQ(message.size(), 111u);

    const auto request = meo::read_replace(message);
    ASSERT_TRUE(request);
    EXPECT_EQ(request->mpid.view(), "AB  ");
    EXPECT_EQ(request->client_order_id.view(), "new-1");
    EXPECT_EQ(request->orig_client_order_id.view(), "old-1");
    EXPECT_EQ(request->product_id, 0x24232221u);
    EXPECT_EQ(request->price, 0x4847464544434241u);
    EXPECT_EQ(request->quantity, 0x54535251u);
    EXPECT_EQ(request->echo, 'a');
    EXPECT_EQ(request->tif, meo::TimeInForce::regular);
}

TEST(MeoRequestBytes, Cancel) {
    const Bytes message = from_hex(R"(
        43 4F                                                       # type "CO"
        E1 E2 E3 E4 E5 E6 E7 E8                                     # not read
        41 20 00 20                                                 # mpid "A", blanks and a NUL
        63 61 6E 63 65 6C 2D 31 00 00 00 00 00 00 00 00 00 00 00 00 # client_order_id "cancel-1"
        65 78 61 63 74 6C 79 2D 74 77 65 6E 74 79 2D 63 68 61 72 73 # orig_client_order_id "exactly-twenty-chars"
        21 22 23 24                                                 # product_id 0x24232221
        F1 F2 F3 F4 F5 F6 F7 F8 F9 FA                               # not read
    )");
    ASSERT_EQ(message.size(), 68u);

    const auto request = meo::read_cancel(message);
    ASSERT_TRUE(request);
    EXPECT_EQ(request->mpid.view(), "A   ");
    EXPECT_EQ(request->client_order_id.view(), "cancel-1");
    EXPECT_EQ(request->orig_client_order_id.view(), "exactly-twenty-chars");
    EXPECT_EQ(request->product_id, 0x24232221u);
}

}  // namespace
}  // namespace kavo
