// The books in plain text, for tooling that does not want to decode the feed: a line for each change, and files that
// are rewritten whole, again and again.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "common/price.h"

namespace kavo {

// A book as it is at a moment, for whoever prints it.
struct BookView {
    static constexpr std::size_t most_levels = 10;  // of a side, the best ones

    struct Level {
        Price price = 0;
        std::uint64_t total = 0;  // shares
    };

    std::string_view symbol;  // lent
    std::uint32_t secid = 0;
    std::vector<Level> bids;  // best first
    std::vector<Level> asks;
    Price last = 0;            // price of the last trade
    std::uint64_t volume = 0;  // shares taken from resting orders
};

// One JSON object on one line: the first five levels of each side, the last trade's price and the volume of each
// product.
//   wall_ns  nanoseconds since the Unix epoch
std::string book_snapshot(std::span<const BookView> books, std::uint64_t wall_ns);

// "AAPL 189.99 190.01", a line for each product; an empty side is 0.
std::string bbo_snapshot(std::span<const BookView> books);

// Appends the line for a change of a book: its levels, tied to the feed by the number of the message that published the
// change.
void append_book_change(std::string& out, std::uint64_t sequence, const BookView& book);

// Puts the content in the place of the file by way of a second one, so that a reader finds the old content or the new
// one, never a part. When anything fails the old file stays.
void replace_file(const std::string& path, const std::string& content);

}  // namespace kavo
