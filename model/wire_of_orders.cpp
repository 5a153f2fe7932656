// Order entry, as bytes.
#include <algorithm>

#include "model/books.h"
#include "model/fields.h"
#include "model/wire.h"

namespace kavo::model {
namespace {

std::string raw_text(const Bytes& message, std::size_t at, std::size_t width) {
    std::string text;
    for (std::size_t i = 0; i < width; ++i) text.push_back(static_cast<char>(message.at(at + i)));
    return text;
}

// A participant code ends with its last byte that is neither blank nor NUL; a NUL further in belongs to it.
std::string get_mpid(const Bytes& message, std::size_t at) {
    std::string text = raw_text(message, at, 4);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\0')) text.pop_back();
    return text;
}

// Every other text ends at its first NUL, and then loses its trailing blanks.
std::string get_text(const Bytes& message, std::size_t at, std::size_t width) {
    std::string text = raw_text(message, at, width);
    if (const std::size_t nul = text.find('\0'); nul != std::string::npos) text.resize(nul);
    while (!text.empty() && text.back() == ' ') text.pop_back();
    return text;
}

bool is_message(const Bytes& message, std::string_view type, std::size_t min_size) {
    return message.size() >= min_size && message[0] == static_cast<std::uint8_t>(type[0]) &&
           message[1] == static_cast<std::uint8_t>(type[1]);
}

Bytes answer(std::string_view type, std::size_t size, std::uint64_t now_ns) {
    Bytes message(size, 0);
    put_zero_filled(message, 0, 2, type);
    put(message, 2, 8, now_ns);
    return message;
}

char second_liquidity_letter(char listing) {
    if (listing == 'N' || listing == 'A') return 'A';
    return listing == 'Q' ? 'C' : 'B';
}

}  // namespace

std::optional<NewOrder> read_new_order(const Bytes& message) {
    if (!is_message(message, "N1", 131)) return std::nullopt;
    NewOrder request;
    request.mpid = get_mpid(message, 10);
    request.client_order_id = get_text(message, 14, 20);
    request.product_id = get32(message, 34);
    request.price = get(message, 38, 8);
    request.size = get32(message, 46);
    request.order_flags = static_cast<std::uint16_t>(get(message, 50, 2));
    request.tif = static_cast<char>(get8(message, 52));
    request.order_type = static_cast<char>(get8(message, 53));
    request.size_to_order_type.assign(message.begin() + 46, message.begin() + 54);
    request.echo_a = get32(message, 54);
    request.echo_b = get(message, 58, 8);
    request.echo_c = get8(message, 66);
    request.echo_text_a = get_text(message, 67, 16);
    request.echo_text_b = get_text(message, 83, 4);
    request.echo_d = get(message, 87, 8);
    request.echo_e = get32(message, 95);
    request.echo_f = get(message, 99, 8);
    request.echo_text_c = get_text(message, 107, 4);
    request.echo_g = get8(message, 111);
    request.expire_time = get(message, 112, 8);
    return request;
}

std::optional<Replace> read_replace(const Bytes& message) {
    if (!is_message(message, "M1", 111)) return std::nullopt;
    Replace request;
    request.mpid = get_mpid(message, 10);
    request.client_order_id = get_text(message, 14, 20);
    request.orig_client_order_id = get_text(message, 34, 20);
    request.field_h = get32(message, 54);
    request.price = get(message, 58, 8);
    request.size = get32(message, 66);
    request.field_i = get8(message, 70);
    request.tif = static_cast<char>(get8(message, 83));
    return request;
}

std::optional<Cancel> read_cancel(const Bytes& message) {
    if (!is_message(message, "CO", 68)) return std::nullopt;
    Cancel request;
    request.mpid = get_mpid(message, 10);
    request.client_order_id = get_text(message, 14, 20);
    request.orig_client_order_id = get_text(message, 34, 20);
    request.product_id = get32(message, 54);
    return request;
}

Bytes new_order_response(std::uint64_t now_ns, const NewOrder& request, std::uint64_t order_id, char reason) {
    Bytes message = answer("NR", 69, now_ns);
    put_blank_filled(message, 10, 4, request.mpid);
    put_zero_filled(message, 14, 20, request.client_order_id);
    put(message, 34, 4, request.product_id);
    put(message, 38, 8, order_id);
    put(message, 46, 8, request.price);
    put(message, 54, 4, request.size);
    put_char(message, 58, reason);
    return message;
}

Bytes order_accepted(std::uint64_t now_ns, const NewOrder& request, std::uint64_t order_id) {
    Bytes message = answer("O1", 139, now_ns);
    put_blank_filled(message, 10, 4, request.mpid);
    put(message, 14, 8, order_id);
    put_zero_filled(message, 22, 20, request.client_order_id);
    put(message, 42, 4, request.product_id);
    put(message, 46, 8, request.price);
    std::copy(request.size_to_order_type.begin(), request.size_to_order_type.end(), message.begin() + 54);
    put(message, 62, 4, request.echo_a);
    put(message, 66, 8, request.echo_b);
    put(message, 74, 1, request.echo_c);
    put_zero_filled(message, 75, 16, request.echo_text_a);
    put_zero_filled(message, 91, 4, request.echo_text_b);
    put(message, 95, 8, request.echo_d);
    put(message, 103, 4, request.echo_e);
    put(message, 107, 8, request.echo_f);
    put_zero_filled(message, 115, 4, request.echo_text_c);
    put(message, 119, 1, request.echo_g);
    put(message, 120, 1, request.echo_c);
    put(message, 121, 8, request.expire_time);
    return message;
}

Bytes order_resting(std::uint64_t now_ns, const Order& order, bool at_best) {
    Bytes message = answer("P1", 60, now_ns);
    put(message, 10, 4, order.product_id);
    put(message, 14, 8, order.id);
    put_zero_filled(message, 22, 20, order.client_order_id);
    put(message, 42, 8, wire_price(order.price));
    put_char(message, 50, at_best ? 'Y' : 'N');
    return message;
}

Bytes execution(std::uint64_t now_ns, const Order& order, char listing, const Fill& fill) {
    Bytes message = answer("E1", 105, now_ns);
    put_blank_filled(message, 10, 4, order.mpid);
    put(message, 14, 4, order.product_id);
    put_zero_filled(message, 18, 20, order.client_order_id);
    put(message, 38, 8, fill.match_number);
    put(message, 46, 8, fill.execution_id);
    put_char(message, 55, 'E');
    put(message, 56, 8, wire_price(fill.price));
    put(message, 64, 4, fill.quantity);
    put(message, 68, 2, order.buy ? 0 : 1);
    put_char(message, 71, 'H');
    put_char(message, 80, fill.liquidity);
    put_char(message, 81, second_liquidity_letter(listing));
    put_char(message, 87, 'P');
    return message;
}

Bytes order_cancelled(std::uint64_t now_ns, const Order& order, std::uint32_t leaves, char reason) {
    Bytes message = answer("XN", 73, now_ns);
    put_blank_filled(message, 10, 4, order.mpid);
    put_zero_filled(message, 14, 20, order.client_order_id);
    put(message, 34, 4, order.product_id);
    put(message, 38, 8, order.id);
    put(message, 46, 4, leaves);
    put_char(message, 50, reason);
    put_blank_filled(message, 63, 2, "");
    return message;
}

Bytes replace_response(std::uint64_t now_ns, const Replace& request, std::uint64_t order_id, std::uint32_t new_leaves,
                       char reason) {
    Bytes message = answer("MR", 89, now_ns);
    put_blank_filled(message, 10, 4, request.mpid);
    put_zero_filled(message, 14, 20, request.client_order_id);
    put_zero_filled(message, 34, 20, request.orig_client_order_id);
    put(message, 54, 4, request.field_h);
    put(message, 58, 8, order_id);
    put(message, 66, 4, new_leaves);
    put(message, 70, 8, request.price);
    put_char(message, 78, reason);
    return message;
}

Bytes replace_notice(std::uint64_t now_ns, const Replace& request, const Order& order, std::uint32_t new_leaves) {
    Bytes message = answer("MN", 123, now_ns);
    put_blank_filled(message, 10, 4, request.mpid);
    put_zero_filled(message, 14, 20, request.client_order_id);
    put_zero_filled(message, 34, 20, request.orig_client_order_id);
    put(message, 54, 4, order.product_id);
    put(message, 58, 8, order.id);
    put(message, 66, 8, request.price);
    put(message, 74, 4, request.size);
    put(message, 78, 4, new_leaves);
    put(message, 82, 1, request.field_i);
    put_blank_filled(message, 91, 2, "");
    put_char(message, 97, request.tif);
    return message;
}

Bytes cancel_response(std::uint64_t now_ns, const Cancel& request, std::uint64_t order_id, char reason) {
    Bytes message = answer("CR", 81, now_ns);
    put_blank_filled(message, 10, 4, request.mpid);
    put_zero_filled(message, 14, 20, request.client_order_id);
    put_zero_filled(message, 34, 20, request.orig_client_order_id);
    put(message, 54, 4, request.product_id);
    put(message, 58, 8, order_id);
    put_char(message, 70, reason);
    return message;
}

Bytes start_of_session_message(std::uint64_t now_ns, std::uint8_t session) {
    Bytes message = answer("SN", 28, now_ns);
    put_blank_filled(message, 10, 8, "MEO2.7");
    put(message, 18, 1, session);
    put_char(message, 19, 'S');
    return message;
}

Bytes symbol_update(std::uint64_t now_ns, const Product& product) {
    Bytes message = answer("SU", 61, now_ns);
    put(message, 10, 4, product.product_id);
    put_blank_filled(message, 14, 11, product.name);
    put_char(message, 26, 'N');
    put(message, 28, 4, 100);
    put_zero_filled(message, 32, 8, "04:00:00");
    put_zero_filled(message, 40, 8, "20:00:00");
    put_char(message, 48, product.listing);
    return message;
}

}  // namespace kavo::model
