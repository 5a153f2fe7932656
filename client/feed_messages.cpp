#include "client/feed_messages.h"

namespace kavo::client {

namespace {

namespace layout = dom::layout;

bool is_message(ByteView message, dom::MessageType type, std::size_t size) {
    return message.size() == size && get(message, layout::type) == static_cast<std::uint8_t>(type);
}

}  // namespace

std::optional<FeedPacket> read_feed_packet(ByteView& datagram) {
    namespace at = mach::layout;
    if (datagram.size() < at::header_size) return std::nullopt;
    const mach::Header header{get(datagram, at::sequence), get(datagram, at::length),
                              static_cast<mach::PacketType>(get(datagram, at::type)), get(datagram, at::session)};
    if (header.length < at::header_size || header.length > datagram.size()) return std::nullopt;
    const FeedPacket packet{header, datagram.subspan(at::header_size, header.length - at::header_size)};
    datagram = datagram.subspan(header.length);
    return packet;
}

std::optional<dom::SystemTime> read_system_time(ByteView message) {
    namespace at = layout::system_time;
    if (!is_message(message, dom::MessageType::system_time, at::size)) return std::nullopt;
    return dom::SystemTime{get(message, at::seconds)};
}

std::optional<dom::SystemState> read_system_state(ByteView message) {
    namespace at = layout::system_state;
    if (!is_message(message, dom::MessageType::system_state, at::size)) return std::nullopt;
    return dom::SystemState{get(message, layout::timestamp), get(message, at::session)};
}

std::optional<dom::SeriesDefinition> read_series_definition(ByteView message) {
    namespace at = layout::series_definition;
    if (!is_message(message, dom::MessageType::series_definition, at::size)) return std::nullopt;
    return dom::SeriesDefinition{get(message, layout::timestamp), get(message, at::secid),
                                 padded_text(message, at::symbol), get(message, at::listing_market)};
}

std::optional<dom::SeriesOpen> read_series_open(ByteView message) {
    namespace at = layout::series_open;
    if (!is_message(message, dom::MessageType::series_open, at::size)) return std::nullopt;
    return dom::SeriesOpen{get(message, layout::timestamp), get(message, at::secid)};
}

std::optional<dom::SeriesTradingStatus> read_series_trading_status(ByteView message) {
    namespace at = layout::series_trading_status;
    if (!is_message(message, dom::MessageType::series_trading_status, at::size)) return std::nullopt;
    return dom::SeriesTradingStatus{get(message, layout::timestamp), get(message, at::secid)};
}

std::optional<dom::AddOrder> read_add_order(ByteView message) {
    namespace at = layout::add_order;
    if (!is_message(message, dom::MessageType::add_order, at::size)) return std::nullopt;
    return dom::AddOrder{get(message, layout::timestamp),
                         get(message, at::secid),
                         get(message, at::order_id),
                         get(message, at::side),
                         get(message, at::price),
                         get(message, at::quantity),
                         padded_text(message, at::attribution)};
}

std::optional<dom::ModifyOrder> read_modify_order(ByteView message) {
    namespace at = layout::modify_order;
    if (!is_message(message, dom::MessageType::modify_order, at::size)) return std::nullopt;
    return dom::ModifyOrder{get(message, layout::timestamp), get(message, at::secid),    get(message, at::order_id),
                            get(message, at::price),         get(message, at::quantity), get(message, at::flag) != 0};
}

std::optional<dom::DeleteOrder> read_delete_order(ByteView message) {
    namespace at = layout::delete_order;
    if (!is_message(message, dom::MessageType::delete_order, at::size)) return std::nullopt;
    return dom::DeleteOrder{get(message, layout::timestamp), get(message, at::secid), get(message, at::order_id)};
}

std::optional<dom::OrderExecuted> read_order_executed(ByteView message) {
    namespace at = layout::order_executed;
    if (!is_message(message, dom::MessageType::order_executed, at::size)) return std::nullopt;
    return dom::OrderExecuted{get(message, layout::timestamp),    get(message, at::secid), get(message, at::order_id),
                              get(message, at::match_number),     get(message, at::price), get(message, at::quantity),
                              get(message, at::resting_sell) != 0};
}

FeedMessage read_feed_message(ByteView message) {
    if (const auto m = read_system_time(message)) return *m;
    if (const auto m = read_system_state(message)) return *m;
    if (const auto m = read_series_definition(message)) return *m;
    if (const auto m = read_series_open(message)) return *m;
    if (const auto m = read_series_trading_status(message)) return *m;
    if (const auto m = read_add_order(message)) return *m;
    if (const auto m = read_modify_order(message)) return *m;
    if (const auto m = read_delete_order(message)) return *m;
    if (const auto m = read_order_executed(message)) return *m;
    return {};
}

}  // namespace kavo::client
