// The session layer on paper: what every connection must be sent for what it has sent, when it must be closed, and what
// each user's stream holds. Only the engine's answers are taken as they come; their numbers and their number are not.
//
// After each step of the venue the audit is told what happened, and finds every packet that was sent accounted for.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "harness/literal_cutter.h"
#include "harness/literal_login.h"
#include "support/venue.h"

namespace kavo::fuzz {

class SessionAudit {
public:
    //   session  the number that the venue answers logins with
    SessionAudit(test::Venue& venue, std::uint8_t session) : venue_(venue), session_(session) {}

    // A step with a client: it has come, has sent bytes, or is about to be lost.
    void connected(ClientHandle client);
    void before_receive();
    void received(ClientHandle client, ByteView bytes);
    void lost(ClientHandle client);

    // A pass, before and after.
    void before_pass();
    void passed();

    void lapse_started(std::uint64_t until_ms) { lapse_until_ms_ = until_ms; }
    bool is_open(ClientHandle client) const { return peers_[static_cast<std::size_t>(client)].open; }
    bool in_lapse() const { return now_ms() < lapse_until_ms_; }
    std::uint64_t lapse_until_ms() const { return lapse_until_ms_; }
    std::vector<std::string> users() const;  // all that were ever accepted

    // Once each user's stream has been replayed whole: the streams and the counters tell the same story.
    void compare_counters() const;

private:
    using Message = std::optional<Bytes>;  // nothing: numbered while the venue was silent, and not seen yet
    struct User {
        std::vector<Message> messages;
        bool more_unseen = false;  // numbers may have been taken that nobody has been told of
        bool accepted = false;
    };
    struct Peer {
        LiteralCutter cutter;
        Bytes arrived;
        std::size_t heard = 0;  // packets
        bool open = true;
        bool logged_in = false;
        std::string username;
        std::uint64_t connected_ms = 0;
        std::uint64_t last_received_ms = 0;
        std::uint64_t last_sent_ms = 0;
    };

    // session_audit_packets.cpp: what a peer sent, packet by packet
    void handle(Peer& peer, const LiteralCutter::Packet& packet);
    void log_in(Peer& peer, ByteView payload);
    void accept(Peer& peer, const LiteralLogin& login, std::uint64_t highest);
    void replay(Peer& peer, std::uint64_t from, std::uint64_t highest);
    void start_session(Peer& peer);
    char status_of(const Peer& peer, const LiteralLogin& login, std::uint64_t highest) const;
    void request(Peer& peer, ByteView message);
    // and what it heard
    const Bytes* next_packet(Peer& peer);
    void expect(Peer& peer, const Bytes& packet);
    void expect_goodbye(Peer& peer, char reason, std::string_view text);
    const Bytes* take(Peer& peer);
    void take_live(Peer& peer);
    void take_next_in_stream(Peer& peer);
    void take_sequenced(Peer& peer, std::uint64_t number);

    // session_audit.cpp
    void end_step();
    void route(const OutboundMessage& message);
    void run_timers();
    void check_feed();

    std::uint64_t now_ms() const { return venue_.clock.steady_ms(); }
    User& user_of(const Peer& peer) { return users_[peer.username]; }
    MemoryPeer& connection_of(const Peer& peer);

    test::Venue& venue_;
    std::uint8_t session_;
    std::vector<Peer> peers_;  // by handle
    std::map<std::string, User> users_;
    std::uint64_t lapse_until_ms_ = 0;
    bool scenario_lapse_started_ = false;

    // The step that is being looked at.
    OutboundMessages outbox_;
    bool disconnect_requested_ = false;
    bool disconnect_done_ = false;
    bool dropped_by_script_ = false;  // at a request that only the engine knows
    bool silent_client_dropped_ = false;
    std::size_t requests_ = 0;
    std::size_t answers_owed_ = 0;
    std::size_t answers_heard_ = 0;

    // What the counters must say.
    std::uint64_t logins_ = 0;
    std::uint64_t rejected_logins_ = 0;
    std::uint64_t replays_ = 0;
    std::uint64_t replayed_ = 0;

    std::size_t datagrams_read_ = 0;
    std::uint64_t feed_sequence_ = 0;
};

}  // namespace kavo::fuzz
