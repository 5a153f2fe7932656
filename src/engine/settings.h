// What the engine is told when it is built.
#pragma once

#include <cstdint>

namespace kavo {

struct EngineSettings {
    double step_bps = 0.8;          // scale of the reference's random steps, basis points
    double touch_hit = 0.15;        // how likely a synthetic order takes liquidity in a tick, 0..1
    std::int32_t interval_ms = 40;  // of the market's ticks; 0 ticks on every pass, a negative one never
    bool quiet = false;             // accepted, and deliberately without effect: the engine is never silenced
    std::uint8_t session = 1;
    bool acod = false;  // cancel a client's open orders when its connection goes away
    std::uint32_t max_order_size = 25'000;
};

}  // namespace kavo
