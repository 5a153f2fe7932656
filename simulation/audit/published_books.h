// The books of all products as the feed has published them: queues in levels, built from nothing but its messages.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "model/literal_records.h"

namespace kavo::simulation {

// Prices are ten-thousandths.
struct BookOrder {
    std::uint64_t id = 0;
    std::uint32_t product_id = 0;
    bool buy = false;
    std::uint32_t price = 0;
    std::uint32_t quantity = 0;
};

class PublishedBooks {
public:
    explicit PublishedBooks(const std::vector<std::string>& symbols);

    // Each throws a finding when no book could follow it.
    void add(const BookOrder& order);
    void remove(std::uint64_t id);
    void replace(std::uint64_t id, std::uint32_t price, std::uint32_t quantity);  // to the end of its queue
    void trade(std::uint64_t id, std::uint32_t price, std::uint32_t quantity);

    const BookOrder* find(std::uint64_t id) const;  // nothing when it does not rest
    // The order that is served next on a side; nothing when the side is empty.
    const BookOrder* best(std::uint32_t product_id, bool buy) const;
    // Whether an incoming order of `buy` that goes as far as `limit` (0 goes anywhere) trades at once.
    bool crosses(std::uint32_t product_id, bool buy, std::uint32_t limit) const;
    // How much such an order could find on the other side.
    std::uint64_t within(std::uint32_t product_id, bool buy, std::uint32_t limit) const;

    // Whether orders rest that should have traded with each other.
    bool crossed(std::uint32_t product_id) const;

    std::size_t size() const { return orders_.size(); }
    const std::string& symbol(std::uint32_t product_id) const { return books_.at(product_id - 1).symbol; }
    char listing(std::uint32_t product_id) const { return symbol(product_id) == "SPY" ? 'P' : 'Q'; }
    std::uint32_t products() const { return static_cast<std::uint32_t>(books_.size()); }
    // Product by product, bids before asks, best level first, first come first within a level.
    std::vector<BookOrder> resting_orders() const;

    // The texts that the venue writes about its books.
    std::string change_line(std::uint64_t sequence, std::uint32_t product_id) const;
    std::string book_snapshot(std::uint64_t wall_ns) const;
    std::string bbo_snapshot() const;

private:
    struct Level {
        std::uint64_t total = 0;
        model::Queue queue;
    };
    using Levels = std::map<std::uint32_t, Level, model::BestFirst>;
    struct Book {
        std::string symbol;
        Levels bids{model::BestFirst{true}};
        Levels asks{model::BestFirst{false}};
        std::uint32_t last = 0;
        std::uint64_t volume = 0;
    };

    Book& book_of(const BookOrder& order);
    static Levels& side_of(Book& book, const BookOrder& order) { return order.buy ? book.bids : book.asks; }
    BookOrder& resting(std::uint64_t id);
    void put_on_level(const BookOrder& order);
    void take_off_level(const BookOrder& order);
    const Levels& levels(std::uint32_t product_id, bool buy) const;

    std::vector<Book> books_;
    std::map<std::uint64_t, BookOrder> orders_;
};

}  // namespace kavo::simulation
