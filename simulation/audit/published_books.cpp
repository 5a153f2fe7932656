#include "audit/published_books.h"

#include <algorithm>

#include "audit/finding.h"
#include "tape.h"

namespace kavo::simulation {

namespace {

constexpr std::size_t levels_in_change_line = 10;
constexpr std::size_t levels_in_snapshot = 5;

std::string short_price(std::uint32_t price) {
    return printed("%g", price / 10'000.0);
}

// Always with four decimals.
std::string long_price(std::uint32_t price) {
    return std::to_string(price / 10'000) + "." + std::to_string(10'000 + price % 10'000).substr(1);
}

// "[[189.99,300],[189.98,100]]"
std::string levels_text(const auto& levels, std::size_t most, std::string (*price_text)(std::uint32_t price)) {
    std::string text = "[";
    for (const auto& [price, level] : levels) {
        if (most-- == 0) break;
        text += (text.size() > 1 ? ",[" : "[") + price_text(price) + "," + std::to_string(level.total) + "]";
    }
    return text + "]";
}

}  // namespace

PublishedBooks::PublishedBooks(const std::vector<std::string>& symbols) {
    for (const std::string& symbol : symbols) books_.emplace_back().symbol = symbol;
}

PublishedBooks::Book& PublishedBooks::book_of(const BookOrder& order) {
    if (order.product_id == 0 || order.product_id > books_.size()) throw Finding("a feed message for no product");
    return books_[order.product_id - 1];
}

BookOrder& PublishedBooks::resting(std::uint64_t id) {
    const auto order = orders_.find(id);
    if (order == orders_.end())
        throw Finding("a feed message about order #" + std::to_string(id) + ", which rests nowhere");
    return order->second;
}

void PublishedBooks::put_on_level(const BookOrder& order) {
    Level& level = side_of(book_of(order), order)[order.price];
    level.total += order.quantity;
    level.queue.push_back(order.id);
}

void PublishedBooks::take_off_level(const BookOrder& order) {
    Levels& levels = side_of(book_of(order), order);
    Level& level = levels.at(order.price);
    level.total -= order.quantity;
    level.queue.erase(std::find(level.queue.begin(), level.queue.end(), order.id));
    if (level.queue.empty()) levels.erase(order.price);
}

void PublishedBooks::add(const BookOrder& order) {
    if (!orders_.emplace(order.id, order).second) throw Finding("order #" + std::to_string(order.id) + " added twice");
    if (order.quantity == 0) throw Finding("order #" + std::to_string(order.id) + " added with nothing left");
    put_on_level(order);
}

void PublishedBooks::remove(std::uint64_t id) {
    take_off_level(resting(id));
    orders_.erase(id);
}

void PublishedBooks::replace(std::uint64_t id, std::uint32_t price, std::uint32_t quantity) {
    BookOrder& order = resting(id);
    take_off_level(order);
    order.price = price;
    order.quantity = quantity;
    put_on_level(order);
}

void PublishedBooks::trade(std::uint64_t id, std::uint32_t price, std::uint32_t quantity) {
    BookOrder& order = resting(id);
    Book& book = book_of(order);
    book.last = price;
    book.volume += quantity;
    if (quantity == 0 || quantity > order.quantity)
        throw Finding("more executed of #" + std::to_string(id) + " than rested");
    if (quantity == order.quantity) return remove(id);
    side_of(book, order).at(order.price).total -= quantity;
    order.quantity -= quantity;
}

const BookOrder* PublishedBooks::find(std::uint64_t id) const {
    const auto order = orders_.find(id);
    return order == orders_.end() ? nullptr : &order->second;
}

const PublishedBooks::Levels& PublishedBooks::levels(std::uint32_t product_id, bool buy) const {
    const Book& book = books_.at(product_id - 1);
    return buy ? book.bids : book.asks;
}

const BookOrder* PublishedBooks::best(std::uint32_t product_id, bool buy) const {
    const Levels& side = levels(product_id, buy);
    return side.empty() ? nullptr : find(side.begin()->second.queue.front());
}

// A best level at price 0, which only a wrapped price can make, trades with nobody.
bool PublishedBooks::crosses(std::uint32_t product_id, bool buy, std::uint32_t limit) const {
    const Levels& opposite = levels(product_id, !buy);
    if (opposite.empty() || opposite.begin()->first == 0) return false;
    if (limit == 0) return true;
    return buy ? opposite.begin()->first <= limit : opposite.begin()->first >= limit;
}

std::uint64_t PublishedBooks::within(std::uint32_t product_id, bool buy, std::uint32_t limit) const {
    std::uint64_t sum = 0;
    for (const auto& [price, level] : levels(product_id, !buy)) {
        if (limit != 0 && (buy ? price > limit : price < limit)) break;
        sum += level.total;
    }
    return sum;
}

bool PublishedBooks::crossed(std::uint32_t product_id) const {
    const Book& book = books_.at(product_id - 1);
    if (book.bids.empty() || book.asks.empty() || book.asks.begin()->first == 0) return false;
    return book.bids.begin()->first >= book.asks.begin()->first;
}

std::vector<BookOrder> PublishedBooks::resting_orders() const {
    std::vector<BookOrder> resting;
    for (const Book& book : books_) {
        for (const Levels* side : {&book.bids, &book.asks}) {
            for (const auto& [price, level] : *side) {
                for (const std::uint64_t id : level.queue) resting.push_back(orders_.at(id));
            }
        }
    }
    return resting;
}

std::string PublishedBooks::change_line(std::uint64_t sequence, std::uint32_t product_id) const {
    const Book& book = books_.at(product_id - 1);
    return "{\"seq\":" + std::to_string(sequence) + ",\"secid\":" + std::to_string(product_id) + ",\"symbol\":\"" +
           book.symbol + "\",\"bid\":" + levels_text(book.bids, levels_in_change_line, long_price) +
           ",\"ask\":" + levels_text(book.asks, levels_in_change_line, long_price) + "}";
}

std::string PublishedBooks::book_snapshot(std::uint64_t wall_ns) const {
    std::string text = "{\"ts_ns\":" + std::to_string(wall_ns) + ",\"symbols\":{";
    for (const Book& book : books_) {
        if (text.back() == '}') text += ',';
        text += "\"" + book.symbol + "\":{\"bid\":" + levels_text(book.bids, levels_in_snapshot, short_price) +
                ",\"ask\":" + levels_text(book.asks, levels_in_snapshot, short_price) +
                ",\"last\":" + short_price(book.last) + ",\"volume\":" + std::to_string(book.volume) + "}";
    }
    return text + "}}\n";
}

std::string PublishedBooks::bbo_snapshot() const {
    std::string text;
    for (const Book& book : books_) {
        text += book.symbol;
        for (const Levels* side : {&book.bids, &book.asks}) {
            text += " " + (side->empty() ? "0" : short_price(side->begin()->first));
        }
        text += '\n';
    }
    return text;
}

}  // namespace kavo::simulation
