// The one loop of the process: what a pass does, in which order, and when what is periodic falls due.
#pragma once

#include <poll.h>

#include <cstdint>
#include <vector>

#include "common/clock.h"
#include "session/order_entry.h"

namespace kavo {

class MainLoop {
public:
    //   tick_interval_ms  0 ticks on every pass, a negative one never
    MainLoop(int meo_listener, OrderEntry& order_entry, Engine& engine, DomFeed& feed, const Clock& clock,
             std::int32_t tick_interval_ms);

    // Passes follow each other until SIGINT or SIGTERM asks for a stop.
    void run();

    std::int32_t tick_interval_ms;

private:
    static constexpr int longest_wait_ms = 5;

    void tick_market(std::uint64_t now_ms);
    void wait_for_input();

    int meo_listener_;
    OrderEntry& order_entry_;
    Engine& engine_;
    DomFeed& feed_;
    const Clock& clock_;

    // Periods start anew at the pass that acted on them: a late pass acts once, and catches up on nothing.
    std::uint64_t last_tick_ms_;

    bool connections_waiting_ = true;
    std::vector<pollfd> polled_;
};

// From here on SIGINT and SIGTERM stop the loop.
void install_stop_handler();

}  // namespace kavo
