#include "client/responses.h"

namespace kavo::client {

namespace {

namespace layout = meo::layout;

bool is_message(ByteView message, std::string_view type, std::size_t size) {
    return message.size() == size && as_text(message.first(layout::type.size)) == type;
}

}  // namespace

std::optional<NewOrderResponse> read_new_order_response(ByteView message) {
    namespace at = layout::new_order_response;
    if (!is_message(message, "NR", at::size)) return std::nullopt;
    NewOrderResponse read;
    read.timestamp = get(message, layout::timestamp);
    read.mpid = padded_text(message, at::mpid);
    read.client_order_id = terminated_text(message, at::client_order_id);
    read.product_id = get(message, at::product_id);
    read.order_id = get(message, at::order_id);
    read.price = get(message, at::price);
    read.quantity = get(message, at::quantity);
    read.reason = static_cast<meo::NewOrderReason>(get(message, at::reason));
    return read;
}

std::optional<OrderAccepted> read_order_accepted(ByteView message) {
    namespace at = layout::order_accepted;
    if (!is_message(message, "O1", at::size)) return std::nullopt;
    OrderAccepted read;
    read.timestamp = get(message, layout::timestamp);
    read.mpid = padded_text(message, at::mpid);
    read.order_id = get(message, at::order_id);
    read.client_order_id = terminated_text(message, at::client_order_id);
    read.product_id = get(message, at::product_id);
    read.price = get(message, at::price);
    read.quantity = get(message, at::quantity);
    read.flags = {get(message, at::order_flags)};
    read.tif = static_cast<meo::TimeInForce>(get(message, at::tif));
    read.order_type = static_cast<meo::OrderType>(get(message, at::order_type));
    read.echo = meo::read_echo(message, at::echo);
    read.expire_time = get(message, at::expire_time);
    return read;
}

std::optional<OrderResting> read_order_resting(ByteView message) {
    namespace at = layout::order_resting;
    if (!is_message(message, "P1", at::size)) return std::nullopt;
    OrderResting read;
    read.timestamp = get(message, layout::timestamp);
    read.product_id = get(message, at::product_id);
    read.order_id = get(message, at::order_id);
    read.client_order_id = terminated_text(message, at::client_order_id);
    read.price = get(message, at::price);
    read.at_touch = get(message, at::at_touch) == 'Y';
    return read;
}

std::optional<Execution> read_execution(ByteView message) {
    namespace at = layout::execution;
    if (!is_message(message, "E1", at::size)) return std::nullopt;
    Execution read;
    read.timestamp = get(message, layout::timestamp);
    read.mpid = padded_text(message, at::mpid);
    read.product_id = get(message, at::product_id);
    read.client_order_id = terminated_text(message, at::client_order_id);
    read.match_number = get(message, at::match_number);
    read.execution_id = get(message, at::execution_id);
    read.price = get(message, at::price);
    read.quantity = get(message, at::quantity);
    read.buy = get(message, at::side) == 0;
    read.liquidity = static_cast<meo::Liquidity>(get(message, at::liquidity));
    read.market = get(message, at::market);
    return read;
}

std::optional<OrderCancelled> read_order_cancelled(ByteView message) {
    namespace at = layout::order_cancelled;
    if (!is_message(message, "XN", at::size)) return std::nullopt;
    OrderCancelled read;
    read.timestamp = get(message, layout::timestamp);
    read.mpid = padded_text(message, at::mpid);
    read.client_order_id = terminated_text(message, at::client_order_id);
    read.product_id = get(message, at::product_id);
    read.order_id = get(message, at::order_id);
    read.leaves = get(message, at::leaves);
    read.reason = static_cast<meo::SystemCancelReason>(get(message, at::reason));
    return read;
}

std::optional<ReplaceResponse> read_replace_response(ByteView message) {
    namespace at = layout::replace_response;
    if (!is_message(message, "MR", at::size)) return std::nullopt;
    ReplaceResponse read;
    read.timestamp = get(message, layout::timestamp);
    read.mpid = padded_text(message, at::mpid);
    read.client_order_id = terminated_text(message, at::client_order_id);
    read.orig_client_order_id = terminated_text(message, at::orig_client_order_id);
    read.product_id = get(message, at::product_id);
    read.order_id = get(message, at::order_id);
    read.leaves = get(message, at::leaves);
    read.price = get(message, at::price);
    read.reason = static_cast<meo::ReplaceReason>(get(message, at::reason));
    return read;
}

std::optional<ReplaceNotification> read_replace_notification(ByteView message) {
    namespace at = layout::replace_notification;
    if (!is_message(message, "MN", at::size)) return std::nullopt;
    ReplaceNotification read;
    read.timestamp = get(message, layout::timestamp);
    read.mpid = padded_text(message, at::mpid);
    read.client_order_id = terminated_text(message, at::client_order_id);
    read.orig_client_order_id = terminated_text(message, at::orig_client_order_id);
    read.product_id = get(message, at::product_id);
    read.order_id = get(message, at::order_id);
    read.price = get(message, at::price);
    read.quantity = get(message, at::quantity);
    read.leaves = get(message, at::leaves);
    read.echo = get(message, at::echo);
    read.tif = static_cast<meo::TimeInForce>(get(message, at::tif));
    return read;
}

std::optional<CancelResponse> read_cancel_response(ByteView message) {
    namespace at = layout::cancel_response;
    if (!is_message(message, "CR", at::size)) return std::nullopt;
    CancelResponse read;
    read.timestamp = get(message, layout::timestamp);
    read.mpid = padded_text(message, at::mpid);
    read.client_order_id = terminated_text(message, at::client_order_id);
    read.orig_client_order_id = terminated_text(message, at::orig_client_order_id);
    read.product_id = get(message, at::product_id);
    read.order_id = get(message, at::order_id);
    read.reason = static_cast<meo::CancelReason>(get(message, at::reason));
    return read;
}

std::optional<StartOfSession> read_start_of_session(ByteView message) {
    namespace at = layout::start_of_session;
    if (!is_message(message, "SN", at::size)) return std::nullopt;
    StartOfSession read;
    read.timestamp = get(message, layout::timestamp);
    read.version = padded_text(message, at::version);
    read.session = get(message, at::session);
    return read;
}

std::optional<SymbolUpdate> read_symbol_update(ByteView message) {
    namespace at = layout::symbol_update;
    if (!is_message(message, "SU", at::size)) return std::nullopt;
    SymbolUpdate read;
    read.timestamp = get(message, layout::timestamp);
    read.product_id = get(message, at::product_id);
    read.symbol = padded_text(message, at::symbol);
    read.listing_market = get(message, at::listing_market);
    return read;
}

}  // namespace kavo::client
