#include "audit/audited_recovery.h"

#include <algorithm>
#include <utility>

#include "audit/finding.h"

namespace kavo::simulation {

AuditedRecovery::AuditedRecovery(Witness& witness, const AuditedFeed& feed, const AuditedOrders& orders,
                                 const Plan& plan)
    : witness_(witness),
      limits_(plan.limits),
      model_(feed.model, plan.engine.session, [&orders]() -> model::Recovery::State {
          return {orders.venue.definitions(), orders.venue.trading_statuses(), orders.venue.resting_orders()};
      }) {}

void AuditedRecovery::find_readable(int fd) {
    const auto found = std::find_if(connections_.begin(), connections_.end(), [fd](const Connection& connection) {
        return connection.open && connection.fd == fd;
    });
    if (found == connections_.end()) throw Finding("the venue polls a receiver that it has closed");
    found->readable = true;
}

void AuditedRecovery::serve() {
    accept();
    take_turns();
    for (Connection& connection : connections_) {
        if (connection.open) run_timer(connection);
    }
    std::erase_if(connections_, [](const Connection& connection) { return !connection.open; });
    farewells_.serve();
}

void AuditedRecovery::accept() {
    if (!witness_.next_is(What::receiver_connected) && !witness_.next_is(What::nobody_calls)) return;
    witness_.expect_all(What::receiver_connected, What::nobody_calls, limits_.accepts, [this](const Entry& entry) {
        Connection& connection = connections_.emplace_back();
        connection.fd = entry.fd;
        connection.receiver.connected_ms = witness_.now_ms();
        connection.debt = model::Debt(limits_);
    });
}

void AuditedRecovery::take_turns() {
    const auto wants_turn = [](const Connection& connection) {
        return connection.readable || connection.backlog || !connection.debt.paid();
    };
    turns_.begin(witness_.now_ms(),
                 static_cast<std::size_t>(std::count_if(connections_.begin(), connections_.end(), wants_turn)));
    for (Connection& connection : connections_) {
        if (!wants_turn(connection) || !turns_.owes(connection.turn)) continue;
        if (turns_.time_is_up(witness_.now_ms())) return;
        take_turn(connection, turns_.give(connection.turn, witness_.now_ms()));
    }
    turns_.end_round();
}

void AuditedRecovery::take_turn(Connection& connection, std::uint64_t until_ns) {
    if (!send_rest(connection)) return;
    if (connection.backlog) handle_packets(connection, until_ns);
    if (!connection.open || connection.backlog || !connection.readable) return;
    if (read(connection) && connection.backlog) handle_packets(connection, until_ns);
}

// Nothing more is handled before the receiver has taken what it is owed.
bool AuditedRecovery::send_rest(Connection& connection) {
    if (connection.debt.paid()) return true;
    expect_sent(connection.debt, witness_, What::reply_sent, connection.fd);
    if (connection.debt.paid()) return true;
    if (connection.debt.stalled(witness_.now_ms())) close(connection);
    return false;
}

// False when the peer has closed.
bool AuditedRecovery::read(Connection& connection) {
    connection.readable = false;
    if (witness_.next_is(What::receiver_gone)) {
        witness_.expect(What::receiver_gone, connection.fd);
        close(connection);
        return false;
    }
    const Entry& entry = witness_.take(What::receiver_bytes);
    if (entry.fd != connection.fd) throw Finding("it is the turn of receiver " + number_of(connection.fd));
    connection.received.arrive(entry.bytes);
    connection.backlog = !entry.bytes.empty();
    return true;
}

void AuditedRecovery::handle_packets(Connection& connection, std::uint64_t until_ns) {
    connection.backlog = false;
    while (connection.open && !connection.backlog) {
        const auto packet = connection.received.cut();
        if (!packet) return;
        take(connection, model_.handle(connection.receiver, *packet, witness_.now_ns()));
        if (!connection.open) return;
        connection.backlog = !send_rest(connection) || witness_.now_ms() * model::Turns::ns_in_a_ms >= until_ns;
    }
}

void AuditedRecovery::take(Connection& connection, const model::Recovery::Answer& answer) {
    using Then = model::Recovery::Answer::Then;
    if (!answer.said.empty()) witness_.expect_said(answer.said);
    connection.debt.add(answer.bytes, witness_.now_ms());
    if (answer.then == Then::goes_on) return;
    if (answer.then == Then::closes_at_once) return close(connection);
    connection.open = false;
    farewells_.add(connection.fd, std::exchange(connection.debt, {}));
}

// Nobody is too late with what has not been read yet.
void AuditedRecovery::run_timer(Connection& connection) {
    if (!model::Recovery::is_late(connection.receiver, witness_.now_ms()) || !read(connection)) return;
    handle_packets(connection, (witness_.now_ms() + 1) * model::Turns::ns_in_a_ms);
    if (connection.open && !connection.receiver.logged_in) take(connection, model::Recovery::end_of_patience());
}

void AuditedRecovery::close(Connection& connection) {
    witness_.expect(What::receiver_closed, connection.fd);
    connection.open = false;
}

}  // namespace kavo::simulation
