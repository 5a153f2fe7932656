// One day of the venue on its stage, whoever acts there: how it passes, how it ends, and what the auditor says.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "audit/auditor.h"
#include "plan.h"
#include "stage/stage.h"
#include "tape.h"

namespace kavo::simulation {

struct DayReport {
    std::string finding;       // empty when there is none
    std::size_t position = 0;  // on the tape, where it was made
    std::uint64_t passes = 0;
    std::uint64_t feed_messages = 0;
    std::uint64_t datagrams = 0;
    std::vector<model::Bench::Counter> counters;  // the bench's, then the feed's faults and replies
};

class Day {
public:
    Day(const Plan& plan, std::uint64_t dice_seed) : stage(plan, dice_seed, tape) {}

    // Time passes, then the venue polls and has its pass.
    void pass_after(std::uint64_t ms);

    // Towards its end: the market stands still, and the venue is silent no longer.
    void calm_down();
    // Somebody asks the recovery service for every message of the feed, and the venue gives its last reports.
    void end();

    // Once it has ended.
    //   complaints  what whoever took part holds against the venue, or nothing; asked for when the auditor has no
    //   finding
    DayReport audit(const std::function<std::string(const Auditor& auditor)>& complaints = {}) const;

    Tape tape;
    Stage stage;

private:
    void ask_for_history();
};

}  // namespace kavo::simulation
