// The whole venue on a stage, with transports in memory and clocks that are set by hand. Everything that passes the
// edge of the stage is put on the tape.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "app/venue.h"
#include "dice.h"
#include "plan.h"
#include "tape.h"

namespace kavo::simulation {

// The far end of a connection, which its owner writes to, reads from and leaves.
struct Peer {
    static constexpr std::size_t unlimited = ~std::size_t{0};

    int fd = -1;  // the venue's descriptor
    Bytes to_venue;
    Bytes inbox;
    Bytes waiting;                 // handed over with the promise of another packet, so not on its way yet
    std::size_t room = unlimited;  // set by the owner: bytes that its buffers still take
    bool accepted = false;         // by the venue
    bool closed = false;           // by the venue, or it has said that nothing more comes
    bool gone = false;             // set by the owner; the venue finds out when it reads
};

class Stage {
public:
    Stage(const Plan& plan, std::uint64_t dice_seed, Tape& tape);
    Stage(const Stage&) = delete;
    Stage& operator=(const Stage&) = delete;

    void start_day();
    // The venue's poll: what has happened by now is what the next pass knows.
    void poll();
    // One pass of the venue.
    void pass();
    // The wait: both clocks move on by as much, the wall clock by `wall_ns` more.
    void let_pass(std::uint64_t ms, std::int64_t wall_ns = 0);
    void print_final_report();

    Peer& connect_client() { return connect(clients_); }
    Peer& connect_receiver() { return connect(receivers_); }
    // From here on everybody can be accepted.
    void free_descriptors() { plan_.descriptors_run_out = false; }
    // Carried out in the next pass.
    void command(const std::string& line) { commands_.push_back(line); }

    std::uint64_t now_ms() const { return clock_.steady_ms(); }
    std::uint64_t wall_ns() const { return clock_.wall_ns(); }
    const Plan& plan() const { return plan_; }
    // All that was sent so far, one datagram after the other.
    const std::vector<Bytes>& datagrams() const { return datagrams_; }
    // All messages of the feed whose datagram was to leave.
    const std::vector<Bytes>& published() const { return published_; }
    // The book-change line that was written for the feed message with this number; empty when there was none.
    const std::string& change_line(std::uint64_t sequence) const;

private:
    // One service's connections.
    struct Peers {
        std::vector<Peer*> calling;  // not accepted yet
        std::map<int, Peer*> open;   // by descriptor
        What connected, bytes, gone, sent, finished, closed;
    };

    static Clock standing_clock(const Plan& plan);
    Transport transport(Peers& peers);
    Peer& connect(Peers& peers);
    int accept(Peers& peers);
    ReadEnd read(Peers& peers, int fd, Bytes& buffer, bool& arrived);
    std::optional<std::size_t> hand_over(Peers& peers, int fd, ByteView bytes, bool more_follows);
    void push(int fd);
    void finish(Peers& peers, int fd);
    void close(Peers& peers, int fd);
    int free_descriptor() const;
    bool find_readable(const Peers& peers, int fd);
    void take_change_line(std::string_view line);
    void take_datagram(ByteView datagram);
    void take_published();
    Surroundings surroundings();
    CommandSource commands();
    void put_lines(What what, std::string_view text);
    void begin(Step step);
    void record(Entry entry);
    void move_clock(std::uint64_t ms, std::int64_t wall_ns);

    Plan plan_;
    Dice dice_;
    Tape& tape_;
    std::deque<Peer> peers_;  // stay where they are
    Peers clients_{{},
                   {},
                   What::client_connected,
                   What::client_bytes,
                   What::client_gone,
                   What::packet_sent,
                   What::client_finished,
                   What::client_closed};
    Peers receivers_{{},
                     {},
                     What::receiver_connected,
                     What::receiver_bytes,
                     What::receiver_gone,
                     What::reply_sent,
                     What::receiver_finished,
                     What::receiver_closed};
    std::deque<std::string> commands_;
    std::string command_;  // the one being carried out
    std::vector<Bytes> datagrams_;
    std::vector<Bytes> published_;
    std::vector<std::string> change_lines_;  // by feed sequence

    Clock clock_;
    Commentary commentary_;
    std::optional<Venue> venue_;  // once the day has started
};

}  // namespace kavo::simulation
