#include "app/statistics.h"

#include <gtest/gtest.h>

#include "model/bench.h"
#include "support/said.h"
#include "support/venue.h"

namespace kavo::test {
namespace {

const std::string no_events = model::Bench().statistics();

TEST(FaultSummary, CountsWhatWasDroppedAsNotSent) {
    FeedCounters counters;
    EXPECT_EQ(fault_summary(counters), "kavo_me faults: sent 0 dropped 0 duplicated 0 reordered 0");
    counters = {.messages = 1,
                .packets = 100,
                .retransmissions = 2,
                .refreshes = 3,
                .dropped = 30,
                .duplicated = 4,
                .reordered = 5};
    EXPECT_EQ(fault_summary(counters), "kavo_me faults: sent 70 dropped 30 duplicated 4 reordered 5");
}

TEST(FaultSummary, HasNothingToTellButWhatWasSentOfAFeedWithoutFaults) {
    Venue venue({.seeded = true});
    EXPECT_EQ(fault_summary(venue.feed.counters),
              "kavo_me faults: sent " + std::to_string(venue.datagrams.size()) + " dropped 0 duplicated 0 reordered 0");
}

TEST(BenchStatistics, TellFifteenCountersInAFixedOrder) {
    BenchCounters counters;
    EXPECT_EQ(bench_statistics(counters), no_events);
    counters.orders = 1;
    counters.accepts = 2;
    counters.fills = 3;
    counters.partials = 4;
    counters.cancels = 5;
    counters.replaces = 6;
    counters.rejects = 7;
    counters.replace_rejects = 8;
    counters.unsolicited_cancels = 9;
    counters.race_fills = 10;
    counters.late_cancels = 11;
    counters.stale_cancels = 12;
    counters.logins = 13;
    counters.replays = 14;
    counters.replayed = 18'446'744'073'709'551'615u;
    // Never reported.
    counters.partial_candidates = counters.cancel_requests = counters.replace_requests = 99;
    counters.disconnect_cancels = counters.rejected_logins = 99;
    EXPECT_EQ(bench_statistics(counters),
              "orders=1 accepts=2 fills=3 partials=4 cancels=5 replaces=6 rejects=7 replace_rejects=8 "
              "unsolicited_cancels=9 race_fills=10 late_cancels=11 stale_cancels=12 logins=13 replays=14 "
              "replayed=18446744073709551615");
}

TEST(SessionState, IsUpWhileAnybodyIsLoggedIn) {
    Venue venue;
    const ClientHandle alice = venue.connect();
    EXPECT_EQ(session_state(venue.order_entry), " session=down");
    venue.send(alice, 'l', login("alice").payload());
    EXPECT_EQ(session_state(venue.order_entry), " session=up");
    venue.send(alice, 'X');
    EXPECT_EQ(session_state(venue.order_entry), " session=down");
}

TEST(BenchReport, TellsTheCountersTheNextNumberTheFaultsAndTheSession) {
    Venue venue;
    EXPECT_EQ(said_during([&] { say_bench_report(venue.bench, venue.feed, venue.order_entry, standard_error); }),
              "bench: stats " + no_events +
                  " next_seq=1 kavo_me faults: sent 0 dropped 0 duplicated 0 reordered 0 session=down\n");
    const ClientHandle alice = venue.log_in("alice");
    venue.request(alice, buy("b1").at("1.00").bytes());
    // Two messages have gone out on the feed: the second and the order.
    const model::Bench counted{.orders = 1, .accepts = 1, .logins = 1};
    EXPECT_EQ(said_during([&] { say_bench_report(venue.bench, venue.feed, venue.order_entry, standard_error); }),
              "bench: stats " + counted.statistics() +
                  " next_seq=3 kavo_me faults: sent 1 dropped 0 duplicated 0 reordered 0 session=up\n");
}

TEST(FeedReport, TellsTheFeedTheBookAndEveryConnectionThereEverWas) {
    Venue venue;
    const ClientHandle alice = venue.log_in("alice");
    venue.request(alice, buy("b1").at("1.00").bytes());
    venue.request(alice, buy("b2").at("1.01").bytes());
    venue.send(alice, 'X');
    const ClientHandle again = venue.log_in("alice");
    venue.order_entry.client(again).readable = false;
    venue.order_entry.serve_clients();  // which forgets the closed one, but not that it was there
    venue.feed.counters.retransmissions = 7;
    venue.feed.counters.refreshes = 8;
    venue.feed.counters.dropped = 1;
    EXPECT_EQ(said_during([&] { say_feed_report(venue.feed, venue.engine, venue.order_entry, standard_error); }),
              "[kavo_me] dom msgs 3 packets 2 dropped 1 retrans 7 refreshes 8 resting 2 clients 2\n"
              "kavo_me faults: sent 1 dropped 1 duplicated 0 reordered 0\n");
}

TEST(FinalReport, EndsWithTheWordThatTheProcessHasStopped) {
    Venue venue;
    venue.enter(buy("b1").at("1.00"));
    const model::Bench counted{.orders = 1, .accepts = 1};
    EXPECT_EQ(said_during([&] { say_final_report(venue.bench, venue.feed, standard_error); }),
              "kavo_me faults: sent 0 dropped 0 duplicated 0 reordered 0\nbench: stats " + counted.statistics() +
                  " next_seq=3\n[kavo_me] stopped\n");
}

}  // namespace
}  // namespace kavo::test
