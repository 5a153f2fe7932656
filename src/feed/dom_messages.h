// The messages of the depth-of-market feed as plain records, and built into bytes.
#pragma once

#include <array>
#include <string_view>

#include "common/price.h"
#include "feed/dom_layout.h"

namespace kavo::dom {

// Prices are millionths, quantities shares, timestamps nanoseconds within the wall-clock second. A text in a record is
// lent: by whoever builds from it, or by the message that it was read from.

struct SystemTime {
    std::uint32_t seconds = 0;  // since the Unix epoch
};
struct SystemState {
    std::uint32_t timestamp = 0;
    std::uint8_t session = 0;
};
struct SeriesDefinition {
    std::uint32_t timestamp = 0;
    std::uint32_t secid = 0;
    std::string_view symbol;  // cut at 11 characters
    char listing_market = ' ';
};
struct SeriesOpen {
    std::uint32_t timestamp = 0;
    std::uint32_t secid = 0;
};
struct SeriesTradingStatus {
    std::uint32_t timestamp = 0;
    std::uint32_t secid = 0;
};
struct AddOrder {
    std::uint32_t timestamp = 0;
    std::uint32_t secid = 0;
    std::uint64_t order_id = 0;
    char side = 'B';  // 'B' or 'S'
    WirePrice price = 0;
    std::uint32_t quantity = 0;
    std::string_view attribution;  // cut at 4 characters; empty is four blanks
};
struct ModifyOrder {
    std::uint32_t timestamp = 0;
    std::uint32_t secid = 0;
    std::uint64_t order_id = 0;
    WirePrice price = 0;
    std::uint32_t quantity = 0;  // what rests now
    bool lost_priority = false;  // true for a client's replace that lost it, false for everything else
};
struct DeleteOrder {
    std::uint32_t timestamp = 0;
    std::uint32_t secid = 0;
    std::uint64_t order_id = 0;
};
struct OrderExecuted {
    std::uint32_t timestamp = 0;
    std::uint32_t secid = 0;
    std::uint64_t order_id = 0;  // of the resting order
    std::uint64_t match_number = 0;
    WirePrice price = 0;
    std::uint32_t quantity = 0;
    bool resting_sell = false;
};

std::array<std::uint8_t, layout::system_time::size> build(const SystemTime& record);
std::array<std::uint8_t, layout::system_state::size> build(const SystemState& record);
std::array<std::uint8_t, layout::series_definition::size> build(const SeriesDefinition& record);
std::array<std::uint8_t, layout::series_open::size> build(const SeriesOpen& record);
std::array<std::uint8_t, layout::series_trading_status::size> build(const SeriesTradingStatus& record);
std::array<std::uint8_t, layout::add_order::size> build(const AddOrder& record);
std::array<std::uint8_t, layout::modify_order::size> build(const ModifyOrder& record);
std::array<std::uint8_t, layout::delete_order::size> build(const DeleteOrder& record);
std::array<std::uint8_t, layout::order_executed::size> build(const OrderExecuted& record);

}  // namespace kavo::dom
