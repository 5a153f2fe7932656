#include "feed/snapshot_files.h"

#include <algorithm>
#include <cstdio>
#include <fstream>

#include "common/text.h"

namespace kavo {

namespace {

using Level = BookView::Level;

constexpr std::size_t snapshot_levels = 5;
static_assert(snapshot_levels <= BookView::most_levels);

// "[189.99,300],[189.98,100]", each price as `append_price` writes it.
void append_levels(std::string& out, std::span<const Level> levels, void (*append_price)(std::string& out, Price)) {
    for (const Level& level : levels) {
        out += &level == levels.data() ? "[" : ",[";
        append_price(out, level.price);
        out += ',';
        append_number(out, level.total);
        out += ']';
    }
}

std::span<const Level> first_levels(std::span<const Level> levels) {
    return levels.first(std::min(levels.size(), snapshot_levels));
}

Price best_price(std::span<const Level> levels) {
    return levels.empty() ? 0 : levels.front().price;
}

}  // namespace

std::string book_snapshot(std::span<const BookView> books, std::uint64_t wall_ns) {
    std::string out = "{\"ts_ns\":";
    append_number(out, wall_ns);
    out += ",\"symbols\":{";
    for (const BookView& book : books) {
        if (&book != books.data()) out += ',';
        out.append("\"").append(book.symbol).append("\":{\"bid\":[");
        append_levels(out, first_levels(book.bids), append_short_price);
        out += "],\"ask\":[";
        append_levels(out, first_levels(book.asks), append_short_price);
        out += "],\"last\":";
        append_short_price(out, book.last);
        out += ",\"volume\":";
        append_number(out, book.volume);
        out += '}';
    }
    out += "}}\n";
    return out;
}

std::string bbo_snapshot(std::span<const BookView> books) {
    std::string out;
    for (const BookView& book : books) {
        out.append(book.symbol).append(" ");
        append_short_price(out, best_price(book.bids));
        out += ' ';
        append_short_price(out, best_price(book.asks));
        out += '\n';
    }
    return out;
}

void append_book_change(std::string& out, std::uint64_t sequence, const BookView& book) {
    out += "{\"seq\":";
    append_number(out, sequence);
    out += ",\"secid\":";
    append_number(out, book.secid);
    out.append(",\"symbol\":\"").append(book.symbol).append("\",\"bid\":[");
    append_levels(out, book.bids, append_fixed_price);
    out += "],\"ask\":[";
    append_levels(out, book.asks, append_fixed_price);
    out += "]}\n";
}

void replace_file(const std::string& path, const std::string& content) {
    const std::string temporary = path + ".tmp";
    std::ofstream file(temporary);
    file << content;
    file.close();
    if (file.good()) std::rename(temporary.c_str(), path.c_str());
}

}  // namespace kavo
