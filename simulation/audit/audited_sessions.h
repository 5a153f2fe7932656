// The order-entry sessions under audit: who is connected and logged in, each user's numbered stream, heartbeats, limits
// of silence, and that nothing is left waiting.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "audit/audited_farewells.h"
#include "audit/audited_orders.h"
#include "model/logins.h"
#include "model/sessions.h"

namespace kavo::simulation {

class AuditedSessions {
public:
    AuditedSessions(Witness& witness, AuditedFeed& feed, AuditedOrders& orders, model::Bench& bench, const Plan& plan)
        : witness_(witness), feed_(feed), orders_(orders), bench_(bench), plan_(plan) {}

    // The poll has found something to read on a connection of a client; false when it is none.
    bool find_readable(int fd);
    void accept();
    void serve();
    void continue_sending();
    void deliver();
    void announce_lapse(std::uint64_t pass_ms);
    void run_timers(std::uint64_t pass_ms);

    std::size_t clients_ever() const { return connections_.size(); }
    std::string session_state() const;
    // By username. Everyone who ever logged in has one.
    const std::map<std::string, model::Stream>& streams() const { return streams_; }

private:
    struct Connection {
        int handle = 0;
        int fd = -1;
        bool open = true;
        bool logged_in = false;
        bool readable = true;
        bool backlog = false;       // more has been read than there was time for
        bool held = false;          // and it waits for the end of a replay
        bool packet_waits = false;  // the last packet was handed over with the promise of another
        std::string username;
        model::Cutter received;
        Bytes unsent;  // of a packet that was taken in part
        model::Replay replay;
        std::uint64_t reading_turn = 0;
        std::uint64_t sending_turn = 0;
        std::uint64_t connected_ms = 0;
        std::uint64_t last_received_ms = 0;
        std::uint64_t last_sent_ms = 0;

        std::string name() const { return username.c_str(); }  // as standard error has it: up to a NUL
    };
    void connect(int fd);
    bool can_be_read(const Connection& connection) const;
    void take_turn(Connection& connection, std::uint64_t until_ns);
    bool read(Connection& connection);
    void handle_packets(Connection& connection, std::uint64_t until_ns);
    bool waits_for_replay(Connection& connection);
    void look_again(Connection& connection, std::uint64_t turn_ms);
    void lose(Connection& connection);
    void handle(Connection& connection, const model::Packet& packet);
    void request(Connection& connection, const Bytes& message);
    void disconnect_when_scripted(Connection& connection);
    void deliver(Connection& connection, const Bytes& message);
    void route(const model::Venue::Outbound& outbound);
    void expect_sent(Connection& connection, const Bytes& packet);
    bool expect_handed_over(Connection& connection, const Bytes& packet);
    bool expect_completed(Connection& connection);
    void continue_replay(Connection& connection, std::uint64_t until_ns);
    void say_goodbye(Connection& connection, char reason, const std::string& text);
    void drop(Connection& connection, const std::string& reason, bool announced);
    void expect_nothing_waiting();
    void expect_nothing_waiting(Connection& connection);
    void close(Connection& connection);

    // audited_logins.cpp
    void log_in(Connection& connection, const Bytes& payload);
    char status_of(const Connection& connection, const model::Login& login);
    void reject(Connection& connection, const model::Login& login, char status);
    void accept(Connection& connection, const model::Login& login);
    void start_session(Connection& connection);
    Connection* holder_of(const std::string& username, const Connection& asking);
    bool name_is_taken(const std::string& username, const Connection& asking);

    Witness& witness_;
    AuditedFeed& feed_;
    AuditedOrders& orders_;
    model::Bench& bench_;
    const Plan& plan_;

    std::deque<Connection> connections_;  // by handle
    std::map<int, Connection*> by_fd_;    // open ones
    std::map<std::string, model::Stream> streams_;
    model::Turns reading_{25};
    model::Turns sending_{20};
    bool looking_again_ = false;
    AuditedFarewells farewells_{
        witness_,
        {What::packet_sent, What::client_bytes, What::client_gone, What::client_finished, What::client_closed}};
};

}  // namespace kavo::simulation
