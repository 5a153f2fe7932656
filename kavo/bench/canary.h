// Wakes every ten milliseconds in a thread of its own, and tells when the machine let it wait much longer than it asked
// for: then whoever is late may be late for no fault of its own.
#pragma once

#include <atomic>
#include <chrono>
#include <thread>

#include "kavo/basics/loop.h"
#include "kavo/basics/run_log.h"
#include "kavo/bench/descriptor.h"

namespace kavo::companion {

class Canary {
public:
    // Writes a note `late` to the log, from the loop, for each wait that was more than 50 ms too long.
    Canary(Loop& loop, RunLog& log);
    ~Canary();
    Canary(const Canary&) = delete;
    Canary& operator=(const Canary&) = delete;

    // Writes what has been seen and not been written yet.
    void drain();

private:
    using Clock = std::chrono::steady_clock;
    void watch_the_clock(Clock::time_point due);

    Loop& loop_;
    RunLog& log_;
    Descriptor told_, tells_;  // a pipe: only the loop writes to the log
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

}  // namespace kavo::companion
