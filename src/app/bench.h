// Everything that makes the simulator a test bench: the scripted misbehaviour, the requests of the person at the
// controls, what has been counted, and the log of what really happened to every order.
#pragma once

#include <array>
#include <cstdint>
#include <fstream>
#include <string>
#include <string_view>

namespace kavo {

struct BenchCounters {
    std::uint64_t orders = 0;  // new orders that passed every check
    std::uint64_t accepts = 0;
    std::uint64_t fills = 0;     // one for each side that is a client
    std::uint64_t partials = 0;  // partial fills that fired
    std::uint64_t cancels = 0;   // by the system-cancel routine, whatever the cause
    std::uint64_t replaces = 0;
    std::uint64_t rejects = 0;          // scripted rejects only
    std::uint64_t replace_rejects = 0;  // for a duplicate id, a wrong participant, price or size
    std::uint64_t unsolicited_cancels = 0;
    std::uint64_t race_fills = 0;
    std::uint64_t late_cancels = 0;
    std::uint64_t stale_cancels = 0;
    std::uint64_t logins = 0;
    std::uint64_t replays = 0;   // logins that replayed at least one message
    std::uint64_t replayed = 0;  // messages

    // Never reported: what the every-N settings count, and two that nothing else tells.
    std::uint64_t partial_candidates = 0;  // fills that would have emptied a client's order
    std::uint64_t cancel_requests = 0;     // that could have been accepted
    std::uint64_t replace_requests = 0;    // that could have been accepted
    std::uint64_t disconnect_cancels = 0;
    std::uint64_t rejected_logins = 0;
};

// The counters that are reported, in the order of the report.
struct ReportedCounter {
    std::string_view label;
    std::uint64_t BenchCounters::*value;
};
inline constexpr std::array<ReportedCounter, 15> reported_counters{{
    {"orders", &BenchCounters::orders},
    {"accepts", &BenchCounters::accepts},
    {"fills", &BenchCounters::fills},
    {"partials", &BenchCounters::partials},
    {"cancels", &BenchCounters::cancels},
    {"replaces", &BenchCounters::replaces},
    {"rejects", &BenchCounters::rejects},
    {"replace_rejects", &BenchCounters::replace_rejects},
    {"unsolicited_cancels", &BenchCounters::unsolicited_cancels},
    {"race_fills", &BenchCounters::race_fills},
    {"late_cancels", &BenchCounters::late_cancels},
    {"stale_cancels", &BenchCounters::stale_cancels},
    {"logins", &BenchCounters::logins},
    {"replays", &BenchCounters::replays},
    {"replayed", &BenchCounters::replayed},
}};

struct Bench {
    // The scenario: each `every` fires on its every Nth occasion, 0 is never.
    std::string name;
    std::uint32_t disconnect_after = 0;  // orders; drops the client that sent the one that reaches it, once
    std::uint32_t reject_every = 0;
    std::uint32_t partial_fill_every = 0;
    std::uint32_t fill_on_cancel_every = 0;
    std::uint32_t unsolicited_cancel_every = 0;
    std::uint32_t replace_reject_every = 0;
    std::int32_t lapse_ms = 0;  // length of the silence that begins with the first accepted login; 0 or less is none
    bool disconnect_done = false;
    bool scenario_lapse_started = false;

    // Asked for while running: the next K occasions.
    std::uint32_t reject_next = 0;
    std::uint32_t partial_next = 0;
    std::uint32_t fill_on_cancel_next = 0;
    std::uint32_t unsolicited_cancel_next = 0;
    std::uint32_t replace_reject_next = 0;
    bool disconnect_requested = false;

    // A lapse is a silence on purpose: no heartbeats and no messages, so that clients go away and log in again.
    std::uint64_t lapse_until_ms = 0;  // steady clock
    bool lapse_announced = false;

    BenchCounters counters;
    std::ofstream order_truth;  // one JSON line for each order event

    // Opens the order truth log for appending. One that cannot be opened stays silent, and its lines are skipped.
    void open_order_truth(const std::string& path);

    // Reads "key=value" items separated by commas and says what is armed. Unknown keys and items without a value are
    // skipped; a value that is no number throws what the standard conversions throw, and nobody catches it.
    void arm_scenario(const std::string& text);

    void start_lapse(std::uint64_t now_ms, std::uint64_t length_ms);
    bool in_lapse(std::uint64_t now_ms) const { return now_ms < lapse_until_ms; }

    // True when any knob of the scenario is set; the name alone is none.
    bool scripted() const;
};

}  // namespace kavo
