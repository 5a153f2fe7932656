#include "kavo/journal/order_truth.h"

#include <algorithm>
#include <array>
#include <optional>

#include "engine/meo_layout.h"
#include "kavo/journal/scan.h"

namespace kavo::companion {

namespace {

constexpr std::size_t longest_id = meo::client_order_id_size;
constexpr std::size_t longest_symbol = 256;  // where they are not known

constexpr std::string_view line_begins = "{\"t\":";
constexpr std::array<std::string_view, 7> events{"new",           "reject",  "fill",          "cancel",
                                                 "cancel_reject", "replace", "replace_reject"};
constexpr std::array<std::string_view, 14> causes{"post_only",
                                                  "expired",
                                                  "cancel",
                                                  "modify_closed",
                                                  "disconnect",
                                                  "unsolicited",
                                                  "late",
                                                  "stale",
                                                  "duplicate",
                                                  "invalid",
                                                  "unknown_order",
                                                  "bench:scripted_reject",
                                                  "bench:scripted_replace_reject",
                                                  ""};

using Symbols = std::vector<std::string>;

// Takes the one of the words that stands there with a quote behind it.
template <typename Words>
bool take_word(Scan& scan, const Words& words, std::string_view& word) {
    for (const std::string_view candidate : words) {
        Scan behind = scan;
        if (!behind.skip(candidate) || !behind.skip("\"")) continue;
        word = scan.rest().substr(0, candidate.size());
        scan = behind;
        return true;
    }
    return false;
}

// Up to the client order id, from where on a line can be misread.
bool read_head(Scan& scan, OrderLine& line) {
    return scan.skip(line_begins) && scan.number(line.t_ns) && scan.skip(",\"ev\":\"") &&
           take_word(scan, events, line.event) && scan.skip(",\"cl\":\"");
}

// From the side to the cause.
bool read_values(Scan& scan, OrderLine& line) {
    return scan.skip("\",\"side\":\"") && scan.letter(line.side) && scan.skip("\",\"qty\":") &&
           scan.number(line.quantity) && scan.skip(",\"px\":") && scan.number(line.price) && scan.skip(",\"cum\":") &&
           scan.number(line.executed) && scan.skip(",\"leaves\":") && scan.number(line.leaves) &&
           scan.skip(",\"last_qty\":") && scan.number(line.last_quantity) && scan.skip(",\"text\":\"") &&
           take_word(scan, causes, line.text);
}

// What may follow a line: the end, or the next one; at the end of a file that is cut short the beginning of one.
enum class Behind { nothing_of_ours, a_part, the_next, the_end };
Behind what_follows(Scan scan) {
    if (scan.at_end()) return Behind::the_end;
    OrderLine next;
    Scan whole = scan;
    if (read_head(whole, next)) return Behind::the_next;
    constexpr std::size_t longest_head = 64;
    const std::string_view rest = scan.rest();
    const bool begun = rest.starts_with(line_begins) || line_begins.starts_with(rest);
    return begun && rest.size() < longest_head && rest.find('\n') == rest.npos ? Behind::a_part
                                                                               : Behind::nothing_of_ours;
}

// All readings of one line, of which there should be one.
class Readings {
public:
    Readings(const Symbols& symbols, const OrderLine& head) : symbols_(symbols), head_(head) {}

    void read(Scan from) {
        for (std::size_t size = 0; size <= longest_id; ++size) {
            Scan scan = from;
            OrderLine line = head_;
            if (!scan.text(line.client_order_id, size)) return;
            if (!scan.skip("\",\"oid\":") || !scan.number(line.order_id) || !scan.skip(",\"symbol\":\"")) continue;
            read_symbol(scan, line);
        }
    }

    std::optional<OrderLine> best;
    Scan behind{{}};  // the best

private:
    void read_symbol(Scan from, const OrderLine& so_far) {
        if (symbols_.empty()) {
            for (std::size_t size = 0; size <= longest_symbol; ++size) read_rest(from, so_far, size);
            return;
        }
        read_rest(from, so_far, 0);  // of an unknown product
        for (const std::string& symbol : symbols_) {
            if (!symbol.empty() && from.rest().starts_with(symbol)) read_rest(from, so_far, symbol.size());
        }
    }

    void read_rest(Scan scan, OrderLine line, std::size_t symbol_size) {
        if (!scan.text(line.symbol, symbol_size) || !read_values(scan, line)) return;
        Scan plain = scan;
        if (plain.skip("}\n")) consider(line, plain);
        if (!scan.skip(",\"ref\":\"")) return;
        for (std::size_t size = 1; size <= longest_id; ++size) {
            Scan replaced = scan;
            if (!replaced.text(line.original, size)) return;
            if (replaced.skip("\"}\n")) consider(line, replaced);
        }
    }

    void consider(const OrderLine& line, Scan scan) {
        const Behind follows = what_follows(scan);
        if (follows == Behind::nothing_of_ours) return;
        const bool whole = follows != Behind::a_part;
        if (!best || (whole && !whole_)) {
            best = line;
            behind = scan;
            whole_ = whole;
        } else if (whole == whole_) {
            best->ambiguous = true;
        }
    }

    const Symbols& symbols_;
    const OrderLine& head_;
    bool whole_ = false;  // a reading behind which another line begins counts more than one with a part of one
};

}  // namespace

OrderTruth read_order_truth(std::string_view content, const Symbols& symbols) {
    OrderTruth truth;
    Scan scan(content);
    std::size_t line_number = 1;
    while (!scan.at_end()) {
        const std::string_view before = scan.rest();
        OrderLine head;
        head.line = line_number;
        Scan texts = scan;
        Readings readings(symbols, head);
        if (read_head(texts, head)) readings.read(texts);
        if (!readings.best) {
            truth.broken = true;
            truth.broken_line = line_number;
            return truth;
        }
        truth.lines.push_back(*readings.best);
        scan = readings.behind;
        const std::string_view taken = before.substr(0, before.size() - scan.rest().size());
        line_number += static_cast<std::size_t>(std::count(taken.begin(), taken.end(), '\n'));
    }
    return truth;
}

}  // namespace kavo::companion
