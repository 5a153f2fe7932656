// Every message of the depth-of-market feed, "DoM1.3", as a table of named offsets. Builders and readers share these.
//
// Byte 0 is the type: small numbers and ASCII characters mixed, deliberately. Almost every message carries at offset 1
// the nanoseconds within the current wall-clock second; the seconds themselves travel in System Time.
#pragma once

#include "common/bytes.h"

namespace kavo::dom {

inline constexpr std::string_view protocol_version = "DoM1.3";
inline constexpr std::string_view opening_time = "04:00:00";  // fixed: they do not follow the clock
inline constexpr std::string_view closing_time = "20:00:00";

enum class MessageType : std::uint8_t {
    system_time = '1',
    system_state = 'S',
    series_definition = 0x01,
    series_trading_status = 0x04,
    series_open = 0x05,
    add_order = 0x14,
    modify_order = 0x15,
    delete_order = 0x17,
    order_executed = 0x18,
};

namespace layout {

inline constexpr Number<std::uint8_t> type{0};
inline constexpr Number<std::uint32_t> timestamp{1};  // of all but System Time

namespace system_time {
inline constexpr Number<std::uint32_t> seconds{1};
inline constexpr std::size_t size = end_of(seconds);
static_assert(adjoin(type, seconds) && size == 5);
}  // namespace system_time

namespace system_state {
inline constexpr Text version{5, 8};
inline constexpr Number<std::uint8_t> session{13};
inline constexpr Letter state{14};
inline constexpr std::size_t size = end_of(state);
static_assert(adjoin(type, timestamp, version, session, state) && size == 15);
}  // namespace system_state

namespace series_definition {
inline constexpr Number<std::uint32_t> secid{5};
inline constexpr Text symbol{9, 11};
inline constexpr Number<std::uint8_t> constant_a{20};
inline constexpr Letter constant_b{21};
inline constexpr Number<std::uint8_t> constant_c{22};
inline constexpr Number<std::uint16_t> constant_d{23};
inline constexpr Text opens{25, 8};
inline constexpr Text closes{33, 8};
inline constexpr Letter listing_market{41};
inline constexpr std::size_t size = end_of(listing_market);
static_assert(adjoin(type, timestamp, secid, symbol, constant_a, constant_b, constant_c, constant_d, opens, closes,
                     listing_market) &&
              size == 42);
}  // namespace series_definition

namespace series_open {
inline constexpr Number<std::uint32_t> secid{5};
inline constexpr std::size_t size = end_of(secid);
static_assert(adjoin(type, timestamp, secid) && size == 9);
}  // namespace series_open

namespace series_trading_status {
inline constexpr Number<std::uint32_t> secid{5};
inline constexpr Number<std::uint8_t> constant_a{9};
inline constexpr Number<std::uint8_t> constant_b{10};
inline constexpr Letter constant_c{11};
inline constexpr std::size_t size = end_of(constant_c);
static_assert(adjoin(type, timestamp, secid, constant_a, constant_b, constant_c) && size == 12);
}  // namespace series_trading_status

namespace add_order {
inline constexpr Number<std::uint32_t> secid{5};
inline constexpr Number<std::uint64_t> order_id{9};
inline constexpr Letter side{17};
inline constexpr Number<std::uint64_t> price{18};
inline constexpr Number<std::uint32_t> quantity{26};
inline constexpr Text attribution{30, 4};
inline constexpr std::size_t size = end_of(attribution);
static_assert(adjoin(type, timestamp, secid, order_id, side, price, quantity, attribution) && size == 34);
}  // namespace add_order

namespace modify_order {
inline constexpr Number<std::uint32_t> secid{5};
inline constexpr Number<std::uint64_t> order_id{9};
inline constexpr Number<std::uint64_t> price{17};
inline constexpr Number<std::uint32_t> quantity{25};
inline constexpr Number<std::uint8_t> flag{29};
inline constexpr std::size_t size = end_of(flag);
static_assert(adjoin(type, timestamp, secid, order_id, price, quantity, flag) && size == 30);
}  // namespace modify_order

namespace delete_order {
inline constexpr Number<std::uint32_t> secid{5};
inline constexpr Number<std::uint64_t> order_id{9};
inline constexpr std::size_t size = end_of(order_id);
static_assert(adjoin(type, timestamp, secid, order_id) && size == 17);
}  // namespace delete_order

namespace order_executed {
inline constexpr Number<std::uint32_t> secid{5};
inline constexpr Number<std::uint64_t> order_id{9};
inline constexpr Number<std::uint64_t> match_number{17};
inline constexpr Number<std::uint64_t> price{25};
inline constexpr Number<std::uint32_t> quantity{33};
inline constexpr Number<std::uint8_t> resting_sell{37};
inline constexpr std::size_t size = end_of(resting_sell);
static_assert(adjoin(type, timestamp, secid, order_id, match_number, price, quantity, resting_sell) && size == 38);
}  // namespace order_executed

}  // namespace layout
}  // namespace kavo::dom
