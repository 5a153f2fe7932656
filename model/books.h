// The books of all products: orders in queues, queues in levels, and what the venue writes about them. The venue of the
// model trades on one; another can be built from nothing but the messages of a feed.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <vector>

#include "model/records.h"

namespace kavo::model {

// One comparison serves both sides of a book: the highest bid and the lowest ask come first.
struct BestFirst {
    bool bids = false;
    bool operator()(std::uint32_t left, std::uint32_t right) const { return bids ? left > right : left < right; }
};

using Queue = std::deque<std::uint64_t>;                 // order ids, first come first
using Side = std::map<std::uint32_t, Queue, BestFirst>;  // by price

struct Product {
    std::string name;
    std::uint32_t product_id = 0;
    char listing = 'Q';
    double reference = 0.0;  // currency units
    Side bids{BestFirst{true}};
    Side asks{BestFirst{false}};
    std::uint32_t last = 0;    // price of the latest fill of a resting order
    std::uint64_t volume = 0;  // shares taken from resting orders

    Side& side(bool buy) { return buy ? bids : asks; }
    const Side& side(bool buy) const { return buy ? bids : asks; }
};

struct Level {
    std::uint32_t price = 0;
    std::uint64_t total = 0;
    bool operator==(const Level&) const = default;
};

class Books {
public:
    explicit Books(const std::vector<Symbol>& symbols);

    // Each throws when no book could follow it, as when it is about an order that rests nowhere.
    void add(const Order& order);  // behind all others at its price
    void remove(std::uint64_t id);
    void trade(std::uint64_t id, std::uint32_t quantity);
    // Takes a message of the feed; those that change no book are passed over.
    void follow(const Bytes& message);

    bool has_product(std::uint32_t id) const { return id != 0 && id <= products.size(); }
    Product& product(std::uint32_t id) { return products.at(id - 1); }
    const Product& product(std::uint32_t id) const { return products.at(id - 1); }

    // Whether an incoming order of `buy` that goes as far as `limit` (0 goes anywhere) trades at once.
    bool crosses(std::uint32_t product_id, bool buy, std::uint32_t limit) const;
    // How much such an order could find on the other side.
    std::uint64_t within(std::uint32_t product_id, bool buy, std::uint32_t limit) const;
    // Best first.
    std::vector<Level> levels(std::uint32_t product_id, bool buy, std::size_t most = ~std::size_t{0}) const;
    // Product by product, bids before asks, best level first, first come first within a level.
    std::vector<Order> resting_orders() const;

    // The line that follows the feed message with this number, which has changed the book.
    std::string change_line(std::uint64_t number, std::uint32_t product_id) const;
    // The texts of the two snapshot files.
    std::string book_snapshot(std::uint64_t wall_ns) const;
    std::string bbo_snapshot() const;

    std::vector<Product> products;           // number 1 in front
    std::map<std::uint64_t, Order> resting;  // by order id

private:
    void put_on_level(const Order& order);
    void take_off_level(const Order& order);
    std::string levels_text(std::uint32_t product_id, bool buy, std::size_t most,
                            std::string (*price_text)(std::uint32_t price)) const;
};

// A price for people: six digits at most, as few as it needs.
std::string short_price(std::uint32_t price);

}  // namespace kavo::model
