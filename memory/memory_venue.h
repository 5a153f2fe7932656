// A whole venue inside a test: no socket, no thread, no sleep. Time passes when the test says so, and nothing happens
// by itself, so the same options and the same inputs give the same bytes, in any process, on any machine. Several
// venues may live side by side.
//
//     kavo::MemoryVenue venue({"--seed", "7", "--acod"});
//     kavo::MemoryConnection alice = venue.connect();
//     alice.send(login_packet);
//     venue.advance(5ms);
//     const kavo::Bytes answer = alice.take();
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "app/venue.h"
#include "memory/memory_peers.h"

namespace kavo {

// The far end of a connection to a service of the venue: two queues of bytes. A copy is the same connection.
class MemoryConnection {
public:
    // Reaches the venue in its next pass, in one piece with whatever waits already.
    void send(ByteView bytes);
    // What the venue has sent since the last call.
    Bytes take();
    // The venue has closed it, or has said that nothing more comes.
    bool closed() const { return peer_->closed > 0 || peer_->finished; }
    // Goes away: in good order, or as a machine does that has lost its memory of the connection.
    void close() { peer_->ended = true; }
    void reset() { peer_->broken = true; }
    // From here on its buffers take so many bytes and no more, as with a peer that does not read.
    void limit_room(std::size_t bytes) { peer_->room = bytes; }
    void lift_limit() { peer_->room = MemoryPeer::unlimited; }

private:
    friend class MemoryVenue;
    explicit MemoryConnection(MemoryPeer& peer) : peer_(&peer) {}

    MemoryPeer* peer_;
};

class MemoryVenue {
public:
    // The wait of the real program, when nothing arrives.
    static constexpr std::chrono::milliseconds longest_wait{5};

    // What stands in the environment of the real program, and the moment at which the day begins.
    struct Setting {
        std::string scenario = {};                                // "name=rough,reject_every=3"; empty is none
        std::uint64_t start_ms = 1'000'000;                       // of the steady clock
        std::uint64_t start_wall_ns = 1'700'000'000'000'000'000;  // since the Unix epoch
    };

    // The day has begun: the feed's first datagrams are there to be taken.
    //   arguments  as on the command line. What names a port, a group or a file has no effect here.
    // Throws std::invalid_argument with what the program would have said, and what the standard conversions throw for a
    // number that is none.
    explicit MemoryVenue(const std::vector<std::string>& arguments = {}) : MemoryVenue(arguments, Setting{}) {}
    MemoryVenue(const std::vector<std::string>& arguments, const Setting& setting);
    MemoryVenue(const MemoryVenue&) = delete;  // its parts refer to each other
    MemoryVenue& operator=(const MemoryVenue&) = delete;

    // Connections of its own to order entry and to the retransmission service. Valid as long as the venue is; accepted
    // in its next pass, unless descriptors have run out.
    MemoryConnection connect() { return call(clients_); }
    MemoryConnection connect_receiver() { return call(receivers_); }
    void use_up_descriptors(bool used_up) { clients_.exhausted = receivers_.exhausted = used_up; }

    // One pass of the venue's loop, at the present moment.
    void pass();
    // A pass, then time goes on with a pass after every five milliseconds, and one at the end.
    void advance(std::chrono::milliseconds time);

    // What the feed has sent since the last call, one datagram after the other.
    std::vector<Bytes> take_datagrams();
    // Carries out a command of the control port in a pass of its own, and gives the reply. After "stop" the venue does
    // nothing more.
    std::string command(std::string_view text);
    bool stopped() const { return stopped_; }

    // Lines since the last call, without their ends: of the two truth logs, and of what the program says on standard
    // error, its report of every two seconds included, since commands can reach it.
    std::vector<std::string> take_order_truth();
    std::vector<std::string> take_book_truth();
    std::vector<std::string> take_commentary();

    std::uint64_t now_ms() const { return clock_.steady_ms(); }
    std::uint64_t wall_ns() const { return clock_.wall_ns(); }

private:
    static Options read(const std::vector<std::string>& arguments, const Setting& setting);
    Surroundings surroundings();
    MemoryConnection call(MemoryPeers& peers);
    void look_for_input();

    Clock clock_;
    std::string order_truth_;
    std::string book_truth_;
    std::string said_;
    Commentary commentary_{[this](std::string_view text) { said_ += text; }};
    MemoryPeers clients_;
    MemoryPeers receivers_;
    std::vector<Bytes> datagrams_;
    std::string command_;
    std::string reply_;
    bool command_waits_ = false;
    bool stopped_ = false;
    int next_fd_ = 100;
    Venue venue_;
};

}  // namespace kavo
