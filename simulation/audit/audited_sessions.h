// The order-entry sessions under audit: who is connected and logged in, each user's numbered stream, heartbeats, limits
// of silence, and that nothing is left waiting.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "audit/audited_orders.h"
#include "audit/packets.h"

namespace kavo::simulation {

class AuditedSessions {
public:
    using Stream = std::vector<Bytes>;  // message 1 in front

    AuditedSessions(Witness& witness, AuditedFeed& feed, AuditedOrders& orders, AuditedBench& bench, const Plan& plan)
        : witness_(witness), feed_(feed), orders_(orders), bench_(bench), plan_(plan) {}

    void connect(int fd);
    void receive(int fd, const Bytes& bytes);
    void lose(int fd);
    void deliver();
    void announce_lapse(std::uint64_t pass_ms);
    void run_timers(std::uint64_t pass_ms);

    std::size_t clients_ever() const { return connections_.size(); }
    std::string session_state() const;
    // By username. Everyone who ever logged in has one.
    const std::map<std::string, Stream>& streams() const { return streams_; }

private:
    struct Connection {
        int handle = 0;
        int fd = -1;
        bool open = true;
        bool logged_in = false;
        bool packet_waits = false;  // the last packet was handed over with the promise of another
        std::string username;
        Bytes received;
        std::uint64_t connected_ms = 0;
        std::uint64_t last_received_ms = 0;
        std::uint64_t last_sent_ms = 0;
    };
    Connection& open_connection(int fd);
    void handle(Connection& connection, char type, const Bytes& payload);
    void request(Connection& connection, const Bytes& message);
    void disconnect_when_scripted(Connection& connection);
    void deliver(Connection& connection, const Bytes& message);
    void route(const AuditedOrders::Outbound& outbound);
    void expect_sent(Connection& connection, const Bytes& packet);
    void say_goodbye(Connection& connection, char reason, const std::string& text);
    void drop(Connection& connection, const std::string& reason, bool announced);
    void expect_nothing_waiting();
    void expect_nothing_waiting(Connection& connection);
    void close(Connection& connection);

    // audited_logins.cpp
    void log_in(Connection& connection, const Bytes& payload);
    char reject_status(const Connection& connection, const Login& login);
    void reject(Connection& connection, const Login& login, char status);
    void accept(Connection& connection, const Login& login);
    void start_session(Connection& connection);

    Witness& witness_;
    AuditedFeed& feed_;
    AuditedOrders& orders_;
    AuditedBench& bench_;
    const Plan& plan_;

    std::deque<Connection> connections_;  // by handle
    std::map<int, Connection*> by_fd_;    // open ones
    std::map<std::string, Stream> streams_;
};

}  // namespace kavo::simulation
