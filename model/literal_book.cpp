// The literal venue's books: trading, withdrawing, and what the feed and the truth files say about it.
#include <algorithm>
#include <cstdio>
#include <sstream>

#include "model/literal_venue.h"

namespace kavo::model {
namespace {

constexpr std::uint64_t nanoseconds_in_a_second = 1'000'000'000;
constexpr std::size_t most_closed_ids = 50000;
constexpr std::size_t levels_in_a_book_line = 10;

}  // namespace

// Whether a priced order touches the best level of the other side. A level at price 0 has no price to touch.
bool LiteralVenue::reaches_touch(const Order& order) const {
    const Side& opposite = product_of(order).side(!order.buy);
    if (opposite.empty()) return false;
    const std::uint32_t best = opposite.begin()->first;
    if (best == 0) return false;
    return order.buy ? order.price >= best : order.price <= best;
}

// Nobody compares owners: a client may trade with itself. The incoming order is told each trade in full, also where the
// partial-fill fault cuts what the resting order is told.
void LiteralVenue::match(Order& incoming, Answers* answers) {
    Product& product = product_of(incoming);
    Side& opposite = product.side(!incoming.buy);
    while (incoming.leaves != 0 && !opposite.empty()) {
        const std::uint32_t best = opposite.begin()->first;
        if (best == 0) return;
        if (incoming.price != 0 && (incoming.buy ? incoming.price < best : incoming.price > best)) return;
        const std::uint64_t maker_id = opposite.begin()->second.front();
        const std::uint32_t quantity = std::min(incoming.leaves, live_orders.at(maker_id).leaves);
        const std::uint64_t match_number = next_match_number;
        fill_resting(maker_id, quantity, true);
        incoming.leaves -= quantity;
        if (incoming.owner < 0) continue;
        const Fill fill{match_number, next_execution_id++, best, quantity, 'R'};
        answers->push_back(execution(wall_ns, incoming, product.listing, fill));
        ++fills;
        executed[incoming.client_order_id] += quantity;
        write_order_truth("fill", incoming,
                          {.quantity = original_size.at(incoming.client_order_id),
                           .executed = executed.at(incoming.client_order_id),
                           .leaves = incoming.leaves,
                           .last_quantity = quantity});
    }
}

// Trades shares of a resting order at its own price.
void LiteralVenue::fill_resting(std::uint64_t order_id, std::uint32_t quantity, bool partial_fills_allowed) {
    Order& order = live_orders.at(order_id);
    Product& product = product_of(order);
    if (partial_fills_allowed && order.owner >= 0 && quantity > 1 && quantity == order.leaves) {
        quantity = cut_by_partial_fill_fault(order, quantity);
    }
    Fill fill{next_match_number++, 0, order.price, quantity, 'A'};
    publish(order_executed(wall_ns, order, fill));
    product.last = fill.price;
    product.volume += quantity;
    if (order.owner >= 0) {
        fill.execution_id = next_execution_id++;
        report_maker_fill(order, fill);
    }
    if (order.leaves > quantity) {
        order.leaves -= quantity;
    } else {
        remove(order_id);
    }
    book_changed(product);
}

std::uint32_t LiteralVenue::cut_by_partial_fill_fault(const Order& order, std::uint32_t quantity) {
    if (!fault_fires(++partial_candidates, partial_fill_every, partial_next)) return quantity;
    ++partials;
    const std::uint32_t round_lots = order.leaves / 200 * 100;
    return round_lots != 0 ? round_lots : order.leaves / 2;
}

void LiteralVenue::report_maker_fill(const Order& order, const Fill& fill) {
    outbox.push_back({order.owner, execution(wall_ns, order, product_of(order).listing, fill)});
    ++fills;
    executed[order.client_order_id] += fill.quantity;
    write_order_truth("fill", order,
                      {.quantity = original_size.at(order.client_order_id),
                       .executed = executed.at(order.client_order_id),
                       .leaves = order.leaves - fill.quantity,
                       .last_quantity = fill.quantity});
    if (fill.quantity >= order.leaves) record_close(order.client_order_id);
}

// Takes a whole order off without a trade.
void LiteralVenue::withdraw(std::uint64_t order_id) {
    const Order order = live_orders.at(order_id);
    publish(delete_order(wall_ns, order));
    remove(order_id);
    book_changed(product_of(order));
}

void LiteralVenue::remove(std::uint64_t order_id) {
    const Order order = live_orders.at(order_id);
    if (order.owner >= 0) live_ids.erase(order.client_order_id);
    take_off_level(order);
    live_orders.erase(order_id);
}

void LiteralVenue::put_on_level(const Order& order) {
    product_of(order).side(order.buy)[order.price].push_back(order.id);
}

void LiteralVenue::take_off_level(const Order& order) {
    Side& side = product_of(order).side(order.buy);
    Queue& queue = side.at(order.price);
    queue.erase(std::find(queue.begin(), queue.end(), order.id));
    if (queue.empty()) side.erase(order.price);
}

void LiteralVenue::add_to_book(const Order& order) {
    live_orders[order.id] = order;
    put_on_level(order);
    publish(add_order(wall_ns, order));
    book_changed(product_of(order));
}

void LiteralVenue::end_client_order_id(const std::string& client_order_id) {
    live_ids.erase(client_order_id);
    record_close(client_order_id);
}

// Deliberately crude: the entry that is one too many clears them all, itself included.
void LiteralVenue::record_close(const std::string& client_order_id) {
    closed_ids[client_order_id] = steady_ms;
    if (closed_ids.size() > most_closed_ids) closed_ids.clear();
}

void LiteralVenue::publish(const Bytes& message) {
    const auto second = static_cast<std::uint32_t>(wall_ns / nanoseconds_in_a_second);
    if (second != last_feed_second_) {
        last_feed_second_ = second;
        feed.push_back(system_time(wall_ns));
        ++feed_sequence;
    }
    feed.push_back(message);
    ++feed_sequence;
}

std::vector<Level> LiteralVenue::levels(const Product& product, bool buy) const {
    std::vector<Level> levels;
    for (const auto& [price, queue] : product.side(buy)) {
        Level level{price, 0};
        for (const std::uint64_t id : queue) level.total += live_orders.at(id).leaves;
        levels.push_back(level);
    }
    return levels;
}

void LiteralVenue::book_changed(const Product& product) {
    book_truth.push_back(book_line(product));
}

std::string LiteralVenue::book_line(const Product& product) const {
    std::ostringstream line;
    line << "{\"seq\":" << feed_sequence << ",\"secid\":" << product.product_id << ",\"symbol\":\"" << product.name
         << '"';
    for (const bool buy : {true, false}) {
        line << (buy ? ",\"bid\":[" : ",\"ask\":[");
        std::size_t written = 0;
        for (const Level& level : levels(product, buy)) {
            if (written == levels_in_a_book_line) break;
            char text[64];
            std::snprintf(text, sizeof text, "%s[%.4f,%lld]", written == 0 ? "" : ",", level.price / 10000.0,
                          static_cast<long long>(level.total));
            line << text;
            ++written;
        }
        line << ']';
    }
    line << '}';
    return line.str();
}

void LiteralVenue::write_order_truth(std::string_view event, const Order& order, const Truth& numbers) {
    Truth truth = numbers;
    truth.event = event;
    truth.client_order_id = order.client_order_id;
    truth.order_id = order.id;
    truth.symbol = product_of(order).name;
    truth.side = order.buy ? 'B' : 'S';
    truth.price = order.price;
    write_truth(truth);
}

void LiteralVenue::write_truth(const Truth& truth) {
    std::ostringstream line;
    line << "{\"t\":" << wall_ns << ",\"ev\":\"" << truth.event << "\",\"cl\":\"" << truth.client_order_id
         << "\",\"oid\":" << truth.order_id << ",\"symbol\":\"" << truth.symbol << "\",\"side\":\"" << truth.side
         << "\",\"qty\":" << truth.quantity << ",\"px\":" << truth.price / 10000.0 << ",\"cum\":" << truth.executed
         << ",\"leaves\":" << truth.leaves << ",\"last_qty\":" << truth.last_quantity << ",\"text\":\"" << truth.text
         << '"';
    if (!truth.reference.empty()) line << ",\"ref\":\"" << truth.reference << '"';
    line << '}';
    order_truth.push_back(line.str());
}

}  // namespace kavo::model
