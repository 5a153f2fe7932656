#include "app/statistics.h"

#include "common/text.h"
#include "session/order_entry.h"

namespace kavo {

namespace {

std::string numbered_statistics(const Bench& bench, const DomFeed& feed) {
    std::string text = bench_statistics(bench.counters) + " next_seq=";
    append_number(text, feed.next_sequence());
    return text;
}

}  // namespace

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

std::string bench_report(const Bench& bench, const DomFeed& feed, const OrderEntry& order_entry) {
    return numbered_statistics(bench, feed) + " " + fault_summary(feed.counters) + session_state(order_entry);
}

void say_bench_report(const Bench& bench, const DomFeed& feed, const OrderEntry& order_entry,
                      const Commentary& commentary) {
    commentary.say("bench: stats %s\n", bench_report(bench, feed, order_entry).c_str());
}

// The clients are all that were ever accepted, deliberately: it shows how often a client had to come back.
void say_feed_report(const DomFeed& feed, const Engine& engine, const OrderEntry& order_entry,
                     const Commentary& commentary) {
    const FeedCounters& counters = feed.counters;
    commentary.say(
        "[kavo_me] dom msgs %llu packets %llu dropped %llu retrans %llu refreshes %llu resting %zu clients "
        "%zu\n%s\n",
        printable(counters.messages), printable(counters.packets), printable(counters.dropped),
        printable(counters.retransmissions), printable(counters.refreshes), engine.books.resting_orders(),
        order_entry.clients_ever(), fault_summary(counters).c_str());
}

void say_final_report(const Bench& bench, const DomFeed& feed, const Commentary& commentary) {
    commentary.say("%s\nbench: stats %s\n[kavo_me] stopped\n", fault_summary(feed.counters).c_str(),
                   numbered_statistics(bench, feed).c_str());
}

}  // namespace kavo
