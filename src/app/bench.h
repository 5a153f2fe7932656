// Everything that makes the simulator a test bench: the scripted misbehaviour, the requests of the person at the
// controls, and what has been counted.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "common/commentary.h"

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
inline constexpr auto reported_counters = std::to_array<ReportedCounter>({
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
});

// The scripted faults of order entry.
enum class Scripted { reject, partial_fill, fill_on_cancel, unsolicited_cancel, replace_reject };

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

    // Reads "key=value" items separated by commas and says what is armed. Unknown keys and items without a value are
    // skipped; a value that is no number throws what the standard conversions throw, and nobody catches it.
    void arm_scenario(const std::string& text, const Commentary& commentary);
    // True when any knob of the scenario is set; the name alone is none.
    bool scripted() const;

    // Whether the fault fires on the latest of its occasions, which has been counted.
    bool fires(Scripted fault);

    void start_lapse(std::uint64_t now_ms, std::uint64_t length_ms);
    bool in_lapse(std::uint64_t now_ms) const { return now_ms < lapse_until_ms; }
    // The length of the lapse that has begun and was not announced yet: once, or nothing.
    std::optional<std::uint64_t> lapse_to_announce(std::uint64_t now_ms);
    // A login was accepted: the first one begins the scenario's lapse.
    void client_logged_in(std::uint64_t now_ms);
    // Whether the client whose request was just handled is to be dropped: by the scenario once in a run, or because the
    // person at the controls has asked for it. Both leave the mark of the scenario.
    bool takes_disconnect();
};

// All that belongs to a scripted fault, in the order of their names above.
struct ScriptedFault {
    std::string_view scenario_key;  // sets `every`
    std::string_view control_word;  // sets `next`
    std::string_view said;          // in the line that tells what is armed
    std::uint32_t Bench::*every;
    std::uint32_t Bench::*next;
    std::uint64_t BenchCounters::*occasions;
};
inline constexpr auto scripted_faults = std::to_array<ScriptedFault>({
    {"reject_every", "reject", "reject", &Bench::reject_every, &Bench::reject_next, &BenchCounters::orders},
    {"partial_fill_every", "partial", "partial", &Bench::partial_fill_every, &Bench::partial_next,
     &BenchCounters::partial_candidates},
    {"fill_on_cancel_every", "fill_on_cancel", "fill-on-cancel", &Bench::fill_on_cancel_every,
     &Bench::fill_on_cancel_next, &BenchCounters::cancel_requests},
    {"unsolicited_cancel_every", "unsolicited_cancel", "unsolicited cancel", &Bench::unsolicited_cancel_every,
     &Bench::unsolicited_cancel_next, &BenchCounters::accepts},
    {"replace_reject_every", "replace_reject", "replace reject", &Bench::replace_reject_every,
     &Bench::replace_reject_next, &BenchCounters::replace_requests},
});

}  // namespace kavo
