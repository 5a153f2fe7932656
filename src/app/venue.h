// The venue: all of its parts, put together from the options, and what a pass does with them, in which order. It knows
// no sockets: what surrounds it is handed in, so it runs on the network or in memory.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>

#include "app/control_port.h"
#include "app/options.h"
#include "feed/retransmission.h"
#include "session/order_entry.h"

namespace kavo {

// Where the snapshots of the books go; one that is not there is not made.
struct SnapshotWriters {
    std::function<void(const std::string& text)> book;
    std::function<void(const std::string& text)> bbo;
};

// How much is kept for whoever comes back for it, and of what a client says behind its replay. A test that is to see
// the end of it makes it little.
struct Limits {
    std::size_t history_messages = DomFeed::history_limit_messages;
    std::size_t stream_messages = SessionStream::limit_messages;  // of each user
    std::size_t closed_ids = ClosedIds::limit_ids;                // no more than that
    std::size_t held_bytes = MeoClient::most_held_bytes;
};

struct Surroundings {
    const Clock& clock;
    const Commentary& commentary;
    DomFeed::SendDatagram send_datagram;
    Transport clients;    // of order entry
    Transport receivers;  // of the retransmission service
    CommandSource commands;
    SnapshotWriters snapshots;
    Limits limits = {};
};

class Venue {
public:
    static constexpr std::uint64_t snapshot_interval_ms = 250;
    static constexpr std::uint64_t bench_report_interval_ms = 2'000;
    static constexpr std::uint64_t feed_report_interval_ms = 10'000;

    // Arms the scripted misbehaviour and opens the truth logs. Values of the options that no flag has checked throw
    // what the standard conversions throw: a burst or a scenario here, a symbol's price when the day starts.
    Venue(const Options& options, Surroundings surroundings);
    Venue(const Venue&) = delete;  // its parts refer to each other
    Venue& operator=(const Venue&) = delete;

    // Announces the session, publishes the definitions and seeds the books. From here on the periodic work falls due.
    void start_day();

    // What a pass does, in this order.
    struct Step {
        std::string_view name;
        void (Venue::*run)();
    };
    static std::span<const Step> steps();
    void pass();

    // The last words of a process that was stopped by a signal.
    void report_end() const;

    Bench bench;
    Generator generator;
    DomFeed feed;
    Engine engine;
    OrderEntry order_entry;
    Retransmission retransmission;
    ControlPort control_port;

private:
    void drain_control_port() { control_port.drain(); }
    void accept_clients() { order_entry.accept_clients(); }
    void serve_clients() { order_entry.serve_clients(); }
    void continue_sending() { order_entry.continue_sending(); }
    void read_time() { now_ms_ = clock_.steady_ms(); }
    void tick_market() { engine.tick_when_due(now_ms_); }
    void deliver_engine_output() { order_entry.deliver_engine_output(); }
    void announce_lapse() { order_entry.announce_lapse(now_ms_); }
    void run_client_timers() { order_entry.run_timers(now_ms_); }
    void report_bench();
    void send_feed_heartbeat() { feed.heartbeat_when_idle(); }
    void serve_receivers() { retransmission.serve(); }
    void write_snapshots();
    void report_feed();

    const Clock& clock_;
    const Commentary& commentary_;
    SnapshotWriters snapshots_;
    std::string symbols_;

    std::uint64_t now_ms_ = 0;  // of this pass

    // When what is periodic was last done.
    std::uint64_t last_bench_report_ms_;
    std::uint64_t last_feed_report_ms_;
    std::uint64_t last_snapshot_ms_ = 0;  // so the first pass writes the files
};

}  // namespace kavo
