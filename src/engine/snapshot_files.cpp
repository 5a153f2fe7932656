#include "engine/snapshot_files.h"

#include <cstdio>
#include <fstream>

#include "common/text.h"

namespace kavo {

namespace {

constexpr std::size_t shown_levels = 5;

void append_levels(std::string& out, std::string_view key, const BookSide& side) {
    out.append("\"").append(key).append("\":[");
    std::size_t shown = 0;
    for (const auto& [rank, level] : side.levels()) {
        if (shown == shown_levels) break;
        out += shown++ == 0 ? "[" : ",[";
        append_short_price(out, level.price);
        out += ',';
        append_number(out, level.total);
        out += ']';
    }
    out += "],";
}

Price best_price(const BookSide& side) {
    return side.best() == nullptr ? 0 : side.best()->price;
}

}  // namespace

std::string book_snapshot(const std::vector<Product>& products, std::uint64_t wall_ns) {
    std::string out = "{\"ts_ns\":";
    append_number(out, wall_ns);
    out += ",\"symbols\":{";
    for (const Product& product : products) {
        if (product.id != 1) out += ',';
        out.append("\"").append(product.symbol).append("\":{");
        append_levels(out, "bid", product.bids);
        append_levels(out, "ask", product.asks);
        out += "\"last\":";
        append_short_price(out, product.last);
        out += ",\"volume\":";
        append_number(out, product.volume);
        out += '}';
    }
    out += "}}\n";
    return out;
}

std::string bbo_snapshot(const std::vector<Product>& products) {
    std::string out;
    for (const Product& product : products) {
        out.append(product.symbol).append(" ");
        append_short_price(out, best_price(product.bids));
        out += ' ';
        append_short_price(out, best_price(product.asks));
        out += '\n';
    }
    return out;
}

void replace_file(const std::string& path, const std::string& content) {
    const std::string temporary = path + ".tmp";
    std::ofstream file(temporary);
    file << content;
    file.close();
    if (file.good()) std::rename(temporary.c_str(), path.c_str());
}

}  // namespace kavo
