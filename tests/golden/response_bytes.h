// The bytes of every response, worked out by hand from the layouts: what the venue builds, and what a client reads.
#pragma once

namespace kavo::golden {

inline constexpr const char* new_order_that_is_accepted = R"(
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
)";

inline constexpr const char* new_order_that_is_rejected = R"(
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
)";

inline constexpr const char* order_that_was_accepted = R"(
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
)";

inline constexpr const char* order_that_rests = R"(
    50 31                                                       # type "P1"
    11 12 13 14 15 16 17 18                                     # timestamp
    21 22 23 24                                                 # product_id
    31 32 33 34 35 36 37 38                                     # order id
    6F 72 64 65 72 2D 31 00 00 00 00 00 00 00 00 00 00 00 00 00 # client_order_id "order-1"
    D0 EE 53 0B 00 00 00 00                                     # price 190.05: 190050000 millionths
    59                                                          # 'Y': at the touch
    00 00 00 00 00 00 00 00 00                                  # reserved
)";

inline constexpr const char* execution_of_a_maker_who_buys = R"(
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
)";

inline constexpr const char* execution_of_a_taker_who_sells = R"(
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
)";

inline constexpr const char* order_that_is_gone = R"(
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
)";

inline constexpr const char* answer_to_a_replace = R"(
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
)";

inline constexpr const char* order_after_a_replace = R"(
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
)";

inline constexpr const char* answer_to_a_cancel = R"(
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
)";

inline constexpr const char* start_of_session = R"(
    53 4E                                                       # type "SN"
    11 12 13 14 15 16 17 18                                     # timestamp
    4D 45 4F 32 2E 37 20 20                                     # application protocol version "MEO2.7"
    C8                                                          # session number 200
    53                                                          # system status 'S'
    00 00 00 00 00 00 00 00                                     # zero
)";

inline constexpr const char* symbol_update = R"(
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
)";

}  // namespace kavo::golden
