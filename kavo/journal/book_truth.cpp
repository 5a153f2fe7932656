// books.jsonl, read back. No client has a say in its texts, but whoever names the symbols and sets the marks has.
#include "kavo/journal/journal.h"
#include "kavo/journal/scan.h"

namespace kavo::companion {

namespace {

// "189.9900" as ten-thousandths.
bool read_price(Scan& scan, std::uint32_t& price) {
    std::uint64_t whole = 0;
    if (!scan.number(whole)) return false;
    const std::string_view rest = scan.rest();
    if (rest.size() < 5 || rest[0] != '.') return false;
    std::uint64_t fraction = 0;
    for (std::size_t i = 1; i < 5; ++i) {
        if (rest[i] < '0' || rest[i] > '9') return false;
        fraction = fraction * 10 + static_cast<std::uint64_t>(rest[i] - '0');
    }
    std::string_view decimals;
    scan.text(decimals, 5);
    const std::uint64_t all = whole * 10'000 + fraction;
    price = static_cast<std::uint32_t>(all);
    return whole <= 429'496 && all == price;
}

// What stands between the outer brackets of a side, and the closing one.
bool read_levels(Scan& scan, std::vector<BookLevel>& levels) {
    levels.clear();
    if (scan.skip("]")) return true;
    do {
        BookLevel level;
        if (!scan.skip("[") || !read_price(scan, level.price) || !scan.skip(",") || !scan.number(level.quantity)) {
            return false;
        }
        if (!scan.skip("]")) return false;
        levels.push_back(level);
    } while (scan.skip(","));
    return scan.skip("]");
}

bool read_book(Scan& scan, BookLine& line) {
    if (!scan.number(line.sequence) || !scan.skip(",\"secid\":") || !scan.number(line.product_id)) return false;
    if (!scan.skip(",\"symbol\":\"")) return false;
    constexpr std::string_view behind_symbol = "\",\"bid\":[";
    for (std::size_t size = scan.rest().find(behind_symbol); size != std::string_view::npos;
         size = scan.rest().find(behind_symbol, size + 1)) {
        Scan tried = scan;
        tried.text(line.symbol, size);
        if (line.symbol.find("\n{\"seq\":") != std::string_view::npos) return false;  // of a later line
        tried.skip(behind_symbol);
        if (!read_levels(tried, line.bids) || !tried.skip(",\"ask\":[") || !read_levels(tried, line.asks)) continue;
        if (!tried.skip("}\n")) continue;
        scan = tried;
        return true;
    }
    return false;
}

// A label is one word, so there is no line end in it.
bool read_mark(Scan& scan, BookLine& line) {
    constexpr std::string_view behind_label = "\",\"seq\":";
    const std::string_view text = scan.rest().substr(0, scan.rest().find('\n'));
    const std::size_t size = text.rfind(behind_label);
    if (size == std::string_view::npos) return false;
    line.bids.clear();
    line.asks.clear();
    scan.text(line.mark, size);
    return scan.skip(behind_label) && scan.number(line.sequence) && scan.skip("}\n");
}

}  // namespace

bool BookTruthReader::next(BookLine& line) {
    if (left_.empty() || broken_) return false;
    ++line_;
    Scan scan(left_);
    line.is_mark = scan.skip("{\"mark\":\"");
    const bool whole = line.is_mark ? read_mark(scan, line) : scan.skip("{\"seq\":") && read_book(scan, line);
    if (whole) {
        left_ = scan.rest();
    } else {
        broken_ = true;
    }
    return whole;
}

}  // namespace kavo::companion
