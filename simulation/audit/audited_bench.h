// The bench under audit: what its scripts make happen, what it must have counted, and its silences.
#pragma once

#include <cstdint>
#include <string>

#include "model/fault_script.h"
#include "plan.h"

namespace kavo::simulation {

struct AuditedBench {
    explicit AuditedBench(const Plan& plan);

    model::FaultScript reject;  // its occasions are the orders that passed every check
    model::FaultScript partial_fill;
    model::FaultScript fill_on_cancel;
    model::FaultScript unsolicited_cancel;
    model::FaultScript replace_reject;

    std::uint32_t disconnect_after;
    bool disconnect_done = false;
    bool disconnect_requested = false;

    std::int32_t scenario_lapse_ms;
    bool scenario_lapse_started = false;
    std::uint64_t lapse_until_ms = 0;
    bool lapse_announced = false;
    bool in_lapse(std::uint64_t now_ms) const { return now_ms < lapse_until_ms; }

    std::uint64_t accepts = 0;
    std::uint64_t fills = 0;
    std::uint64_t partials = 0;
    std::uint64_t cancels = 0;
    std::uint64_t replaces = 0;
    std::uint64_t rejects = 0;
    std::uint64_t replace_rejects = 0;
    std::uint64_t unsolicited_cancels = 0;
    std::uint64_t race_fills = 0;
    std::uint64_t late_cancels = 0;
    std::uint64_t stale_cancels = 0;
    std::uint64_t logins = 0;
    std::uint64_t replays = 0;
    std::uint64_t replayed = 0;

    // The text of all reports.
    std::string statistics() const;
};

}  // namespace kavo::simulation
