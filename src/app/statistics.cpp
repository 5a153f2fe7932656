#include "app/statistics.h"

#include <cstdio>

#include "common/text.h"

namespace kavo {

std::string fault_summary(const FeedCounters& counters) {
    std::string text = "kavo_me faults: sent ";
    append_number(text, counters.packets - counters.dropped);
    text += " dropped ";
    append_number(text, counters.dropped);
    text += " duplicated ";
    append_number(text, counters.duplicated);
    text += " reordered ";
    append_number(text, counters.reordered);
    return text;
}

std::string bench_statistics(const BenchCounters& counters) {
    std::string text;
    for (const ReportedCounter& counter : reported_counters) {
        if (!text.empty()) text += ' ';
        text.append(counter.label).append("=");
        append_number(text, counters.*counter.value);
    }
    return text;
}

void print_final_report(const Bench& bench, const DomFeed& feed) {
    std::fprintf(stderr, "%s\nbench: stats %s next_seq=%llu\n[kavo_me] stopped\n", fault_summary(feed.counters).c_str(),
                 bench_statistics(bench.counters).c_str(), static_cast<unsigned long long>(feed.next_sequence()));
}

}  // namespace kavo
