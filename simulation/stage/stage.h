// The whole venue on a stage: the real engine, sessions, feed, recovery service and bench, with a transport in memory
// and clocks that are set by hand. What the main loop does in a pass is done here in the same order, and everything
// that passes the edge of the stage is put on the tape.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <vector>

#include "app/control_port.h"
#include "dice.h"
#include "feed/retransmission.h"
#include "plan.h"
#include "session/order_entry.h"
#include "stage/written.h"
#include "tape.h"

namespace kavo::simulation {

// The far end of a connection, which its owner writes to, reads from and leaves.
struct Peer {
    int fd = -1;  // the venue's descriptor
    Bytes to_venue;
    Bytes inbox;
    Bytes waiting;               // handed over with the promise of another packet, so not on its way yet
    bool accepted = false;       // by the venue
    bool closed = false;         // by the venue
    bool gone = false;           // set by the owner; the venue finds out in its next pass
    bool takes_nothing = false;  // set by the owner: its buffers are full, so what the venue sends is lost
};

class Stage {
public:
    Stage(const Plan& plan, std::uint64_t dice_seed, Tape& tape);
    Stage(const Stage&) = delete;
    Stage& operator=(const Stage&) = delete;

    void start_day();
    // One pass of the main loop, without its wait.
    void pass();
    // The wait: both clocks move on by as much, the wall clock by `wall_ns` more.
    void let_pass(std::uint64_t ms, std::int64_t wall_ns = 0);
    void print_final_report();

    Peer& connect_client() { return connect(client_calls_); }
    Peer& connect_receiver() { return connect(receiver_calls_); }
    // Carried out in the next pass.
    void command(const std::string& line) { commands_.push_back(line); }

    std::uint64_t now_ms() const { return clock_.steady_ms(); }
    std::uint64_t wall_ns() const { return clock_.wall_ns(); }
    const Plan& plan() const { return plan_; }
    // All that was sent so far, one datagram after the other.
    const std::vector<Bytes>& datagrams() const { return datagrams_; }
    // The book-change line that was written for the feed message with this number; empty when there was none.
    const std::string& change_line(std::uint64_t sequence) const;

private:
    using Peers = std::map<int, Peer*>;  // by descriptor, while the connection is open

    static Clock standing_clock(const Plan& plan);
    ClientWire client_wire();
    ReceiverWire receiver_wire();
    Peer& connect(std::vector<Peer*>& calls);
    int free_descriptor() const;
    void take_change_line(std::string_view line);
    void take_datagram(ByteView datagram);
    void begin(Step step);
    void record(Entry entry);
    void move_clock(std::uint64_t ms, std::int64_t wall_ns);
    void hand_over(int fd, ByteView packet, bool more_follows);
    void push(int fd);
    void close(Peers& peers, What what, int fd);

    void carry_out_commands();
    void accept_clients();
    void serve_clients();
    void tick_market(std::uint64_t now_ms);
    void report_bench(std::uint64_t now_ms);
    void serve_receivers();
    void accept_receivers();
    void write_snapshots(std::uint64_t now_ms);
    void report_feed(std::uint64_t now_ms);

    Plan plan_;
    Dice dice_;
    Tape& tape_;
    std::deque<Peer> peers_;  // stay where they are
    std::vector<Peer*> client_calls_;
    std::vector<Peer*> receiver_calls_;
    Peers clients_;
    Peers receivers_;
    std::vector<std::string> commands_;
    std::vector<Bytes> datagrams_;
    std::vector<std::string> change_lines_;  // by feed sequence

    CaughtCommentary commentary_;
    CaughtLog order_truth_;
    CaughtLog book_truth_;
    Clock clock_;
    std::int32_t tick_interval_ms_;
    Generator generator_;
    Bench bench_;
    DomFeed feed_;
    Engine engine_;
    OrderEntry order_entry_;
    Retransmission retransmission_;
    ControlPort control_port_;

    std::uint64_t last_tick_ms_ = 0;
    std::uint64_t last_bench_report_ms_ = 0;
    std::uint64_t last_feed_report_ms_ = 0;
    std::uint64_t last_snapshot_ms_ = 0;
};

}  // namespace kavo::simulation
