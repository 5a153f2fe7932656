// The one loop of the process: what a pass does, in which order, and when what is periodic falls due.
#pragma once

#include <poll.h>

#include <cstdint>
#include <string>
#include <vector>

#include "app/control_port.h"
#include "common/clock.h"
#include "feed/retransmission.h"
#include "session/order_entry.h"

namespace kavo {

// Descriptors that are open for the whole run; -1 where there is none.
struct LoopSockets {
    int control = -1;
    int meo_listener = -1;
    int retransmission_listener = -1;
};

// Snapshots of the books; an empty path is none.
struct SnapshotPaths {
    std::string book;
    std::string bbo;
};

// What a pass works on.
struct LoopParts {
    const Clock& clock;
    Bench& bench;
    DomFeed& feed;
    Engine& engine;
    OrderEntry& order_entry;
    Retransmission& retransmission;
    ControlPort& control_port;
};

class MainLoop {
public:
    static constexpr std::uint64_t snapshot_interval_ms = 250;
    static constexpr std::uint64_t bench_report_interval_ms = 2'000;
    static constexpr std::uint64_t feed_report_interval_ms = 10'000;

    //   tick_interval_ms  0 ticks on every pass, a negative one never; may change while the loop runs
    MainLoop(const LoopParts& parts, const LoopSockets& sockets, SnapshotPaths snapshots,
             const std::int32_t& tick_interval_ms);

    // Passes follow each other until SIGINT or SIGTERM asks for a stop.
    void run();

private:
    static constexpr int longest_wait_ms = 5;

    void accept_clients();
    void tick_market(std::uint64_t now_ms);
    void report_bench(std::uint64_t now_ms);
    void write_snapshots(std::uint64_t now_ms);
    void report_feed(std::uint64_t now_ms);
    void wait_for_input();

    LoopParts parts_;
    LoopSockets sockets_;
    SnapshotPaths snapshots_;
    const std::int32_t& tick_interval_ms_;

    // When what is periodic was last done.
    std::uint64_t last_tick_ms_;
    std::uint64_t last_bench_report_ms_;
    std::uint64_t last_feed_report_ms_;
    std::uint64_t last_snapshot_ms_ = 0;  // so the first pass writes the files

    bool clients_waiting_ = true;
    std::vector<pollfd> polled_;
};

// From here on SIGINT and SIGTERM stop the loop.
void install_stop_handler();

}  // namespace kavo
