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

std::string session_state(const OrderEntry& order_entry) {
    return order_entry.anyone_logged_in() ? " session=up" : " session=down";
}

void print_bench_report(const Bench& bench, const DomFeed& feed, const OrderEntry& order_entry) {
    std::fprintf(stderr, "bench: stats %s next_seq=%llu %s%s\n", bench_statistics(bench.counters).c_str(),
                 printable(feed.next_sequence()), fault_summary(feed.counters).c_str(),
                 session_state(order_entry).c_str());
}

// The clients are all that were ever accepted, deliberately: it shows how often a client had to come back.
void print_feed_report(const DomFeed& feed, const Engine& engine, const OrderEntry& order_entry) {
    const FeedCounters& counters = feed.counters;
    std::fprintf(stderr,
                 "[kavo_me] dom msgs %llu packets %llu dropped %llu retrans %llu refreshes %llu resting %zu clients "
                 "%zu\n%s\n",
                 printable(counters.messages), printable(counters.packets), printable(counters.dropped),
                 printable(counters.retransmissions), printable(counters.refreshes), engine.resting_orders(),
                 order_entry.clients_ever(), fault_summary(counters).c_str());
}

void print_final_report(const Bench& bench, const DomFeed& feed) {
    std::fprintf(stderr, "%s\nbench: stats %s next_seq=%llu\n[kavo_me] stopped\n", fault_summary(feed.counters).c_str(),
                 bench_statistics(bench.counters).c_str(), printable(feed.next_sequence()));
}

}  // namespace kavo
