#include "feed/dom_messages.h"

namespace kavo::dom {

namespace {

// What the receivers of a series have always been told; the meaning of these bytes is theirs.
constexpr std::uint8_t definition_constant_a = 0;
constexpr char definition_constant_b = 'N';
constexpr std::uint8_t definition_constant_c = 0;
constexpr std::uint16_t definition_constant_d = 100;
constexpr std::uint8_t status_constant_a = 2;
constexpr std::uint8_t status_constant_b = 3;
constexpr char status_constant_c = 'N';
constexpr char system_is_open = 'S';

void put_type(MutableBytes message, MessageType type) {
    put(message, layout::type, static_cast<std::uint8_t>(type));
}

}  // namespace

std::array<std::uint8_t, layout::system_time::size> build(const SystemTime& record) {
    std::array<std::uint8_t, layout::system_time::size> message{};
    put_type(message, MessageType::system_time);
    put(message, layout::system_time::seconds, record.seconds);
    return message;
}

std::array<std::uint8_t, layout::system_state::size> build(const SystemState& record) {
    namespace at = layout::system_state;
    std::array<std::uint8_t, at::size> message{};
    put_type(message, MessageType::system_state);
    put(message, layout::timestamp, record.timestamp);
    put_text(message, at::version, protocol_version, ' ');
    put(message, at::session, record.session);
    put(message, at::state, system_is_open);
    return message;
}

std::array<std::uint8_t, layout::series_definition::size> build(const SeriesDefinition& record) {
    namespace at = layout::series_definition;
    std::array<std::uint8_t, at::size> message{};
    put_type(message, MessageType::series_definition);
    put(message, layout::timestamp, record.timestamp);
    put(message, at::secid, record.secid);
    put_text(message, at::symbol, record.symbol, ' ');
    put(message, at::constant_a, definition_constant_a);
    put(message, at::constant_b, definition_constant_b);
    put(message, at::constant_c, definition_constant_c);
    put(message, at::constant_d, definition_constant_d);
    put_text(message, at::opens, opening_time, ' ');
    put_text(message, at::closes, closing_time, ' ');
    put(message, at::listing_market, record.listing_market);
    return message;
}

std::array<std::uint8_t, layout::series_open::size> build(const SeriesOpen& record) {
    std::array<std::uint8_t, layout::series_open::size> message{};
    put_type(message, MessageType::series_open);
    put(message, layout::timestamp, record.timestamp);
    put(message, layout::series_open::secid, record.secid);
    return message;
}

std::array<std::uint8_t, layout::series_trading_status::size> build(const SeriesTradingStatus& record) {
    namespace at = layout::series_trading_status;
    std::array<std::uint8_t, at::size> message{};
    put_type(message, MessageType::series_trading_status);
    put(message, layout::timestamp, record.timestamp);
    put(message, at::secid, record.secid);
    put(message, at::constant_a, status_constant_a);
    put(message, at::constant_b, status_constant_b);
    put(message, at::constant_c, status_constant_c);
    return message;
}

std::array<std::uint8_t, layout::add_order::size> build(const AddOrder& record) {
    namespace at = layout::add_order;
    std::array<std::uint8_t, at::size> message{};
    put_type(message, MessageType::add_order);
    put(message, layout::timestamp, record.timestamp);
    put(message, at::secid, record.secid);
    put(message, at::order_id, record.order_id);
    put(message, at::side, record.side);
    put(message, at::price, record.price);
    put(message, at::quantity, record.quantity);
    put_text(message, at::attribution, record.attribution, ' ');
    return message;
}

std::array<std::uint8_t, layout::modify_order::size> build(const ModifyOrder& record) {
    namespace at = layout::modify_order;
    std::array<std::uint8_t, at::size> message{};
    put_type(message, MessageType::modify_order);
    put(message, layout::timestamp, record.timestamp);
    put(message, at::secid, record.secid);
    put(message, at::order_id, record.order_id);
    put(message, at::price, record.price);
    put(message, at::quantity, record.quantity);
    put(message, at::flag, static_cast<std::uint8_t>(record.lost_priority));
    return message;
}

std::array<std::uint8_t, layout::delete_order::size> build(const DeleteOrder& record) {
    namespace at = layout::delete_order;
    std::array<std::uint8_t, at::size> message{};
    put_type(message, MessageType::delete_order);
    put(message, layout::timestamp, record.timestamp);
    put(message, at::secid, record.secid);
    put(message, at::order_id, record.order_id);
    return message;
}

std::array<std::uint8_t, layout::order_executed::size> build(const OrderExecuted& record) {
    namespace at = layout::order_executed;
    std::array<std::uint8_t, at::size> message{};
    put_type(message, MessageType::order_executed);
    put(message, layout::timestamp, record.timestamp);
    put(message, at::secid, record.secid);
    put(message, at::order_id, record.order_id);
    put(message, at::match_number, record.match_number);
    put(message, at::price, record.price);
    put(message, at::quantity, record.quantity);
    put(message, at::resting_sell, static_cast<std::uint8_t>(record.resting_sell));
    return message;
}

}  // namespace kavo::dom
