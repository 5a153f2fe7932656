// What really happened to every order, one JSON line for each event, for a test to hold a client's view against.
#include "common/text.h"
#include "engine/engine.h"

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

// An event with everything that the order itself says about it, but its leaves.
OrderEvent Engine::event_of(std::string_view event, const Order& order, std::uint64_t now_ns) const {
    return {.event = event,
            .timestamp = now_ns,
            .client_order_id = order.client_order_id.view(),
            .order_id = order.id,
            .symbol = product_of(order).symbol,
            .side = order.side(),
            .quantity = order.original_size,
            .price = order.price,
            .executed = order.executed};
}

// Texts are written as they are: what a client put into its ids is what the test will look for. Each line is flushed,
// so that the log tells all even when the process is killed.
void Engine::write_order_truth(const OrderEvent& event) {
    std::ofstream& log = bench_.order_truth;
    if (!log.is_open() || !log.good()) return;
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
    log.write(line_.data(), static_cast<std::streamsize>(line_.size()));
    log.flush();
}

}  // namespace kavo
