#include "engine/order_truth.h"

#include "common/text.h"

namespace kavo {

namespace {

void append_text(std::string& line, std::string_view key, std::string_view value) {
    line.append(",\"").append(key).append("\":\"").append(value).append("\"");
}

void append_value(std::string& line, std::string_view key, std::uint64_t value) {
    line.append(",\"").append(key).append("\":");
    append_number(line, value);
}

}  // namespace

OrderEvent event_of(std::string_view event, const Order& order, const Product& product, std::uint64_t now_ns) {
    return {.event = event,
            .timestamp = now_ns,
            .client_order_id = order.client_order_id.view(),
            .order_id = order.id,
            .symbol = product.symbol,
            .side = order.side(),
            .quantity = order.original_size,
            .price = order.price,
            .executed = order.executed};
}

void OrderTruth::write(const OrderEvent& event) {
    if (!log.is_on()) return;
    line_ = "{\"t\":";
    append_number(line_, event.timestamp);
    append_text(line_, "ev", event.event);
    append_text(line_, "cl", event.client_order_id);
    append_value(line_, "oid", event.order_id);
    append_text(line_, "symbol", event.symbol);
    append_text(line_, "side", {&event.side, 1});
    append_value(line_, "qty", event.quantity);
    line_ += ",\"px\":";
    append_short_price(line_, event.price);
    append_value(line_, "cum", event.executed);
    append_value(line_, "leaves", event.leaves);
    append_value(line_, "last_qty", event.last_quantity);
    append_text(line_, "text", event.text);
    if (!event.reference.empty()) append_text(line_, "ref", event.reference);
    line_ += "}\n";
    log.write(line_);
    log.flush();
}

}  // namespace kavo
