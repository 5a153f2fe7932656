#include "model/books.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>

#include "model/fields.h"
#include "model/wire.h"

namespace kavo::model {
namespace {

constexpr std::size_t levels_in_a_change_line = 10;
constexpr std::size_t levels_in_a_snapshot = 5;

// Always with four decimals.
std::string long_price(std::uint32_t price) {
    return std::to_string(price / 10'000) + "." + std::to_string(10'000 + price % 10'000).substr(1);
}

}  // namespace

std::string short_price(std::uint32_t price) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", price / 10'000.0);
    return text;
}

Books::Books(const std::vector<Symbol>& symbols) {
    for (const Symbol& symbol : symbols) {
        Product& added = products.emplace_back();
        added.name = symbol.name;
        added.product_id = static_cast<std::uint32_t>(products.size());
        added.listing = symbol.name == "SPY" ? 'P' : 'Q';
        added.reference = symbol.reference;
    }
}

void Books::put_on_level(const Order& order) {
    product(order.product_id).side(order.buy)[order.price].push_back(order.id);
}

void Books::take_off_level(const Order& order) {
    Side& side = product(order.product_id).side(order.buy);
    Queue& queue = side.at(order.price);
    queue.erase(std::find(queue.begin(), queue.end(), order.id));
    if (queue.empty()) side.erase(order.price);
}

void Books::add(const Order& order) {
    if (order.leaves == 0) throw std::runtime_error("an order added with nothing left");
    if (!resting.emplace(order.id, order).second) throw std::runtime_error("an order added twice");
    put_on_level(order);
}

void Books::remove(std::uint64_t id) {
    take_off_level(resting.at(id));
    resting.erase(id);
}

void Books::trade(std::uint64_t id, std::uint32_t quantity) {
    Order& order = resting.at(id);
    if (quantity == 0 || quantity > order.leaves) throw std::runtime_error("more executed than was there");
    product(order.product_id).last = order.price;
    product(order.product_id).volume += quantity;
    order.fill(quantity);
    if (order.leaves == 0) remove(id);
}

// A Replace moves the order to the back of its level whether or not it says that priority was kept: that is how the
// venue queues, and the flag does not tell otherwise.
void Books::follow(const Bytes& message) {
    const std::uint8_t type = message.at(0);
    if (type == 0x14) return add(read_add_order(message));
    if (type != 0x15 && type != 0x17 && type != 0x18) return;
    Order order = resting.at(get(message, 9, 8));
    if (order.product_id != get32(message, 5)) throw std::runtime_error("a message of another product");
    if (type == 0x18) return trade(order.id, get32(message, 33));
    remove(order.id);
    if (type == 0x17) return;
    order.price = book_price(get(message, 17, 8));
    order.leaves = get32(message, 25);
    add(order);
}

// A best level at price 0, which only a wrapped price can make, trades with nobody.
bool Books::crosses(std::uint32_t product_id, bool buy, std::uint32_t limit) const {
    const Side& opposite = product(product_id).side(!buy);
    if (opposite.empty() || opposite.begin()->first == 0) return false;
    if (limit == 0) return true;
    return buy ? opposite.begin()->first <= limit : opposite.begin()->first >= limit;
}

std::uint64_t Books::within(std::uint32_t product_id, bool buy, std::uint32_t limit) const {
    std::uint64_t sum = 0;
    for (const Level& level : levels(product_id, !buy)) {
        if (limit != 0 && (buy ? level.price > limit : level.price < limit)) break;
        sum += level.total;
    }
    return sum;
}

std::vector<Level> Books::levels(std::uint32_t product_id, bool buy, std::size_t most) const {
    std::vector<Level> levels;
    for (const auto& [price, queue] : product(product_id).side(buy)) {
        if (levels.size() == most) break;
        levels.push_back({price, 0});
        for (const std::uint64_t id : queue) levels.back().total += resting.at(id).leaves;
    }
    return levels;
}

std::vector<Order> Books::resting_orders() const {
    std::vector<Order> orders;
    for (const Product& product : products) {
        for (const Side* side : {&product.bids, &product.asks}) {
            for (const auto& [price, queue] : *side) {
                for (const std::uint64_t id : queue) orders.push_back(resting.at(id));
            }
        }
    }
    return orders;
}

// "[[189.99,300],[189.98,100]]"
std::string Books::levels_text(std::uint32_t product_id, bool buy, std::size_t most,
                               std::string (*price_text)(std::uint32_t price)) const {
    std::string text = "[";
    for (const Level& level : levels(product_id, buy, most)) {
        text += (text.size() > 1 ? ",[" : "[") + price_text(level.price) + "," + std::to_string(level.total) + "]";
    }
    return text + "]";
}

std::string Books::change_line(std::uint64_t number, std::uint32_t product_id) const {
    return "{\"seq\":" + std::to_string(number) + ",\"secid\":" + std::to_string(product_id) + ",\"symbol\":\"" +
           product(product_id).name +
           "\",\"bid\":" + levels_text(product_id, true, levels_in_a_change_line, long_price) +
           ",\"ask\":" + levels_text(product_id, false, levels_in_a_change_line, long_price) + "}";
}

std::string Books::book_snapshot(std::uint64_t wall_ns) const {
    std::string text = "{\"ts_ns\":" + std::to_string(wall_ns) + ",\"symbols\":{";
    for (const Product& product : products) {
        if (product.product_id != 1) text += ',';
        text += "\"" + product.name +
                "\":{\"bid\":" + levels_text(product.product_id, true, levels_in_a_snapshot, short_price) +
                ",\"ask\":" + levels_text(product.product_id, false, levels_in_a_snapshot, short_price) +
                ",\"last\":" + short_price(product.last) + ",\"volume\":" + std::to_string(product.volume) + "}";
    }
    return text + "}}\n";
}

std::string Books::bbo_snapshot() const {
    std::string text;
    for (const Product& product : products) {
        text += product.name;
        for (const Side* side : {&product.bids, &product.asks}) {
            text += " " + (side->empty() ? "0" : short_price(side->begin()->first));
        }
        text += '\n';
    }
    return text;
}

}  // namespace kavo::model
