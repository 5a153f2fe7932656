// The service behind the feed under audit: every reply, byte for byte, from the history and from the books as they have
// been published.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "audit/audited_orders.h"

namespace kavo::simulation {

class AuditedRecovery {
public:
    AuditedRecovery(Witness& witness, AuditedFeed& feed, AuditedOrders& orders, const Plan& plan)
        : witness_(witness), feed_(feed), orders_(orders), plan_(plan) {}

    // One step of a pass: everything that the receivers bring, then the timers.
    void serve();

private:
    struct Connection {
        int fd = -1;
        bool open = true;
        bool gone = false;
        bool logged_in = false;
        Bytes received;
        std::uint64_t connected_ms = 0;
    };

    Connection& connection_of(int fd);
    void receive(Connection& connection, const Bytes& bytes);
    void handle(Connection& connection, char type, const Bytes& payload);
    void log_in(Connection& connection, const Bytes& payload);
    void retransmit(Connection& connection, const Bytes& payload);
    void refresh(Connection& connection, const Bytes& payload);
    Bytes snapshot(char type) const;
    void run_timer(Connection& connection);
    void expect_reply(Connection& connection, const Bytes& bytes);
    void say_goodbye(Connection& connection, char reason, const std::string& text);
    void close(Connection& connection);

    Witness& witness_;
    AuditedFeed& feed_;
    AuditedOrders& orders_;
    const Plan& plan_;
    std::vector<Connection> connections_;  // in the order in which they came
};

}  // namespace kavo::simulation
