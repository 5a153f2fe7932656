#include <algorithm>
#include <map>

#include "client/feed_messages.h"
#include "kavo/basics/printable.h"
#include "kavo/report/page_data.h"

namespace kavo::companion {

namespace {

constexpr std::size_t most_books = 12;
constexpr std::size_t most_columns = 800;                 // of a picture that is a thousand pixels wide
constexpr std::size_t most_columns_of_all_books = 3'600;  // two hundred bytes each
constexpr std::size_t most_findings = 200;                // of a book

// A side as the page reads it: the first price, then the steps to the next.
Json side_of(const std::vector<BookLevel>& levels) {
    Json json = Json::array();
    std::int64_t before = 0;
    for (const BookLevel& level : levels) {
        json.push_back(std::int64_t{level.price} - before);
        json.push_back(level.quantity);
        before = level.price;
    }
    return json;
}

// It names no order, but a number of the feed.
bool is_about_a_book(const Finding& finding) {
    return finding.where.order.empty() && finding.where.feed_number != 0 && !finding.belief.empty();
}

struct History {
    std::string symbol;
    std::uint64_t lines = 0;  // of the book truth
    std::size_t wrong = 0;    // findings about what the client believed of it
    Json columns = Json::array();
    double latest_ms = -1e18;
    double waiting_ms = 0;
    BookLine waiting;  // too close to the column before it: it is drawn if none comes that is further away
    // Of one price within one column's time: where it was first, and how much was traded.
    std::map<std::pair<std::int64_t, std::uint64_t>, std::pair<double, std::uint64_t>> trades;
};

class Histories {
public:
    explicit Histories(const Picture& picture) : picture_(picture) {
        each_line([this](const BookLine& line) {
            History& history = histories_[line.product_id];
            if (history.lines++ == 0) history.symbol = printable(line.symbol);
        });
        for (auto& [product, history] : histories_) {
            for (const Finding& finding : picture.report.verdict.findings) {
                if (is_about(finding, history.symbol)) ++history.wrong;
            }
        }
    }

    Json json(LeftOut& left_out) {
        const std::size_t all = histories_.size();
        keep_the_telling_ones();
        if (histories_.size() < all) {
            left_out.push_back("Of " + std::to_string(all) + " books " + std::to_string(histories_.size()) +
                               " are drawn: those with findings, then those in which most happened. `kavo feed "
                               "DIR --book` tells the others.");
        }
        if (histories_.empty()) return Json::array();
        const std::size_t columns = std::min(most_columns, most_columns_of_all_books / histories_.size());
        least_ms_ = std::max(picture_.ms(picture_.report.ended_ns) / static_cast<double>(columns), 1e-3);
        read_columns();
        read_trades();
        Json list = Json::array();
        for (auto& [product, history] : histories_) list.push_back(told(history));
        return list;
    }

private:
    template <typename Take>
    void each_line(Take take) const {
        BookTruthReader reader(picture_.journal.book_truth);
        for (BookLine line; reader.next(line);) {
            if (!line.is_mark) take(line);
        }
    }

    // The text of such a belief begins with its symbol.
    static bool is_about(const Finding& finding, const std::string& symbol) {
        return finding.grade == Grade::finding && is_about_a_book(finding) &&
               finding.belief.compare(0, symbol.size() + 1, symbol + " ") == 0;
    }

    void keep_the_telling_ones() {
        std::vector<std::pair<std::pair<std::size_t, std::uint64_t>, std::uint32_t>> ranks;
        for (const auto& [product, history] : histories_) ranks.push_back({{history.wrong, history.lines}, product});
        std::stable_sort(ranks.begin(), ranks.end(), [](const auto& a, const auto& b) { return a.first > b.first; });
        for (std::size_t i = most_books; i < ranks.size(); ++i) histories_.erase(ranks[i].second);
    }

    void read_columns() {
        each_line([this](const BookLine& line) {
            const auto it = histories_.find(line.product_id);
            const std::uint64_t ns = it == histories_.end() ? 0 : picture_.feed.came_ns(line.sequence);
            if (ns == 0) return;
            History& history = it->second;
            const double ms = std::max(picture_.ms(ns), 0.0);
            if (ms - history.latest_ms >= least_ms_) {
                finish(history);
                history.latest_ms = ms;
            }
            history.waiting_ms = ms;
            history.waiting = line;
        });
        for (auto& [product, history] : histories_) finish(history);
    }

    static void finish(History& history) {
        if (history.waiting.sequence == 0) return;
        history.columns.push_back({history.waiting_ms, history.waiting.sequence, side_of(history.waiting.bids),
                                   side_of(history.waiting.asks)});
    }

    void read_trades() {
        for (const Datagram& datagram : picture_.journal.feed) {
            ByteView left = datagram.bytes;
            while (const auto packet = client::read_feed_packet(left)) {
                const auto trade = client::read_order_executed(packet->message);
                const auto history = trade ? histories_.find(trade->secid) : histories_.end();
                if (history == histories_.end()) continue;
                const double ms = picture_.ms(datagram.at.ns);
                const std::pair at{static_cast<std::int64_t>(ms / least_ms_), trade->price / 100};
                history->second.trades.try_emplace(at, ms, 0).first->second.second += trade->quantity;
            }
        }
    }

    Json told(const History& history) const {
        Json trades = Json::array(), beliefs = Json::array(), findings = Json::array();
        for (const auto& [at, trade] : history.trades) trades.push_back({trade.first, at.second, trade.second});
        double latest = -1e18;
        for (const BookBelief& belief : picture_.beliefs.books) {
            const double ms = picture_.ms(belief.said.t_ns);
            if (belief.said.t_ns == 0 || printable(belief.symbol) != history.symbol || ms - latest < least_ms_)
                continue;
            beliefs.push_back(latest = ms);
        }
        for (const Finding& finding : picture_.report.verdict.findings) {
            if (!is_about(finding, history.symbol) || findings.size() == most_findings) continue;
            findings.push_back({picture_.ms(finding.where.moment.ns),
                                "the client's book is wrong at number " + std::to_string(finding.where.feed_number)});
        }
        return Json{{"symbol", history.symbol},
                    {"columns", history.columns},
                    {"trades", trades},
                    {"beliefs", beliefs},
                    {"findings", findings}};
    }

    const Picture& picture_;
    double least_ms_ = 1;
    std::map<std::uint32_t, History> histories_;
};

}  // namespace

Json book_findings_told_until(const Picture& picture) {
    std::uint64_t latest = 0;
    bool more = false;
    for (const Finding& finding : picture.report.verdict.findings) {
        if (!is_about_a_book(finding)) continue;
        if (finding.grade == Grade::finding) latest = std::max(latest, finding.where.moment.ns);
        more = more || finding.grade == Grade::remark;
    }
    return more && latest != 0 ? Json(picture.ms(latest)) : Json();
}

Json book_histories(const Picture& picture, LeftOut& left_out) {
    return Histories(picture).json(left_out);
}

}  // namespace kavo::companion
