#include "client/received_book.h"

#include "client/feed_messages.h"
#include "client/transcript.h"

namespace kavo::client {

namespace {

constexpr std::size_t truth_levels = 10;

// "[[189.9900,300],[189.9800,100]]"
template <typename LevelIterator>
std::string truth_side(LevelIterator level, LevelIterator end) {
    std::string side;
    for (std::size_t left = truth_levels; level != end && left > 0; ++level, --left) {
        const WirePrice price = level->first / 100;  // four decimals
        const std::string decimals = std::to_string(10'000 + price % 10'000).substr(1);
        side += side.empty() ? "[" : ",[";
        side += std::to_string(price / 10'000) + "." + decimals + "," + std::to_string(level->second) + "]";
    }
    return "[" + side + "]";
}

}  // namespace

std::uint32_t ReceivedBook::apply(ByteView message) {
    if (const auto m = read_series_definition(message)) books_[m->secid].symbol = m->symbol;
    if (const auto m = read_add_order(message)) {
        return add(m->order_id, {m->secid, m->side == 'B', m->price, m->quantity});
    }
    if (const auto m = read_modify_order(message)) return change(m->order_id, m->price, m->quantity);
    if (const auto m = read_delete_order(message)) return change(m->order_id, 0, 0);
    if (const auto m = read_order_executed(message)) {
        const auto order = orders_.find(m->order_id);
        if (order == orders_.end()) return 0;
        return change(m->order_id, order->second.price, order->second.quantity - m->quantity);
    }
    return 0;
}

std::uint32_t ReceivedBook::add(std::uint64_t order_id, const Resting& order) {
    orders_[order_id] = order;
    count(order, true);
    return order.secid;
}

std::uint32_t ReceivedBook::change(std::uint64_t order_id, WirePrice price, std::uint32_t quantity) {
    const auto found = orders_.find(order_id);
    if (found == orders_.end()) return 0;
    Resting& order = found->second;
    const std::uint32_t secid = order.secid;
    count(order, false);
    order.price = price;
    order.quantity = quantity;
    if (quantity == 0) {
        orders_.erase(found);
    } else {
        count(order, true);
    }
    return secid;
}

void ReceivedBook::count(const Resting& order, bool in) {
    Book& book = books_[order.secid];
    Levels& levels = order.buy ? book.bids : book.asks;
    std::uint64_t& total = levels[order.price];
    total = in ? total + order.quantity : total - order.quantity;
    if (total == 0) levels.erase(order.price);
}

std::string ReceivedBook::text(std::uint32_t secid, std::size_t levels) const {
    const Book& book = books_.at(secid);
    std::string bids;
    std::string asks;
    std::size_t left = levels;
    for (auto level = book.bids.rbegin(); level != book.bids.rend() && left > 0; ++level, --left) {
        bids.insert(0, " " + std::to_string(level->second) + "@" + price_text(level->first));
    }
    left = levels;
    for (auto level = book.asks.begin(); level != book.asks.end() && left > 0; ++level, --left) {
        asks += " " + std::to_string(level->second) + "@" + price_text(level->first);
    }
    return book.symbol + " " + bids + " |" + asks;
}

std::string ReceivedBook::truth_line(std::uint64_t sequence, std::uint32_t secid) const {
    const Book& book = books_.at(secid);
    return "{\"seq\":" + std::to_string(sequence) + ",\"secid\":" + std::to_string(secid) + ",\"symbol\":\"" +
           book.symbol + "\",\"bid\":" + truth_side(book.bids.rbegin(), book.bids.rend()) +
           ",\"ask\":" + truth_side(book.asks.begin(), book.asks.end()) + "}";
}

}  // namespace kavo::client
