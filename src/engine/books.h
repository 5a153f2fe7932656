// The books, and the one place where they change: each change is published on the feed, and followed by one line of
// book truth.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "common/line_log.h"
#include "engine/order_pool.h"
#include "feed/dom_feed.h"
#include "feed/snapshot_files.h"

namespace kavo {

// A resting order, as maker, and what it trades at its price.
struct Trade {
    std::uint64_t match_number;
    Price price;
    std::uint32_t quantity;  // of the maker
};

class Books {
public:
    //   session  1..255, carried in System State
    Books(DomFeed& feed, std::uint8_t session);
    Books(const Books&) = delete;  // the feed's state builders point here
    Books& operator=(const Books&) = delete;

    // Before the day starts: the product gets the next id. `reference` is in currency units.
    void add_product(std::string_view symbol, double reference);
    // What the feed begins the day with.
    void publish_definitions();

    // A record with the next order id, on no book yet, and the way back for one that is on no book any more.
    Order& create(std::uint32_t product_id);
    void discard(Order& order) { orders_.give_back(order); }

    // Onto the book, behind every order at its price.
    void add(Order& order);
    // To another price and size, and behind every order there. The feed is told whether that cost the order its
    // priority: it did for another price and for more shares.
    void replace(Order& order, Price price, std::uint32_t leaves);
    // Trades so many shares, 1..leaves, at the order's price. One that has none left is off the book.
    Trade execute(Order& order, std::uint32_t quantity);
    // Off the book without a trade; the order keeps its leaves.
    void remove(Order& order);

    std::vector<Product>& products() { return products_; }
    const std::vector<Product>& products() const { return products_; }
    const Product* find(std::uint32_t product_id) const;  // nothing for an id that no product has
    Product& of(const Order& order) { return products_[order.product_id - 1]; }
    const Product& of(const Order& order) const { return products_[order.product_id - 1]; }
    OrderPool& orders() { return orders_; }
    std::size_t resting_orders() const { return resting_orders_; }  // of all books
    std::vector<BookView> views() const;

    void flush() { feed_.flush(); }

    LineLog truth;  // one JSON line for each change of a book

private:
    static constexpr std::uint64_t first_order_id = 1000;

    void put(Order& order);
    void take_off(Order& order);
    void write_truth(const Product& product);
    void install_state_builders();

    DomFeed& feed_;
    std::uint8_t session_;
    std::vector<Product> products_;
    OrderPool orders_;
    std::size_t resting_orders_ = 0;
    std::uint64_t next_order_id_ = first_order_id;
    std::uint64_t next_match_number_ = 1;
    BookView view_;  // of the book that has changed
    std::string line_;
};

}  // namespace kavo
