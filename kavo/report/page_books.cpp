#include <algorithm>
#include <map>

#include "client/feed_messages.h"
#include "kavo/basics/printable.h"
#include "kavo/report/page_data.h"

namespace kavo::companion {

namespace {

constexpr std::size_t most_columns = 800;  // of a picture that is a thousand pixels wide
constexpr std::size_t most_trades = 2'000;

Json levels_of(const std::vector<BookLevel>& levels) {
    Json json = Json::array();
    for (const BookLevel& level : levels)
        json.push_back({static_cast<double>(level.price) / price_unit, level.quantity});
    return json;
}

struct History {
    std::string symbol;
    Json columns = Json::array();
    Json trades = Json::array();
    double latest_ms = -1e18;
    Json waiting;  // a column too close to the one before it: it is drawn if none comes that is further away
};

class Histories {
public:
    explicit Histories(const Picture& picture)
        : picture_(picture), least_ms_(picture.ms(picture.report.ended_ns) / static_cast<double>(most_columns)) {}

    Json json() {
        read_lines();
        read_trades();
        Json gaps = Json::array();
        for (const Gap& gap : picture_.feed.gaps) {
            const std::uint64_t end = std::max({gap.shown.ns, gap.settled_ns, gap.came.ns});
            if (gap.loss != Loss::late) gaps.push_back({picture_.ms(gap.shown.ns), picture_.ms(end)});
        }
        Json list = Json::array();
        for (auto& [product, history] : histories_) {
            if (!history.waiting.is_null()) history.columns.push_back(history.waiting);
            list.push_back(Json{
                {"symbol", history.symbol}, {"columns", history.columns}, {"trades", history.trades}, {"gaps", gaps}});
        }
        return list;
    }

private:
    void read_lines() {
        BookTruthReader reader(picture_.journal.book_truth);
        for (BookLine line; reader.next(line);) {
            if (line.is_mark) continue;
            const std::uint64_t ns = picture_.feed.came_ns(line.sequence);
            if (ns == 0) continue;
            History& history = histories_[line.product_id];
            if (history.symbol.empty()) history.symbol = printable(line.symbol);
            const double ms = std::max(picture_.ms(ns), 0.0);
            Json column{ms, line.sequence, levels_of(line.bids), levels_of(line.asks)};
            if (ms - history.latest_ms < least_ms_) {
                history.waiting = std::move(column);
                continue;
            }
            if (!history.waiting.is_null()) history.columns.push_back(std::exchange(history.waiting, Json{}));
            history.columns.push_back(std::move(column));
            history.latest_ms = ms;
        }
    }

    void read_trades() {
        for (const Datagram& datagram : picture_.journal.feed) {
            ByteView left = datagram.bytes;
            while (const auto packet = client::read_feed_packet(left)) {
                const auto trade = client::read_order_executed(packet->message);
                if (!trade) continue;
                const auto history = histories_.find(trade->secid);
                if (history == histories_.end() || history->second.trades.size() == most_trades) continue;
                history->second.trades.push_back(
                    {picture_.ms(datagram.at.ns), static_cast<double>(trade->price) / 1e6, trade->quantity});
            }
        }
    }

    const Picture& picture_;
    double least_ms_;
    std::map<std::uint32_t, History> histories_;
};

}  // namespace

Json book_histories(const Picture& picture) {
    return Histories(picture).json();
}

}  // namespace kavo::companion
