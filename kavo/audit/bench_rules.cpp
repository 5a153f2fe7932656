#include "kavo/audit/bench_rules.h"

#include <array>
#include <utility>

#include "kavo/audit/audit.h"
#include "kavo/audit/bench_books.h"
#include "kavo/audit/bench_counters.h"
#include "kavo/audit/bench_feed.h"
#include "kavo/audit/bench_log.h"
#include "kavo/audit/bench_orders.h"
#include "kavo/audit/bench_streams.h"

namespace kavo::companion {

namespace {

constexpr std::array bench_table{
    Rule{"bench.book-line", "The book truth has a line for each message that changes a book, and it shows that book.",
         "docs/bench.md#book-truth"},
    Rule{"bench.counter", "The final report counts what has happened.", "docs/bench.md#reports"},
    Rule{"bench.fault-line", "A fault of the feed happens when the venue says so, and then it happens.",
         "docs/bench.md#feed-faults"},
    Rule{"bench.feed-heartbeat", "A heartbeat of the feed carries the last number used.",
         "docs/protocol_dom.md#mach-packets-and-datagrams"},
    Rule{"bench.feed-message", "Every datagram is a run of whole messages that fit the book.",
         "docs/protocol_dom.md#messages"},
    Rule{"bench.feed-number", "Numbers of the feed begin at 1, are never skipped and never used twice.",
         "docs/protocol_dom.md#mach-packets-and-datagrams"},
    Rule{"bench.order-life", "The lines of an order follow from each other: ids, executed, leaves.",
         "docs/bench.md#order-truth"},
    Rule{"bench.order-line",
         "Each line of the order truth belongs to a message to its user, and each such message to a line.",
         "docs/bench.md#order-truth"},
    Rule{"bench.recording", "All that happened in the run is in its folder.", "docs/bench.md#files"},
    Rule{"bench.recovery", "What is sent again is what was published, all of it that was asked for.",
         "docs/protocol_dom.md#recovery-the-retransmission-service"},
    Rule{"bench.relay", "The relay passes on what it is given, unless it is told otherwise.",
         "docs/protocol_esesm.md#packets"},
    Rule{"bench.stream", "The numbers of a user's stream run on, and a replay repeats what they stood for.",
         "docs/protocol_esesm.md#streams-and-replay-on-order-entry"},
    Rule{"bench.trade", "Order entry and the feed tell of the same trade under one match number.",
         "docs/protocol_meo.md#common-rules"},
};

}  // namespace

namespace bench_rule {
const Rule& book_line = bench_table[0];
const Rule& counter = bench_table[1];
const Rule& fault_line = bench_table[2];
const Rule& feed_heartbeat = bench_table[3];
const Rule& feed_message = bench_table[4];
const Rule& feed_number = bench_table[5];
const Rule& order_life = bench_table[6];
const Rule& order_line = bench_table[7];
const Rule& recording = bench_table[8];
const Rule& recovery = bench_table[9];
const Rule& relay = bench_table[10];
const Rule& stream = bench_table[11];
const Rule& trade = bench_table[12];
}  // namespace bench_rule

std::span<const Rule> bench_rules() {
    return bench_table;
}

void BenchFindings::contradiction_unless(const std::string& otherwise, const Rule& rule, Finding finding) {
    if (otherwise.empty()) return contradiction(rule, std::move(finding));
    finding.because = otherwise;
    doubt(rule, std::move(finding));
}

void BenchFindings::add(const Rule& rule, Grade grade, Finding finding) {
    Kept& kept = kept_[{&rule, grade}];
    if (++kept.count > most_of_a_rule) return;
    kept.last = verdict_.findings.size();
    finding.rule = &rule;
    finding.grade = grade;
    verdict_.findings.push_back(std::move(finding));
}

void BenchFindings::finish() {
    for (const auto& [of, kept] : kept_) {
        if (kept.count <= most_of_a_rule) continue;
        std::string& because = verdict_.findings[kept.last].because;
        if (!because.empty()) because += "; ";
        because += "there are " + std::to_string(kept.count - most_of_a_rule) + " more like it";
    }
}

void audit_bench(const Journal& journal, Verdict& verdict, const std::function<void(double)>& progress) {
    const auto done = [&progress](double share) {
        if (progress) progress(share);
    };
    BenchFindings findings(verdict);
    for (const std::string& defect : journal.defects) {
        findings.doubt(bench_rule::recording, {.expected = "a whole file", .got = defect, .because = defect});
    }
    const BenchLog log = read_bench_log(journal);
    RecordedFeed feed = audit_feed(journal, log, verdict, findings);
    done(0.3);
    const std::vector<Trade> trades =
        audit_books(journal, log, feed, verdict, findings, [&done](double share) { done(0.3 + 0.6 * share); });
    const BenchStreams streams = audit_streams(journal, log, verdict, findings);
    audit_orders_of_bench(journal, log, feed, trades, streams, findings);
    audit_counters(journal, log, feed, findings);
    verdict.counts.order_lines = journal.orders.size();
    findings.finish();
    done(1);
}

}  // namespace kavo::companion
