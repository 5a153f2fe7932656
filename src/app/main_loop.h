// The one loop of the process: what a pass does, in which order, and when what is periodic falls due.
#pragma once

#include <poll.h>

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
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

// Where the snapshots of the books go; one that is not there is not made.
struct SnapshotWriters {
    std::function<void(const std::string& text)> book;
    std::function<void(const std::string& text)> bbo;
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
    bool control_port_open = false;
};

class MainLoop {
public:
    using Poll = std::function<int(pollfd* polled, nfds_t count, int timeout_ms)>;

    static constexpr std::uint64_t snapshot_interval_ms = 250;
    static constexpr std::uint64_t bench_report_interval_ms = 2'000;
    static constexpr std::uint64_t feed_report_interval_ms = 10'000;

    //   tick_interval_ms  0 ticks on every pass, a negative one never; may change while the loop runs
    //   wait              the system's poll, or a test's
    MainLoop(const LoopParts& parts, const LoopSockets& sockets, SnapshotWriters snapshots,
             const std::int32_t& tick_interval_ms, Poll wait = poll);

    // What a pass does, in this order.
    struct Step {
        std::string_view name;
        void (MainLoop::*run)();
    };
    static std::span<const Step> steps();
    void pass();
    // Sleeps until something arrives or can be sent on, and marks what has for the next pass.
    void wait_for_input();

    // Passes follow each other until SIGINT or SIGTERM asks for a stop.
    void run();

private:
    static constexpr int longest_wait_ms = 5;

    void drain_control_port() { parts_.control_port.drain(sockets_.control); }
    void accept_clients() { parts_.order_entry.accept_clients(); }
    void serve_clients() { parts_.order_entry.serve_clients(); }
    void continue_sending() { parts_.order_entry.continue_sending(); }
    void read_time() { now_ms_ = parts_.clock.steady_ms(); }
    void tick_market();
    void deliver_engine_output() { parts_.order_entry.deliver_engine_output(); }
    void announce_lapse() { parts_.order_entry.announce_lapse(now_ms_); }
    void run_client_timers() { parts_.order_entry.run_timers(now_ms_); }
    void report_bench();
    void send_feed_heartbeat() { parts_.feed.heartbeat_when_idle(); }
    void serve_receivers() { parts_.retransmission.serve(); }
    void write_snapshots();
    void report_feed();

    void watch();
    void mark(bool failed);

    LoopParts parts_;
    LoopSockets sockets_;
    SnapshotWriters snapshots_;
    const std::int32_t& tick_interval_ms_;
    Poll poll_;

    std::uint64_t now_ms_ = 0;  // of this pass

    // When what is periodic was last done.
    std::uint64_t last_tick_ms_;
    std::uint64_t last_bench_report_ms_;
    std::uint64_t last_feed_report_ms_;
    std::uint64_t last_snapshot_ms_ = 0;  // so the first pass writes the files

    std::vector<pollfd> polled_;
    int wait_ms_ = 0;
};

// From here on SIGINT and SIGTERM stop the loop.
void install_stop_handler();

}  // namespace kavo
