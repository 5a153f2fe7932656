#include "audit/audited_sessions.h"

#include <algorithm>
#include <utility>

#include "audit/finding.h"

namespace kavo::simulation {

namespace {

constexpr std::uint64_t heartbeat_interval_ms = 1000;
constexpr std::uint64_t silence_limit_ms = 3000;
constexpr std::uint64_t login_limit_ms = 30'000;

// How long ago; a moment that lies ahead is not long ago at all.
std::uint64_t age_ms(std::uint64_t now_ms, std::uint64_t then_ms) {
    return now_ms < then_ms ? 0 : now_ms - then_ms;
}

}  // namespace

void AuditedSessions::connect(int fd) {
    Connection& connection = connections_.emplace_back();
    connection.handle = static_cast<int>(connections_.size()) - 1;
    connection.fd = fd;
    connection.connected_ms = connection.last_received_ms = connection.last_sent_ms = witness_.now_ms();
    by_fd_[fd] = &connection;
}

AuditedSessions::Connection& AuditedSessions::open_connection(int fd) {
    const auto connection = by_fd_.find(fd);
    if (connection == by_fd_.end()) throw Finding("the venue reads a connection that it has closed");
    return *connection->second;
}

void AuditedSessions::receive(int fd, const Bytes& bytes) {
    Connection& connection = open_connection(fd);
    connection.last_received_ms = witness_.now_ms();
    connection.received.insert(connection.received.end(), bytes.begin(), bytes.end());
    char type = 0;
    for (Bytes payload; connection.open && cut_session_packet(connection.received, type, payload);) {
        handle(connection, type, payload);
    }
    if (connection.open) expect_nothing_waiting(connection);
}

void AuditedSessions::handle(Connection& connection, char type, const Bytes& payload) {
    if (type == 'l') return log_in(connection, payload);
    if (type == '1' || type == 'T') return;
    if (type == 'X') {
        witness_.expect_said("bench: client " + connection.username + " logged out");
        return drop(connection, "logout request", false);
    }
    if (!connection.logged_in) return say_goodbye(connection, 'B', "not logged in");
    if (type == 'U' && payload.size() >= 2) request(connection, payload);
}

void AuditedSessions::request(Connection& connection, const Bytes& message) {
    AuditedOrders::Answers answers;
    if (!orders_.handle(connection.handle, message, answers)) {
        const std::string type(message.begin(), message.begin() + 2);
        witness_.expect_said("bench: bad MEO message '" + type + "' (" + std::to_string(message.size()) +
                             " bytes) from " + connection.username + " — goodbye");
        expect_sent(connection, goodbye_packet('B', "unknown or malformed application message"));
        return drop(connection, "bad packet", true);
    }
    for (const Bytes& answer : answers) deliver(connection, answer);
    feed_.expect_flush();
    disconnect_when_scripted(connection);
}

void AuditedSessions::disconnect_when_scripted(Connection& connection) {
    const bool due = bench_.disconnect_after != 0 && bench_.reject.occasions >= bench_.disconnect_after;
    if ((!due || bench_.disconnect_done) && !bench_.disconnect_requested) return;
    bench_.disconnect_done = true;
    bench_.disconnect_requested = false;
    drop(connection,
         bench_.disconnect_after == 0 ? "driven"
                                      : "scripted: the client must log in again with its next expected sequence",
         true);
}

// During a lapse a message takes its number and its place in the stream, and nothing is said.
void AuditedSessions::deliver(Connection& connection, const Bytes& message) {
    Stream& stream = streams_[connection.username];
    stream.push_back(message);
    if (!bench_.in_lapse(witness_.now_ms())) expect_sent(connection, sequenced_packet(stream.size(), message));
}

void AuditedSessions::deliver() {
    orders_.cancel_unsolicited();
    for (const AuditedOrders::Outbound& outbound : std::exchange(orders_.outbox, {})) route(outbound);
    feed_.expect_flush();
    expect_nothing_waiting();
}

// A user who is away hears of it with the next login.
void AuditedSessions::route(const AuditedOrders::Outbound& outbound) {
    Connection& connection = connections_.at(static_cast<std::size_t>(outbound.client));
    if (connection.open && connection.logged_in) return deliver(connection, outbound.message);
    streams_[connection.username].push_back(outbound.message);
}

void AuditedSessions::expect_sent(Connection& connection, const Bytes& packet) {
    const Entry& entry = witness_.expect_bytes(What::packet_sent, connection.fd, packet);
    connection.packet_waits = entry.flag;
    connection.last_sent_ms = witness_.now_ms();
}

void AuditedSessions::say_goodbye(Connection& connection, char reason, const std::string& text) {
    expect_sent(connection, goodbye_packet(reason, text));
    close(connection);
}

void AuditedSessions::lose(int fd) {
    Connection& connection = open_connection(fd);
    witness_.expect_said("bench: client " + connection.username + " disconnected");
    drop(connection, "connection lost", false);
}

void AuditedSessions::drop(Connection& connection, const std::string& reason, bool announced) {
    if (announced) {
        witness_.expect_said("bench: dropping the connection of " + connection.username + " (" + reason + ")");
    }
    close(connection);
    orders_.client_dropped(connection.handle, connection.username);
}

void AuditedSessions::expect_nothing_waiting(Connection& connection) {
    while (witness_.next_is(What::packets_pushed)) {
        witness_.expect(What::packets_pushed, connection.fd);
        connection.packet_waits = false;
    }
    if (connection.packet_waits) {
        throw Finding("a packet to client " + number_of(connection.fd) +
                      " is left waiting for another that never comes");
    }
}

void AuditedSessions::expect_nothing_waiting() {
    for (const auto& [fd, connection] : by_fd_) expect_nothing_waiting(*connection);
}

void AuditedSessions::close(Connection& connection) {
    expect_nothing_waiting(connection);
    witness_.expect(What::client_closed, connection.fd);
    connection.open = false;
    by_fd_.erase(connection.fd);
}

void AuditedSessions::announce_lapse(std::uint64_t pass_ms) {
    if (bench_.lapse_announced || !bench_.in_lapse(pass_ms)) return;
    bench_.lapse_announced = true;
    witness_.expect_said("bench: going silent for " + std::to_string(bench_.lapse_until_ms - pass_ms) +
                         " ms (no heartbeats; the client should disconnect after 3 s and log in again with its next "
                         "expected sequence)");
}

void AuditedSessions::run_timers(std::uint64_t pass_ms) {
    for (Connection& connection : connections_) {
        if (!connection.open) continue;
        if (!connection.logged_in) {
            if (age_ms(pass_ms, connection.connected_ms) < login_limit_ms) continue;
            say_goodbye(connection, 'L', "timed out waiting for login");
            continue;
        }
        if (age_ms(pass_ms, connection.last_sent_ms) >= heartbeat_interval_ms && !bench_.in_lapse(witness_.now_ms())) {
            expect_sent(connection, session_packet('0', {}));
        }
        if (age_ms(pass_ms, connection.last_received_ms) < silence_limit_ms) continue;
        witness_.expect_said("[kavo_me] client " + std::to_string(connection.fd) + " (" + connection.username +
                             ") timed out");
        drop(connection, "3 heartbeat intervals of silence", true);
    }
    expect_nothing_waiting();
}

std::string AuditedSessions::session_state() const {
    const bool up = std::any_of(connections_.begin(), connections_.end(),
                                [](const Connection& connection) { return connection.open && connection.logged_in; });
    return up ? " session=up" : " session=down";
}

}  // namespace kavo::simulation
