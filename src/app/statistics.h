// What the simulator says about itself: the texts of its counters, and the lines made of them.
#pragma once

#include <string>

namespace kavo {

struct Bench;
struct BenchCounters;
struct FeedCounters;
class Commentary;
class DomFeed;
class Engine;
class OrderEntry;

// Texts without a line end.
std::string fault_summary(const FeedCounters& counters);
std::string bench_statistics(const BenchCounters& counters);
std::string session_state(const OrderEntry& order_entry);  // " session=up" when anyone is logged in
// All of these, and the number of the next feed message.
std::string bench_report(const Bench& bench, const DomFeed& feed, const OrderEntry& order_entry);

// Every two seconds while the bench is active, and every ten seconds always.
void say_bench_report(const Bench& bench, const DomFeed& feed, const OrderEntry& order_entry,
                      const Commentary& commentary);
void say_feed_report(const DomFeed& feed, const Engine& engine, const OrderEntry& order_entry,
                     const Commentary& commentary);

// The last words of a process that was stopped by a signal.
void say_final_report(const Bench& bench, const DomFeed& feed, const Commentary& commentary);

}  // namespace kavo
