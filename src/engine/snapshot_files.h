// The books in plain text files, for tooling that does not want to decode the feed: rewritten whole, again and again.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "engine/book.h"

namespace kavo {

// One JSON object on one line: the first five levels of each side, the last trade's price and the volume of each
// product.
//   wall_ns  nanoseconds since the Unix epoch
std::string book_snapshot(const std::vector<Product>& products, std::uint64_t wall_ns);

// "AAPL 189.99 190.01", a line for each product; an empty side is 0.
std::string bbo_snapshot(const std::vector<Product>& products);

// Puts the content in the place of the file by way of a second one, so that a reader finds the old content or the new
// one, never a part. When anything fails the old file stays.
void replace_file(const std::string& path, const std::string& content);

}  // namespace kavo
