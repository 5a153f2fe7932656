// The feed, as bytes; and any message, as text.
#include "model/books.h"
#include "model/fields.h"
#include "model/wire.h"

namespace kavo::model {
namespace {

constexpr std::uint64_t nanoseconds_in_a_second = 1'000'000'000;

Bytes feed_message(std::uint8_t type, std::size_t size, std::uint64_t now_ns) {
    Bytes message(size, 0);
    message[0] = type;
    put(message, 1, 4, now_ns % nanoseconds_in_a_second);
    return message;
}

std::string attribution(const Order& order) {
    const int bits = (order.order_flags >> 8) & 3;
    if (bits == 1) return order.mpid;
    return bits == 2 ? "RTAL" : "";
}

}  // namespace

// The one feed message whose time is the second itself.
Bytes system_time(std::uint64_t now_ns) {
    Bytes message(5, 0);
    put_char(message, 0, '1');
    put(message, 1, 4, now_ns / nanoseconds_in_a_second);
    return message;
}

Bytes system_state(std::uint64_t now_ns, std::uint8_t session) {
    Bytes message = feed_message('S', 15, now_ns);
    put_blank_filled(message, 5, 8, "DoM1.3");
    put(message, 13, 1, session);
    put_char(message, 14, 'S');
    return message;
}

Bytes series_definition(std::uint64_t now_ns, const Product& product) {
    Bytes message = feed_message(0x01, 42, now_ns);
    put(message, 5, 4, product.product_id);
    put_blank_filled(message, 9, 11, product.name);
    put_char(message, 21, 'N');
    put(message, 23, 2, 100);
    put_blank_filled(message, 25, 8, "04:00:00");
    put_blank_filled(message, 33, 8, "20:00:00");
    put_char(message, 41, product.listing);
    return message;
}

Bytes series_open(std::uint64_t now_ns, const Product& product) {
    Bytes message = feed_message(0x05, 9, now_ns);
    put(message, 5, 4, product.product_id);
    return message;
}

Bytes series_status(std::uint64_t now_ns, const Product& product) {
    Bytes message = feed_message(0x04, 12, now_ns);
    put(message, 5, 4, product.product_id);
    put(message, 9, 1, 2);
    put(message, 10, 1, 3);
    put_char(message, 11, 'N');
    return message;
}

Bytes add_order(std::uint64_t now_ns, const Order& order) {
    Bytes message = feed_message(0x14, 34, now_ns);
    put(message, 5, 4, order.product_id);
    put(message, 9, 8, order.id);
    put_char(message, 17, order.buy ? 'B' : 'S');
    put(message, 18, 8, wire_price(order.price));
    put(message, 26, 4, order.leaves);
    put_blank_filled(message, 30, 4, attribution(order));
    return message;
}

Order read_add_order(const Bytes& message) {
    Order order;
    order.product_id = get32(message, 5);
    order.id = get(message, 9, 8);
    order.buy = message.at(17) == 'B';
    order.price = book_price(get(message, 18, 8));
    order.leaves = get32(message, 26);
    return order;
}

Bytes modify_order(std::uint64_t now_ns, const Order& order, bool lost_priority) {
    Bytes message = feed_message(0x15, 30, now_ns);
    put(message, 5, 4, order.product_id);
    put(message, 9, 8, order.id);
    put(message, 17, 8, wire_price(order.price));
    put(message, 25, 4, order.leaves);
    put(message, 29, 1, lost_priority ? 1 : 0);
    return message;
}

Bytes delete_order(std::uint64_t now_ns, const Order& order) {
    Bytes message = feed_message(0x17, 17, now_ns);
    put(message, 5, 4, order.product_id);
    put(message, 9, 8, order.id);
    return message;
}

Bytes order_executed(std::uint64_t now_ns, const Order& order, const Fill& fill) {
    Bytes message = feed_message(0x18, 38, now_ns);
    put(message, 5, 4, order.product_id);
    put(message, 9, 8, order.id);
    put(message, 17, 8, fill.match_number);
    put(message, 25, 8, wire_price(fill.price));
    put(message, 33, 4, fill.quantity);
    put(message, 37, 1, order.buy ? 0 : 1);
    return message;
}

std::string hex(const Bytes& message) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    std::string clear;
    for (const std::uint8_t byte : message) {
        text += digits[byte >> 4];
        text += digits[byte & 15];
        clear += byte >= 0x20 && byte < 0x7f ? static_cast<char>(byte) : '.';
    }
    return text + " " + clear;
}

}  // namespace kavo::model
