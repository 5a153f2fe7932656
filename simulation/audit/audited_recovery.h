// The service behind the feed under audit: who has a turn, what is read, and that every reply leaves which the model
// gives.
#pragma once

#include <cstdint>
#include <vector>

#include "audit/audited_farewells.h"
#include "audit/audited_orders.h"
#include "model/recovery.h"

namespace kavo::simulation {

class AuditedRecovery {
public:
    AuditedRecovery(Witness& witness, const AuditedFeed& feed, const AuditedOrders& orders, const Plan& plan);

    // The poll has found something to read on a connection of a receiver, which must be one.
    void find_readable(int fd);
    // One step of a pass: everything that the receivers bring, then the timers, then what is still owed.
    void serve();

    const model::Recovery& model() const { return model_; }

private:
    struct Connection {
        int fd = -1;
        bool open = true;
        bool readable = true;
        bool backlog = false;
        model::Recovery::Receiver receiver;
        model::Cutter received;
        model::Debt debt;
        std::uint64_t turn = 0;
    };

    void accept();
    void take_turns();
    void take_turn(Connection& connection, std::uint64_t until_ns);
    bool send_rest(Connection& connection);
    bool read(Connection& connection);
    void handle_packets(Connection& connection, std::uint64_t until_ns);
    void take(Connection& connection, const model::Recovery::Answer& answer);
    void run_timer(Connection& connection);
    void close(Connection& connection);

    Witness& witness_;
    model::Limits limits_;
    model::Recovery model_;
    std::vector<Connection> connections_;  // in the order in which they came
    model::Turns turns_{25};
    AuditedFarewells farewells_{
        witness_,
        {What::reply_sent, What::receiver_bytes, What::receiver_gone, What::receiver_finished, What::receiver_closed}};
};

}  // namespace kavo::simulation
