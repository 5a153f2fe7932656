#include "engine/meo.h"
#include "feed/dom_layout.h"

namespace kavo::meo {

namespace {

constexpr char system_is_open = 'S';

Message begin(std::string_view type, std::size_t size, std::uint64_t timestamp) {
    Message message(size);
    put_text(message.bytes(), layout::type, type, '\0');
    put(message.bytes(), layout::timestamp, timestamp);
    return message;
}

void put_id(MutableBytes message, Text field, const ClientOrderId& id) {
    put_text(message, field, id.view(), '\0');
}

void put_mpid(MutableBytes message, Text field, const Mpid& mpid) {
    put_text(message, field, mpid.view(), ' ');
}

void put_echo(MutableBytes message, const layout::Echo& at, const EchoFields& echo) {
    put(message, at.a, echo.a);
    put(message, at.b, echo.b);
    put(message, at.c, echo.c);
    put_text(message, at.text_a, echo.text_a, '\0');
    put_text(message, at.text_b, echo.text_b, '\0');
    put(message, at.d, echo.d);
    put(message, at.e, echo.e);
    put(message, at.f, echo.f);
    put_text(message, at.text_c, echo.text_c, '\0');
    put(message, at.g, echo.g);
}

char liquidity_market(char listing_market) {
    switch (listing_market) {
        case 'N':
        case 'A': return 'A';
        case 'Q': return 'C';
        default: return 'B';
    }
}

}  // namespace

Message build(const NewOrderResponse& record) {
    namespace at = layout::new_order_response;
    Message message = begin("NR", at::size, record.timestamp);
    const MutableBytes bytes = message.bytes();
    put_mpid(bytes, at::mpid, record.request.mpid);
    put_id(bytes, at::client_order_id, record.request.client_order_id);
    put(bytes, at::product_id, record.request.product_id);
    put(bytes, at::order_id, record.order_id);
    put(bytes, at::price, record.request.price);
    put(bytes, at::quantity, record.request.quantity);
    put(bytes, at::reason, static_cast<char>(record.reason));
    return message;
}

Message build(const OrderAccepted& record) {
    namespace at = layout::order_accepted;
    const NewOrderRequest& request = record.request;
    Message message = begin("O1", at::size, record.timestamp);
    const MutableBytes bytes = message.bytes();
    put_mpid(bytes, at::mpid, request.mpid);
    put(bytes, at::order_id, record.order_id);
    put_id(bytes, at::client_order_id, request.client_order_id);
    put(bytes, at::product_id, request.product_id);
    put(bytes, at::price, request.price);
    put(bytes, at::quantity, request.quantity);
    put(bytes, at::order_flags, request.flags.bits);
    put(bytes, at::tif, static_cast<char>(request.tif));
    put(bytes, at::order_type, static_cast<char>(request.order_type));
    put_echo(bytes, at::echo, request.echo);
    put(bytes, at::echo_c_again, request.echo.c);
    put(bytes, at::expire_time, request.expire_time);
    return message;
}

Message build(const OrderResting& record) {
    namespace at = layout::order_resting;
    Message message = begin("P1", at::size, record.timestamp);
    const MutableBytes bytes = message.bytes();
    put(bytes, at::product_id, record.product_id);
    put(bytes, at::order_id, record.order_id);
    put_id(bytes, at::client_order_id, record.client_order_id);
    put(bytes, at::price, to_wire(record.price));
    put(bytes, at::at_touch, record.at_touch ? 'Y' : 'N');
    return message;
}

Message build(const Execution& record) {
    namespace at = layout::execution;
    Message message = begin("E1", at::size, record.timestamp);
    const MutableBytes bytes = message.bytes();
    put_mpid(bytes, at::mpid, record.mpid);
    put(bytes, at::product_id, record.product_id);
    put_id(bytes, at::client_order_id, record.client_order_id);
    put(bytes, at::match_number, record.match_number);
    put(bytes, at::execution_id, record.execution_id);
    put(bytes, at::constant_e, 'E');
    put(bytes, at::price, to_wire(record.price));
    put(bytes, at::quantity, record.quantity);
    put(bytes, at::side, static_cast<std::uint16_t>(!record.buy));
    put(bytes, at::constant_h, 'H');
    put(bytes, at::liquidity, static_cast<char>(record.liquidity));
    put(bytes, at::market, liquidity_market(record.listing_market));
    put(bytes, at::constant_p, 'P');
    return message;
}

Message build(const OrderCancelled& record) {
    namespace at = layout::order_cancelled;
    Message message = begin("XN", at::size, record.timestamp);
    const MutableBytes bytes = message.bytes();
    put_mpid(bytes, at::mpid, record.mpid);
    put_id(bytes, at::client_order_id, record.client_order_id);
    put(bytes, at::product_id, record.product_id);
    put(bytes, at::order_id, record.order_id);
    put(bytes, at::leaves, record.leaves);
    put(bytes, at::reason, static_cast<char>(record.reason));
    put_text(bytes, at::blanks, "", ' ');
    return message;
}

Message build(const ReplaceResponse& record) {
    namespace at = layout::replace_response;
    Message message = begin("MR", at::size, record.timestamp);
    const MutableBytes bytes = message.bytes();
    put_mpid(bytes, at::mpid, record.request.mpid);
    put_id(bytes, at::client_order_id, record.request.client_order_id);
    put_id(bytes, at::orig_client_order_id, record.request.orig_client_order_id);
    put(bytes, at::product_id, record.request.product_id);
    put(bytes, at::order_id, record.order_id);
    put(bytes, at::leaves, record.leaves);
    put(bytes, at::price, record.request.price);
    put(bytes, at::reason, static_cast<char>(record.reason));
    return message;
}

Message build(const ReplaceNotification& record) {
    namespace at = layout::replace_notification;
    Message message = begin("MN", at::size, record.timestamp);
    const MutableBytes bytes = message.bytes();
    put_mpid(bytes, at::mpid, record.request.mpid);
    put_id(bytes, at::client_order_id, record.request.client_order_id);
    put_id(bytes, at::orig_client_order_id, record.request.orig_client_order_id);
    put(bytes, at::product_id, record.product_id);
    put(bytes, at::order_id, record.order_id);
    put(bytes, at::price, record.request.price);
    put(bytes, at::quantity, record.request.quantity);
    put(bytes, at::leaves, record.leaves);
    put(bytes, at::echo, record.request.echo);
    put_text(bytes, at::blanks, "", ' ');
    put(bytes, at::tif, static_cast<char>(record.request.tif));
    return message;
}

Message build(const CancelResponse& record) {
    namespace at = layout::cancel_response;
    Message message = begin("CR", at::size, record.timestamp);
    const MutableBytes bytes = message.bytes();
    put_mpid(bytes, at::mpid, record.request.mpid);
    put_id(bytes, at::client_order_id, record.request.client_order_id);
    put_id(bytes, at::orig_client_order_id, record.request.orig_client_order_id);
    put(bytes, at::product_id, record.request.product_id);
    put(bytes, at::order_id, record.order_id);
    put(bytes, at::reason, static_cast<char>(record.reason));
    return message;
}

Message build(const StartOfSession& record) {
    namespace at = layout::start_of_session;
    Message message = begin("SN", at::size, record.timestamp);
    const MutableBytes bytes = message.bytes();
    put_text(bytes, at::version, protocol_version, ' ');
    put(bytes, at::session, record.session);
    put(bytes, at::system_status, system_is_open);
    return message;
}

Message build(const SymbolUpdate& record) {
    namespace at = layout::symbol_update;
    Message message = begin("SU", at::size, record.timestamp);
    const MutableBytes bytes = message.bytes();
    put(bytes, at::product_id, record.product_id);
    put_text(bytes, at::symbol, record.symbol, ' ');
    put(bytes, at::constant_n, 'N');
    put(bytes, at::constant_100, std::uint32_t{100});
    put_text(bytes, at::opens, dom::opening_time, ' ');
    put_text(bytes, at::closes, dom::closing_time, ' ');
    put(bytes, at::listing_market, record.listing_market);
    return message;
}

}  // namespace kavo::meo
