#include "plan.h"

#include <algorithm>
#include <cstddef>

namespace kavo::simulation {

namespace {

constexpr std::uint64_t start_second = 1'700'000'000;

// Half of the periodic faults are off, and those that are on come often; always is seldom.
std::uint32_t some_every(Dice& dice) {
    if (dice.one_in(2)) return 0;
    return dice.one_in(20) ? 1 : static_cast<std::uint32_t>(dice.between(2, 12));
}

std::vector<Symbol> some_symbols(Dice& dice) {
    std::vector<Symbol> symbols{{"AAPL", 190.0}, {"SPY", 520.0}, {"ABCDEFGHIJK", 41.237}};
    if (dice.one_in(12)) symbols[1] = {"PENY", 0.07};  // its lower quotes wrap to prices beyond all others
    symbols.resize(static_cast<std::size_t>(dice.between(1, symbols.size())));
    return symbols;
}

FeedFaults some_faults(Dice& dice) {
    FeedFaults faults;
    if (dice.one_in(3)) return faults;
    faults.drop_every = some_every(dice);
    faults.dup_every = some_every(dice);
    faults.reorder_every = some_every(dice);
    if (dice.one_in(2)) {
        faults.drop_burst_start = dice.between(0, 60);
        faults.drop_burst_count = static_cast<std::uint32_t>(dice.between(1, 30));
    }
    return faults;
}

model::Bench some_bench(Dice& dice) {
    model::Bench bench;
    if (dice.one_in(4)) return bench;
    if (dice.one_in(3)) bench.disconnect_after = static_cast<std::uint32_t>(dice.between(1, 40));
    if (dice.one_in(4)) bench.scenario_lapse_ms = static_cast<std::int32_t>(dice.between(1, 6000));
    if (dice.one_in(40)) bench.scenario_lapse_ms = -5;
    for (model::Bench::Fault& fault : bench.faults) fault.script.every = some_every(dice);
    return bench;
}

EngineSettings some_engine(Dice& dice) {
    EngineSettings engine;
    engine.step_bps = dice.pick({0.0, 0.8, 0.8, 3.0});
    engine.touch_hit = dice.pick({0.0, 0.15, 0.5, 1.0});
    engine.quiet = dice.one_in(2);
    engine.session = dice.pick<std::uint8_t>({1, 1, 7, 255});
    engine.acod = dice.one_in(2);
    engine.max_order_size = dice.pick<std::uint32_t>({25'000, 25'000, 1000, 0xffffffff});
    return engine;
}

// On such a day much is forgotten that somebody comes back for, and little is done at once. The history holds a
// datagram at least.
model::Limits some_limits(Dice& dice) {
    model::Limits limits;
    limits.feed_messages = static_cast<std::size_t>(dice.between(60, 500));
    limits.stream_messages = static_cast<std::size_t>(dice.between(1, 300));
    limits.closed_ids = static_cast<std::size_t>(dice.between(1, 40));
    limits.held_bytes = dice.pick<std::size_t>({3, 71, 134, 137, 205, 268});  // packets of what clients say, whole
    limits.accepts = static_cast<int>(dice.between(1, 3));
    limits.commands = static_cast<int>(dice.between(1, 3));
    limits.send_bytes = static_cast<std::size_t>(dice.between(50, 5'000));
    return limits;
}

}  // namespace

Options Plan::options() const {
    Options options;
    options.session = engine.session;
    options.symbols = "";
    for (const Symbol& symbol : symbols) {
        options.symbols += (options.symbols.empty() ? "" : ",") + symbol.name + ":" + std::to_string(symbol.reference);
    }
    options.interval_ms = tick_interval_ms;
    options.step_bps = engine.step_bps;
    options.touch_hit = engine.touch_hit;
    options.seed = market_seed;
    options.drop_every = faults.drop_every;
    options.drop_burst = std::to_string(faults.drop_burst_start) + ":" + std::to_string(faults.drop_burst_count);
    options.dup_every = faults.dup_every;
    options.reorder_every = faults.reorder_every;
    options.acod = engine.acod;
    options.max_order_size = engine.max_order_size;
    options.quiet = engine.quiet;
    if (bench.scripted()) options.scenario = bench.scenario();
    return options;
}

Plan plan_for(std::uint64_t seed, Dice& dice) {
    Plan plan;
    plan.seed = seed;
    plan.symbols = some_symbols(dice);
    plan.engine = some_engine(dice);
    plan.market_seed = static_cast<std::uint32_t>(dice.bits());
    plan.tick_interval_ms = dice.pick({0, 5, 40, 40, 250, -1});
    plan.control_port = !dice.one_in(3);
    plan.faults = some_faults(dice);
    plan.bench = some_bench(dice);
    plan.passes = static_cast<unsigned>(dice.between(100, 400));
    plan.clients = static_cast<unsigned>(dice.between(2, 7));
    plan.receivers = static_cast<unsigned>(dice.between(1, 3));
    plan.restless_clock = dice.one_in(3);
    plan.descriptors_run_out = seed % 8 == 5;
    plan.small_limits = seed % 4 == 2;
    if (plan.small_limits) plan.limits = some_limits(dice);
    plan.start_ms = dice.between(1, 10'000'000);
    plan.start_wall_ns = start_second * ns_per_second + dice.below(ns_per_second);
    return plan;
}

}  // namespace kavo::simulation
