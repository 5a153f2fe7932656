#include "engine/meo.h"

namespace kavo::meo {

namespace {

bool is_message(ByteView message, std::string_view type, std::size_t min_size) {
    return message.size() >= min_size && as_text(message.first(layout::type.size)) == type;
}

Mpid get_mpid(ByteView message, Text field) {
    return Mpid(padded_text(message, field));
}

ClientOrderId get_client_order_id(ByteView message, Text field) {
    return ClientOrderId(terminated_text(message, field));
}

}  // namespace

EchoFields read_echo(ByteView message, const layout::Echo& at) {
    return {get(message, at.a),
            get(message, at.b),
            get(message, at.c),
            terminated_text(message, at.text_a),
            terminated_text(message, at.text_b),
            get(message, at.d),
            get(message, at.e),
            get(message, at.f),
            terminated_text(message, at.text_c),
            get(message, at.g)};
}

// Each record is made in its place at the caller's, and filled there: an order is never copied on its way to the
// engine.

std::optional<NewOrderRequest> read_new_order(ByteView message) {
    namespace at = layout::new_order;
    std::optional<NewOrderRequest> read;
    if (!is_message(message, "N1", at::min_size)) return read;
    NewOrderRequest& request = read.emplace();
    request.mpid = get_mpid(message, at::mpid);
    request.client_order_id = get_client_order_id(message, at::client_order_id);
    request.product_id = get(message, at::product_id);
    request.price = get(message, at::price);
    request.quantity = get(message, at::quantity);
    request.flags = {get(message, at::order_flags)};
    request.tif = static_cast<TimeInForce>(get(message, at::tif));
    request.order_type = static_cast<OrderType>(get(message, at::order_type));
    request.echo = read_echo(message, at::echo);
    request.expire_time = get(message, at::expire_time);
    return read;
}

std::optional<ReplaceRequest> read_replace(ByteView message) {
    namespace at = layout::replace;
    std::optional<ReplaceRequest> read;
    if (!is_message(message, "M1", at::min_size)) return read;
    ReplaceRequest& request = read.emplace();
    request.mpid = get_mpid(message, at::mpid);
    request.client_order_id = get_client_order_id(message, at::client_order_id);
    request.orig_client_order_id = get_client_order_id(message, at::orig_client_order_id);
    request.product_id = get(message, at::product_id);
    request.price = get(message, at::price);
    request.quantity = get(message, at::quantity);
    request.echo = get(message, at::echo);
    request.tif = static_cast<TimeInForce>(get(message, at::tif));
    return read;
}

std::optional<CancelRequest> read_cancel(ByteView message) {
    namespace at = layout::cancel;
    std::optional<CancelRequest> read;
    if (!is_message(message, "CO", at::min_size)) return read;
    CancelRequest& request = read.emplace();
    request.mpid = get_mpid(message, at::mpid);
    request.client_order_id = get_client_order_id(message, at::client_order_id);
    request.orig_client_order_id = get_client_order_id(message, at::orig_client_order_id);
    request.product_id = get(message, at::product_id);
    return read;
}

}  // namespace kavo::meo
