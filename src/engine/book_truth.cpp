// The best levels of a book after each of its changes, one JSON line, tied to the feed by the number of the message
// that published the change.
#include "common/text.h"
#include "engine/engine.h"

namespace kavo {

namespace {

constexpr std::size_t shown_levels = 10;

void append_levels(std::string& line, const BookSide& side) {
    std::size_t shown = 0;
    for (const auto& [rank, level] : side.levels()) {
        if (shown == shown_levels) return;
        line += shown++ == 0 ? "[" : ",[";
        append_fixed_price(line, level.price);
        line += ',';
        append_number(line, level.total);
        line += ']';
    }
}

}  // namespace

// Written on every change of a book, so the stream keeps its lines back; a mark and a normal end flush them.
void Engine::write_book_truth(const Product& product) {
    if (!book_truth.is_open() || !book_truth.good()) return;
    line_ = "{\"seq\":";
    append_number(line_, feed_.last_sequence());
    line_ += ",\"secid\":";
    append_number(line_, product.id);
    line_.append(",\"symbol\":\"").append(product.symbol).append("\",\"bid\":[");
    append_levels(line_, product.bids);
    line_ += "],\"ask\":[";
    append_levels(line_, product.asks);
    line_ += "]}\n";
    book_truth.write(line_.data(), static_cast<std::streamsize>(line_.size()));
}

}  // namespace kavo
