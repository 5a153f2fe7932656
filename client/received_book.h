// The books of all products as a receiver of the feed holds them: levels with their totals, rebuilt from the messages.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <unordered_map>

#include "common/bytes.h"
#include "common/price.h"

namespace kavo::client {

class ReceivedBook {
public:
    // Takes one feed message. The product whose book it changed; 0 for any other message, and for one about an order
    // that was added before this receiver listened.
    std::uint32_t apply(ByteView message);

    using Levels = std::map<WirePrice, std::uint64_t>;  // ascending
    struct Book {
        std::string symbol;
        Levels bids;
        Levels asks;
    };
    const Book& book(std::uint32_t secid) const { return books_.at(secid); }
    const std::map<std::uint32_t, Book>& books() const { return books_; }

    // The best levels on one line: "AAPL  300@189.98 100@189.99 | 200@190.01 500@190.02".
    std::string text(std::uint32_t secid, std::size_t levels) const;

    // The book as the simulator writes it down after the message with this number: ten levels a side, best first.
    std::string truth_line(std::uint64_t sequence, std::uint32_t secid) const;

private:
    struct Resting {
        std::uint32_t secid = 0;
        bool buy = false;
        WirePrice price = 0;
        std::uint32_t quantity = 0;
    };

    std::uint32_t add(std::uint64_t order_id, const Resting& order);
    std::uint32_t change(std::uint64_t order_id, WirePrice price, std::uint32_t quantity);
    void count(const Resting& order, bool in);

    std::unordered_map<std::uint64_t, Resting> orders_;
    std::map<std::uint32_t, Book> books_;
};

}  // namespace kavo::client
