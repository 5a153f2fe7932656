// The settings of one simulated day: those a person would have put on the command line and into the scenario, and who
// takes part.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "app/options.h"
#include "dice.h"
#include "feed/dom_feed.h"

namespace kavo::simulation {

struct Symbol {
    std::string name;
    double reference = 100.0;  // currency units
};

// The numbers of a scenario, by the names that its text gives them.
struct Scenario {
    std::uint32_t disconnect_after = 0;
    std::int32_t lapse_ms = 0;
    std::uint32_t reject_every = 0;
    std::uint32_t partial_fill_every = 0;
    std::uint32_t fill_on_cancel_every = 0;
    std::uint32_t unsolicited_cancel_every = 0;
    std::uint32_t replace_reject_every = 0;

    bool empty() const;
    std::string text() const;
};

struct Plan {
    std::uint64_t seed = 0;
    std::vector<Symbol> symbols;
    EngineSettings engine;
    std::uint32_t market_seed = 42;
    std::int32_t tick_interval_ms = 40;
    bool control_port = false;  // whether a person sits at the controls
    FeedFaults faults;
    Scenario scenario;

    unsigned passes = 0;
    unsigned clients = 0;
    unsigned receivers = 0;
    bool restless_clock = false;  // time passes within a pass too, not only between two
    std::uint64_t start_ms = 0;   // steady clock
    std::uint64_t start_wall_ns = 0;

    // As they would stand on the command line and in the environment.
    Options options() const;
};

Plan plan_for(std::uint64_t seed, Dice& dice);

}  // namespace kavo::simulation
