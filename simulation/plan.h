// The settings of one simulated day: those a person would have put on the command line and into the scenario, and who
// takes part.
#pragma once

#include <cstdint>
#include <vector>

#include "app/options.h"
#include "dice.h"
#include "feed/dom_feed.h"
#include "model/bench.h"
#include "model/records.h"

namespace kavo::simulation {

using model::Symbol;

struct Plan {
    std::uint64_t seed = 0;
    std::vector<Symbol> symbols;
    EngineSettings engine;
    std::uint32_t market_seed = 42;
    std::int32_t tick_interval_ms = 40;
    bool control_port = false;  // whether a person sits at the controls
    FeedFaults faults;
    model::Bench bench;  // as the scenario arms it
    model::Limits limits;
    bool small_limits = false;  // each of them is reached

    unsigned passes = 0;
    unsigned clients = 0;
    unsigned receivers = 0;
    bool descriptors_run_out = false;  // now and then nobody can be accepted
    bool restless_clock = false;       // time passes within a pass too, not only between two
    std::uint64_t start_ms = 0;        // steady clock
    std::uint64_t start_wall_ns = 0;

    // As they would stand on the command line and in the environment.
    Options options() const;
};

Plan plan_for(std::uint64_t seed, Dice& dice);

}  // namespace kavo::simulation
