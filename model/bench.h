// The test bench: the misbehaviour that is scripted or asked for, and what has been counted.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "model/fault_script.h"

namespace kavo::model {

struct Bench {
    // All that belongs to a scripted fault.
    struct Fault {
        std::string_view control_word;  // sets `next`
        std::string_view scenario_key;  // sets `every`
        std::string_view said;          // in the line that tells what is armed
        FaultScript script = {};
    };
    enum Kind : std::size_t { reject, partial_fill, fill_on_cancel, unsolicited_cancel, replace_reject };
    std::array<Fault, 5> faults{{
        {"reject", "reject_every", "reject"},
        {"partial", "partial_fill_every", "partial"},
        {"fill_on_cancel", "fill_on_cancel_every", "fill-on-cancel"},
        {"unsolicited_cancel", "unsolicited_cancel_every", "unsolicited cancel"},
        {"replace_reject", "replace_reject_every", "replace reject"},
    }};

    // One more occasion of a fault: whether it happens on it. An occasion that is counted anyway goes by that count.
    bool happens(Kind kind) { return faults.at(kind).script.happens(); }
    bool happens_on(Kind kind, std::uint64_t occasion) { return faults.at(kind).script.happens_on(occasion); }

    // The rest of the scenario, which the sessions carry out.
    std::uint32_t disconnect_after = 0;
    bool disconnect_done = false;
    bool disconnect_requested = false;
    std::int32_t scenario_lapse_ms = 0;
    bool scenario_lapse_started = false;
    std::uint64_t lapse_until_ms = 0;
    bool lapse_announced = false;
    bool in_lapse(std::uint64_t now_ms) const { return now_ms < lapse_until_ms; }

    std::uint64_t orders = 0;  // that passed every check
    std::uint64_t accepts = 0;
    std::uint64_t fills = 0;  // one for each side that is a client
    std::uint64_t partials = 0;
    std::uint64_t cancels = 0;
    std::uint64_t replaces = 0;
    std::uint64_t rejects = 0;          // scripted ones only
    std::uint64_t replace_rejects = 0;  // all but scripted ones
    std::uint64_t unsolicited_cancels = 0;
    std::uint64_t race_fills = 0;
    std::uint64_t late_cancels = 0;
    std::uint64_t stale_cancels = 0;
    std::uint64_t logins = 0;
    std::uint64_t replays = 0;
    std::uint64_t replayed = 0;
    std::uint64_t disconnect_cancels = 0;  // never reported

    struct Counter {
        std::string_view name;
        std::uint64_t value = 0;
    };
    // In the order of the report; the last three are the sessions'.
    std::vector<Counter> counters() const;
    // The text of all reports.
    std::string statistics() const;

    // Carries out a command, if it is one of the scripted faults'.
    void command(std::string_view word, std::uint32_t number);
    // What arms this bench as it stands, and the line that says so. A bench that nothing is scripted on has no
    // scenario.
    bool scripted() const;
    std::string scenario() const;
    std::string armed_line() const;
};

}  // namespace kavo::model
