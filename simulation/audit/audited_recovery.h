// The service behind the feed under audit: every reply, byte for byte, from the history and from the books as they have
// been published.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "audit/audited_farewells.h"
#include "audit/audited_orders.h"

namespace kavo::simulation {

class AuditedRecovery {
public:
    AuditedRecovery(Witness& witness, AuditedFeed& feed, AuditedOrders& orders, const Plan& plan)
        : witness_(witness), feed_(feed), orders_(orders), plan_(plan) {}

    // The poll has found something to read on a connection of a receiver, which must be one.
    void find_readable(int fd);
    // One step of a pass: everything that the receivers bring, then the timers, then what is still owed.
    void serve();

private:
    struct Connection {
        int fd = -1;
        bool open = true;
        bool logged_in = false;
        bool readable = true;
        bool backlog = false;
        Bytes received;
        AuditedDebt debt;
        std::uint64_t connected_ms = 0;
        std::uint64_t turn = 0;
    };

    void accept();
    void take_turns();
    void take_turn(Connection& connection, std::uint64_t until_ns);
    bool send_rest(Connection& connection);
    bool read(Connection& connection);
    void handle_packets(Connection& connection, std::uint64_t until_ns);
    void handle(Connection& connection, char type, const Bytes& payload);
    void log_in(Connection& connection, const Bytes& payload);
    void retransmit(Connection& connection, const Bytes& payload);
    void refresh(Connection& connection, const Bytes& payload);
    Bytes snapshot(char type) const;
    void run_timer(Connection& connection);
    void owe(Connection& connection, const Bytes& bytes);
    void say_goodbye(Connection& connection, char reason, const std::string& text);
    void close(Connection& connection);

    Witness& witness_;
    AuditedFeed& feed_;
    AuditedOrders& orders_;
    const Plan& plan_;
    std::vector<Connection> connections_;  // in the order in which they came
    AuditedTurns turns_{25};
    AuditedFarewells farewells_{
        witness_,
        {What::reply_sent, What::receiver_bytes, What::receiver_gone, What::receiver_finished, What::receiver_closed}};
};

}  // namespace kavo::simulation
