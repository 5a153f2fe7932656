// Every order-entry message, "MEO2.7", as a table of named offsets. Parsers and builders of both sides share these.
#pragma once

#include "common/bytes.h"

namespace kavo::meo {

inline constexpr std::string_view protocol_version = "MEO2.7";

inline constexpr std::size_t mpid_size = 4;
inline constexpr std::size_t client_order_id_size = 20;

namespace layout {

inline constexpr Text type{0, 2};
inline constexpr Number<std::uint64_t> timestamp{2};  // of every response; requests have bytes there that nobody reads

// The client's own fields: taken with the order, given back with its acceptance, never interpreted. They lie in the
// same order without gaps in both messages, only at another place.
struct Echo {
    Number<std::uint32_t> a;
    Number<std::uint64_t> b;
    Letter c;
    Text text_a;
    Text text_b;
    Number<std::uint64_t> d;
    Number<std::uint32_t> e;
    Number<std::uint64_t> f;
    Text text_c;
    Letter g;
};
constexpr Echo echo_from(std::size_t at) {
    return {{at},      {at + 4},  {at + 12}, {at + 13, 16}, {at + 29, 4},
            {at + 33}, {at + 41}, {at + 45}, {at + 53, 4},  {at + 57}};
}
constexpr bool echo_adjoins(Echo echo) {
    return adjoin(echo.a, echo.b, echo.c, echo.text_a, echo.text_b, echo.d, echo.e, echo.f, echo.text_c, echo.g);
}

namespace new_order {  // "N1", client to venue
inline constexpr Unread unread{2, 8};
inline constexpr Text mpid{10, mpid_size};
inline constexpr Text client_order_id{14, client_order_id_size};
inline constexpr Number<std::uint32_t> product_id{34};
inline constexpr Number<std::uint64_t> price{38};
inline constexpr Number<std::uint32_t> quantity{46};
inline constexpr Number<std::uint16_t> order_flags{50};
inline constexpr Letter tif{52};
inline constexpr Letter order_type{53};
inline constexpr Echo echo = echo_from(54);
inline constexpr Number<std::uint64_t> expire_time{112};
inline constexpr Unread tail{120, 11};
inline constexpr std::size_t min_size = end_of(tail);  // the tail must be there but is never read
static_assert(adjoin(type, unread, mpid, client_order_id, product_id, price, quantity, order_flags, tif, order_type,
                     echo.a) &&
              echo_adjoins(echo) && adjoin(echo.g, expire_time, tail) && min_size == 131);
}  // namespace new_order

namespace replace {  // "M1", client to venue
inline constexpr Unread unread{2, 8};
inline constexpr Text mpid{10, mpid_size};
inline constexpr Text client_order_id{14, client_order_id_size};
inline constexpr Text orig_client_order_id{34, client_order_id_size};
inline constexpr Number<std::uint32_t> product_id{54};  // given back, never used to find the order
inline constexpr Number<std::uint64_t> price{58};
inline constexpr Number<std::uint32_t> quantity{66};
inline constexpr Letter echo{70};
inline constexpr Unread not_interpreted{71, 12};  // eight bytes and a text of four
inline constexpr Letter tif{83};
inline constexpr Unread tail{84, 27};
inline constexpr std::size_t min_size = end_of(tail);
static_assert(adjoin(type, unread, mpid, client_order_id, orig_client_order_id, product_id, price, quantity, echo,
                     not_interpreted, tif, tail) &&
              min_size == 111);
}  // namespace replace

namespace cancel {  // "CO", client to venue
inline constexpr Unread unread{2, 8};
inline constexpr Text mpid{10, mpid_size};
inline constexpr Text client_order_id{14, client_order_id_size};
inline constexpr Text orig_client_order_id{34, client_order_id_size};
inline constexpr Number<std::uint32_t> product_id{54};
inline constexpr Unread tail{58, 10};
inline constexpr std::size_t min_size = end_of(tail);
static_assert(adjoin(type, unread, mpid, client_order_id, orig_client_order_id, product_id, tail) && min_size == 68);
}  // namespace cancel

namespace new_order_response {  // "NR"
inline constexpr Text mpid{10, mpid_size};
inline constexpr Text client_order_id{14, client_order_id_size};
inline constexpr Number<std::uint32_t> product_id{34};
inline constexpr Number<std::uint64_t> order_id{38};
inline constexpr Number<std::uint64_t> price{46};
inline constexpr Number<std::uint32_t> quantity{54};
inline constexpr Letter reason{58};
inline constexpr Unread reserved{59, 10};
inline constexpr std::size_t size = end_of(reserved);
static_assert(adjoin(type, timestamp, mpid, client_order_id, product_id, order_id, price, quantity, reason, reserved) &&
              size == 69);
}  // namespace new_order_response

namespace order_accepted {  // "O1"
inline constexpr Text mpid{10, mpid_size};
inline constexpr Number<std::uint64_t> order_id{14};
inline constexpr Text client_order_id{22, client_order_id_size};
inline constexpr Number<std::uint32_t> product_id{42};
inline constexpr Number<std::uint64_t> price{46};
inline constexpr Number<std::uint32_t> quantity{54};
inline constexpr Number<std::uint16_t> order_flags{58};
inline constexpr Letter tif{60};
inline constexpr Letter order_type{61};
inline constexpr Echo echo = echo_from(62);
inline constexpr Letter echo_c_again{120};
inline constexpr Number<std::uint64_t> expire_time{121};
inline constexpr Unread reserved{129, 10};
inline constexpr std::size_t size = end_of(reserved);
static_assert(adjoin(type, timestamp, mpid, order_id, client_order_id, product_id, price, quantity, order_flags, tif,
                     order_type, echo.a) &&
              echo_adjoins(echo) && adjoin(echo.g, echo_c_again, expire_time, reserved) && size == 139);
}  // namespace order_accepted

namespace order_resting {  // "P1"
inline constexpr Number<std::uint32_t> product_id{10};
inline constexpr Number<std::uint64_t> order_id{14};
inline constexpr Text client_order_id{22, client_order_id_size};
inline constexpr Number<std::uint64_t> price{42};
inline constexpr Letter at_touch{50};  // 'Y' or 'N'
inline constexpr Unread reserved{51, 9};
inline constexpr std::size_t size = end_of(reserved);
static_assert(adjoin(type, timestamp, product_id, order_id, client_order_id, price, at_touch, reserved) && size == 60);
}  // namespace order_resting

namespace execution {  // "E1"
inline constexpr Text mpid{10, mpid_size};
inline constexpr Number<std::uint32_t> product_id{14};
inline constexpr Text client_order_id{18, client_order_id_size};
inline constexpr Number<std::uint64_t> match_number{38};
inline constexpr Number<std::uint64_t> execution_id{46};
inline constexpr Unread zero_a{54, 1};
inline constexpr Letter constant_e{55};
inline constexpr Number<std::uint64_t> price{56};
inline constexpr Number<std::uint32_t> quantity{64};
inline constexpr Number<std::uint16_t> side{68};  // 0 buy, 1 sell
inline constexpr Unread zero_b{70, 1};
inline constexpr Letter constant_h{71};
inline constexpr Unread zero_c{72, 8};
inline constexpr Letter liquidity{80};  // 'A' added, 'R' removed
inline constexpr Letter market{81};     // a letter that follows from where the product is listed
inline constexpr Unread zero_d{82, 5};
inline constexpr Letter constant_p{87};
inline constexpr Unread reserved{88, 17};
inline constexpr std::size_t size = end_of(reserved);
static_assert(adjoin(type, timestamp, mpid, product_id, client_order_id, match_number, execution_id, zero_a, constant_e,
                     price, quantity, side, zero_b, constant_h, zero_c, liquidity, market, zero_d, constant_p,
                     reserved) &&
              size == 105);
}  // namespace execution

namespace order_cancelled {  // "XN"
inline constexpr Text mpid{10, mpid_size};
inline constexpr Text client_order_id{14, client_order_id_size};
inline constexpr Number<std::uint32_t> product_id{34};
inline constexpr Number<std::uint64_t> order_id{38};
inline constexpr Number<std::uint32_t> leaves{46};
inline constexpr Letter reason{50};
inline constexpr Unread zero{51, 12};
inline constexpr Text blanks{63, 2};
inline constexpr Unread reserved{65, 8};
inline constexpr std::size_t size = end_of(reserved);
static_assert(adjoin(type, timestamp, mpid, client_order_id, product_id, order_id, leaves, reason, zero, blanks,
                     reserved) &&
              size == 73);
}  // namespace order_cancelled

namespace replace_response {  // "MR"
inline constexpr Text mpid{10, mpid_size};
inline constexpr Text client_order_id{14, client_order_id_size};
inline constexpr Text orig_client_order_id{34, client_order_id_size};
inline constexpr Number<std::uint32_t> product_id{54};
inline constexpr Number<std::uint64_t> order_id{58};
inline constexpr Number<std::uint32_t> leaves{66};
inline constexpr Number<std::uint64_t> price{70};
inline constexpr Letter reason{78};
inline constexpr Unread reserved{79, 10};
inline constexpr std::size_t size = end_of(reserved);
static_assert(adjoin(type, timestamp, mpid, client_order_id, orig_client_order_id, product_id, order_id, leaves, price,
                     reason, reserved) &&
              size == 89);
}  // namespace replace_response

namespace replace_notification {  // "MN"
inline constexpr Text mpid{10, mpid_size};
inline constexpr Text client_order_id{14, client_order_id_size};
inline constexpr Text orig_client_order_id{34, client_order_id_size};
inline constexpr Number<std::uint32_t> product_id{54};
inline constexpr Number<std::uint64_t> order_id{58};
inline constexpr Number<std::uint64_t> price{66};
inline constexpr Number<std::uint32_t> quantity{74};
inline constexpr Number<std::uint32_t> leaves{78};
inline constexpr Letter echo{82};
inline constexpr Unread zero_a{83, 8};
inline constexpr Text blanks{91, 2};
inline constexpr Unread zero_b{93, 4};
inline constexpr Letter tif{97};
inline constexpr Unread reserved{98, 25};
inline constexpr std::size_t size = end_of(reserved);
static_assert(adjoin(type, timestamp, mpid, client_order_id, orig_client_order_id, product_id, order_id, price,
                     quantity, leaves, echo, zero_a, blanks, zero_b, tif, reserved) &&
              size == 123);
}  // namespace replace_notification

namespace cancel_response {  // "CR"
inline constexpr Text mpid{10, mpid_size};
inline constexpr Text client_order_id{14, client_order_id_size};
inline constexpr Text orig_client_order_id{34, client_order_id_size};
inline constexpr Number<std::uint32_t> product_id{54};
inline constexpr Number<std::uint64_t> order_id{58};
inline constexpr Unread zero{66, 4};
inline constexpr Letter reason{70};
inline constexpr Unread reserved{71, 10};
inline constexpr std::size_t size = end_of(reserved);
static_assert(adjoin(type, timestamp, mpid, client_order_id, orig_client_order_id, product_id, order_id, zero, reason,
                     reserved) &&
              size == 81);
}  // namespace cancel_response

namespace start_of_session {  // "SN"
inline constexpr Text version{10, 8};
inline constexpr Number<std::uint8_t> session{18};
inline constexpr Letter system_status{19};
inline constexpr Unread zero{20, 8};
inline constexpr std::size_t size = end_of(zero);
static_assert(adjoin(type, timestamp, version, session, system_status, zero) && size == 28);
}  // namespace start_of_session

namespace symbol_update {  // "SU"
inline constexpr Number<std::uint32_t> product_id{10};
inline constexpr Text symbol{14, 11};
inline constexpr Unread zero_a{25, 1};
inline constexpr Letter constant_n{26};
inline constexpr Unread zero_b{27, 1};
inline constexpr Number<std::uint32_t> constant_100{28};
inline constexpr Text opens{32, 8};
inline constexpr Text closes{40, 8};
inline constexpr Letter listing_market{48};
inline constexpr Unread zero_c{49, 12};
inline constexpr std::size_t size = end_of(zero_c);
static_assert(adjoin(type, timestamp, product_id, symbol, zero_a, constant_n, zero_b, constant_100, opens, closes,
                     listing_market, zero_c) &&
              size == 61);
}  // namespace symbol_update

}  // namespace layout

inline constexpr std::size_t longest_response = layout::order_accepted::size;

}  // namespace kavo::meo
