#include "beliefs.h"

#include <cstdio>
#include <stdexcept>

#include "sockets.h"

namespace trading {

namespace {

constexpr std::size_t depth = 10;

std::string quoted(std::string_view text) {
    std::string result = "\"";
    for (const char c : text) {
        if (static_cast<unsigned char>(c) < 0x20) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\u%04x", static_cast<unsigned>(c));
            result += escaped;
            continue;
        }
        if (c == '"' || c == '\\') result += '\\';
        result += c;
    }
    return result + '"';
}

template <typename LevelIterator>
std::string side(LevelIterator level, LevelIterator end) {
    std::string levels;
    for (std::size_t left = depth; level != end && left > 0; ++level, --left) {
        levels += levels.empty() ? "[" : ",[";
        levels += quoted(decimal(level->first)) + "," + std::to_string(level->second) + "]";
    }
    return "[" + levels + "]";
}

}  // namespace

Beliefs::Beliefs(const std::string& path, std::string user) : user_(std::move(user)) {
    if (path.empty()) return;
    file_.open(path, std::ios::app);
    if (!file_) throw std::runtime_error("cannot write beliefs to " + path);
    write("\"ev\":\"start\",\"user\":" + quoted(user_));
}

void Beliefs::tell(const OrderBelief& order) {
    write("\"ev\":\"order\",\"user\":" + quoted(user_) + ",\"id\":" + quoted(order.id) +
          ",\"state\":" + quoted(order.state) + ",\"leaves\":" + std::to_string(order.leaves) +
          ",\"executed\":" + std::to_string(order.executed) + ",\"seq\":" + std::to_string(order.number));
}

void Beliefs::tell_fill(std::string_view id, std::uint32_t quantity, kavo::WirePrice price, std::uint64_t execution) {
    write("\"ev\":\"fill\",\"user\":" + quoted(user_) + ",\"id\":" + quoted(id) +
          ",\"quantity\":" + std::to_string(quantity) + ",\"price\":" + quoted(decimal(price)) +
          ",\"execution\":" + std::to_string(execution));
}

void Beliefs::tell_book(const kavo::client::ReceivedBook::Book& book, std::uint64_t number, bool stale) {
    write("\"ev\":\"book\",\"user\":" + quoted(user_) + ",\"symbol\":" + quoted(book.symbol) +
          ",\"seq\":" + std::to_string(number) + ",\"bids\":" + side(book.bids.rbegin(), book.bids.rend()) +
          ",\"asks\":" + side(book.asks.begin(), book.asks.end()) + ",\"stale\":" + (stale ? "true" : "false"));
}

// What is flushed line by line is written line by line, so that lines of two clients do not run into each other.
void Beliefs::write(const std::string& rest) {
    if (file_.is_open()) file_ << "{\"t\":" + std::to_string(wall_ns()) + "," + rest + "}\n" << std::flush;
}

std::string decimal(kavo::WirePrice price) {
    std::string digits = std::to_string(1'000'000 + price % 1'000'000).substr(1);
    while (digits.size() > 2 && digits.back() == '0') digits.pop_back();
    return std::to_string(price / 1'000'000) + "." + digits;
}

}  // namespace trading
