#include "kavo/audit/bench_books.h"

#include <algorithm>

#include "client/transcript.h"
#include "kavo/audit/bench_recovery.h"
#include "kavo/audit/flat_book.h"

namespace kavo::companion {

namespace {

constexpr std::size_t messages_between_progress = 50'000;

std::string levels_text(const std::vector<BookLevel>& levels) {
    std::string text;
    for (const BookLevel& level : levels) {
        if (!text.empty()) text += " ";
        text += std::to_string(level.quantity) + "@" + client::price_text(to_wire(level.price));
    }
    return text.empty() ? "nothing" : text;
}

// Messages and lines, each in the order of their numbers, side by side.
class BookAudit {
public:
    BookAudit(const Journal& journal, const BenchLog& log, RecordedFeed& feed, BenchFindings& findings)
        : journal_(journal),
          log_(log),
          feed_(feed),
          findings_(findings),
          reader_(journal.book_truth),
          snapshots_(snapshots_of(journal)) {
        read_line();
    }

    void audit(const std::function<void(double)>& progress) {
        std::size_t count = 0;
        for (const FeedMessage& message : feed_.messages) {
            if (++count % messages_between_progress == 0) {
                progress(static_cast<double>(count) / static_cast<double>(feed_.messages.size()));
            }
            if (message.sequence != next_) pass_gap(message.sequence);
            take(message);
            next_ = message.sequence + 1;
        }
        pass_snapshots(next_);
        pass_rest();
        std::ranges::stable_sort(trades, {}, &Trade::match_number);
    }

    std::vector<Trade> trades;
    std::uint64_t lines = 0;
    std::uint64_t not_compared = 0;

private:
    // The next line of a book. Its number is above all before it; that of a mark is the last that was used.
    void read_line() {
        while ((has_line_ = reader_.next(line_))) {
            ++lines;
            const bool right = line_.is_mark ? line_.sequence >= before_ : line_.sequence > before_;
            if (!right) wrong_number(line_.is_mark ? "a mark at " : "a line for ");
            before_ = std::max(before_, line_.sequence);
            if (right && !line_.is_mark) return;
        }
    }

    void wrong_number(const std::string& what) {
        findings_.contradiction(bench_rule::book_line,
                                {.expected = "a number behind " + std::to_string(before_) + ", which stands before it",
                                 .got = what + std::to_string(line_.sequence) + " in line " +
                                        std::to_string(reader_.line()) + " of books.jsonl",
                                 .where = {.feed_number = line_.sequence}});
    }

    // Of what is missing, the lines tell which books it changed.
    void pass_gap(std::uint64_t up_to) {
        if (next_ == 1) books_.make_all_uncertain();
        while (has_line_ && line_.sequence < up_to) {
            pass_snapshots(line_.sequence);
            if (line_.sequence < next_) {
                no_reason_for_line();
            } else {
                books_.product(line_.product_id).uncertain = true;
                note_published(line_.sequence);
                ++not_compared;
            }
            read_line();
        }
        pass_snapshots(up_to);
        if (!has_line_) books_.make_all_uncertain();
        match_number_ = 0;
    }

    void note_published(std::uint64_t sequence) {
        const auto gap = std::ranges::lower_bound(feed_.gaps, sequence, {}, &FeedGap::last);
        if (gap != feed_.gaps.end() && gap->first <= sequence) gap->in_truth = true;
    }

    // The snapshots of all that lies before this number.
    void pass_snapshots(std::uint64_t number) {
        for (; next_snapshot_ < snapshots_.size() && snapshots_[next_snapshot_].as_of < number; ++next_snapshot_) {
            const FeedSnapshot& snapshot = snapshots_[next_snapshot_];
            if (!books_.rests(snapshot.orders)) {
                findings_.contradiction(
                    bench_rule::recovery,
                    {.expected = "a refresh with the orders that rest as of " + std::to_string(snapshot.as_of),
                     .got = "a refresh of " + std::to_string(snapshot.orders.size()) + " orders that are not these",
                     .where = {.moment = snapshot.at, .feed_number = snapshot.as_of}});
            }
            books_.learn(snapshot.orders);
        }
    }

    void take(const FeedMessage& message) {
        if (next_snapshot_ < snapshots_.size()) pass_snapshots(message.sequence);
        const FlatBooks::Change change = books_.apply(message.bytes);
        if (change.wrong != nullptr) does_not_fit(message, change);
        if (change.match_number != 0) take_trade(message, change);
        while (has_line_ && line_.sequence < message.sequence) {
            no_reason_for_line();
            read_line();
        }
        const bool has_its_line = has_line_ && line_.sequence == message.sequence;
        if (change.product_id == 0) {
            if (!has_its_line) return;
            no_reason_for_line();
        } else if (has_its_line) {
            compare(change.product_id, message);
        } else {
            return line_is_missing(message);
        }
        read_line();
    }

    void does_not_fit(const FeedMessage& message, const FlatBooks::Change& change) {
        findings_.contradiction(bench_rule::feed_message,
                                {.expected = "a message that fits the book that the feed has built",
                                 .got = "\"" + client::dom_text(message.bytes) + "\", which " + change.wrong,
                                 .where = {.moment = message.at, .feed_number = message.sequence}});
        books_.product(change.product_id).uncertain = true;
    }

    void take_trade(const FeedMessage& message, const FlatBooks::Change& change) {
        if (match_number_ != 0 && change.match_number != match_number_ + 1) {
            findings_.contradiction(bench_rule::trade,
                                    {.expected = "match number " + std::to_string(match_number_ + 1),
                                     .got = "match number " + std::to_string(change.match_number),
                                     .where = {.moment = message.at, .feed_number = message.sequence}});
        }
        match_number_ = change.match_number;
        trades.push_back({change.match_number, change.order_id, change.price, change.quantity, message.sequence});
    }

    void compare(std::uint32_t product_id, const FeedMessage& message) {
        const FlatBooks::Product& book = books_.product(product_id);
        if (book.uncertain) {
            ++not_compared;
            return;
        }
        if (line_.product_id == product_id && is_symbol_of(product_id, book) && book.bids.shows(line_.bids) &&
            book.asks.shows(line_.asks)) {
            return;
        }
        findings_.contradiction(
            bench_rule::book_line,
            {.expected = "product " + std::to_string(product_id) + ": bids " + book.bids.text() + ", asks " +
                         book.asks.text() + ", as the feed has built it",
             .got = "product " + std::to_string(line_.product_id) + " " + std::string(line_.symbol) + ": bids " +
                    levels_text(line_.bids) + ", asks " + levels_text(line_.asks) + " in line " +
                    std::to_string(reader_.line()) + " of books.jsonl",
             .where = {.moment = message.at, .feed_number = message.sequence}});
    }

    // The feed cuts a symbol at its eleven characters, the truth does not.
    bool is_symbol_of(std::uint32_t product_id, const FlatBooks::Product& book) const {
        const auto& symbols = journal_.facts.symbols;
        const bool as_started = product_id - 1 < symbols.size() && line_.symbol == symbols[product_id - 1];
        return as_started || line_.symbol.starts_with(book.symbol);
    }

    void no_reason_for_line() {
        findings_.contradiction(
            bench_rule::book_line,
            {.expected = "no line for message " + std::to_string(line_.sequence) + ", which changes no book",
             .got = "line " + std::to_string(reader_.line()) + " of books.jsonl",
             .where = {.feed_number = line_.sequence}});
    }

    // The lines that were never written because of the venue's end are those behind all others.
    void line_is_missing(const FeedMessage& message) {
        const std::string otherwise = has_line_ ? "" : log_.books_incomplete;
        if (!otherwise.empty()) {
            ++not_compared;
            return;
        }
        findings_.contradiction(bench_rule::book_line,
                                {.expected = "a line for message " + std::to_string(message.sequence) + ", \"" +
                                             client::dom_text(message.bytes) + "\"",
                                 .got = "none in books.jsonl",
                                 .where = {.moment = message.at, .feed_number = message.sequence}});
    }

    // Lines of what was published behind the end of the recording.
    void pass_rest() {
        for (; has_line_; read_line()) {
            if (line_.sequence < next_) {
                no_reason_for_line();
                continue;
            }
            note_published(line_.sequence);
            ++not_compared;
        }
    }

    const Journal& journal_;
    const BenchLog& log_;
    RecordedFeed& feed_;
    BenchFindings& findings_;
    BookTruthReader reader_;
    BookLine line_;
    bool has_line_ = false;
    std::uint64_t before_ = 0;  // the largest number of the lines before
    std::uint64_t next_ = 1;    // number of the next message
    std::uint64_t match_number_ = 0;
    FlatBooks books_;
    std::vector<FeedSnapshot> snapshots_;
    std::size_t next_snapshot_ = 0;
};

}  // namespace

std::vector<Trade> audit_books(const Journal& journal, const BenchLog& log, RecordedFeed& feed, Verdict& verdict,
                               BenchFindings& findings, const std::function<void(double)>& progress) {
    BookAudit audit(journal, log, feed, findings);
    audit.audit(progress);
    verdict.counts.book_lines = audit.lines;
    verdict.counts.book_lines_not_compared = audit.not_compared;
    judge_gaps(log, feed, findings);
    return std::move(audit.trades);
}

}  // namespace kavo::companion
