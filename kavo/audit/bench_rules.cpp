#include "kavo/audit/bench_rules.h"

#include <utility>

#include "kavo/audit/audit.h"
#include "kavo/audit/bench_books.h"
#include "kavo/audit/bench_counters.h"
#include "kavo/audit/bench_feed.h"
#include "kavo/audit/bench_log.h"
#include "kavo/audit/bench_orders.h"
#include "kavo/audit/bench_streams.h"

namespace kavo::companion {

namespace bench_rule {
const Rule book_line{"bench.book-line",
                     "The book truth has a line for each message that changes a book, and it shows that very book.",
                     "docs/bench.md#book-truth"};
const Rule counter{"bench.counter", "The final report counts what has happened.", "docs/bench.md#reports"};
const Rule fault_line{"bench.fault-line", "A fault of the feed happens when the venue says so, and then it happens.",
                      "docs/bench.md#feed-faults"};
const Rule feed_heartbeat{"bench.feed-heartbeat", "A heartbeat of the feed carries the last number used.",
                          "docs/protocol_dom.md#mach-packets-and-datagrams"};
const Rule feed_message{"bench.feed-message", "Every datagram is a run of whole messages that fit the book.",
                        "docs/protocol_dom.md#messages"};
const Rule feed_number{"bench.feed-number", "Numbers of the feed begin at 1, are never skipped and never used twice.",
                       "docs/protocol_dom.md#mach-packets-and-datagrams"};
const Rule order_life{"bench.order-life", "The lines of an order follow from each other: ids, executed, leaves.",
                      "docs/bench.md#order-truth"};
const Rule order_line{"bench.order-line",
                      "Each line of the order truth belongs to a message to its user, and each such message to a line.",
                      "docs/bench.md#order-truth"};
const Rule recording{"bench.recording", "All that happened in the run is in its folder.", "docs/kavo.md#the-folder"};
const Rule recovery{"bench.recovery", "What is sent again is what was published, all of it that was asked for.",
                    "docs/protocol_dom.md#recovery-the-retransmission-service"};
const Rule relay{"bench.relay", "The relay passes on what it is given, unless it is told otherwise.",
                 "docs/kavo.md#the-relay"};
const Rule stream{"bench.stream", "The numbers of a user's stream run on, and a replay repeats what they stood for.",
                  "docs/protocol_esesm.md#streams-and-replay-on-order-entry"};
const Rule trade{"bench.trade", "Order entry and the feed tell of the same trade under one match number.",
                 "docs/protocol_meo.md#late-executions"};
const Rule venue_end{"bench.venue-end", "The venue runs until it is asked to stop.", "docs/bench.md#exit-status"};
}  // namespace bench_rule

std::vector<const Rule*> bench_rules() {
    using namespace bench_rule;
    return {&book_line,  &counter,   &fault_line, &feed_heartbeat, &feed_message, &feed_number, &order_life,
            &order_line, &recording, &recovery,   &relay,          &stream,       &trade,       &venue_end};
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
    const BenchLog log = read_bench_log(journal, findings);
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
