#include "audit/audited_sessions.h"

#include <algorithm>
#include <utility>

#include "audit/finding.h"

namespace kavo::simulation {

namespace {

// How long ago; a moment that lies ahead is not long ago at all.
std::uint64_t age_ms(std::uint64_t now_ms, std::uint64_t then_ms) {
    return now_ms < then_ms ? 0 : now_ms - then_ms;
}

}  // namespace

bool AuditedSessions::find_readable(int fd) {
    const auto connection = by_fd_.find(fd);
    if (connection == by_fd_.end()) return false;
    connection->second->readable = true;
    return true;
}

// What earlier connections have said came before whatever a new one says, so they are all read with it.
void AuditedSessions::accept() {
    const bool somebody = witness_.next_is(What::client_connected);
    if (!somebody && !witness_.next_is(What::nobody_calls)) return;  // the poll has seen nobody
    witness_.expect_all(What::client_connected, What::nobody_calls, plan_.limits.accepts,
                        [this](const Entry& entry) { connect(entry.fd); });
    if (!somebody) return;
    for (Connection& connection : connections_) connection.readable = true;
}

void AuditedSessions::connect(int fd) {
    Connection& connection = connections_.emplace_back();
    connection.handle = static_cast<int>(connections_.size()) - 1;
    connection.fd = fd;
    connection.connected_ms = connection.last_received_ms = connection.last_sent_ms = witness_.now_ms();
    by_fd_[fd] = &connection;
    if (!plan_.engine.quiet) witness_.expect_said("[kavo_me] client connected (fd " + std::to_string(fd) + ")");
}

void AuditedSessions::serve() {
    const auto has_input = [this](const Connection& connection) {
        return connection.open && (can_be_read(connection) || (connection.backlog && !connection.held));
    };
    std::vector<Connection*> claimants;
    for (Connection& connection : connections_) {
        if (has_input(connection)) claimants.push_back(&connection);
    }
    reading_.begin(witness_.now_ms(), claimants.size());
    for (Connection* claimant : claimants) {
        Connection& connection = *claimant;
        if (!has_input(connection) || !reading_.owes(connection.reading_turn)) continue;
        if (reading_.time_is_up(witness_.now_ms())) return;
        const std::uint64_t until_ns = reading_.give(connection.reading_turn, witness_.now_ms());
        take_turn(connection, until_ns);
    }
    reading_.end_round();
}

// Behind a replay a client may talk on, but not without an end.
bool AuditedSessions::can_be_read(const Connection& connection) const {
    return connection.readable && (!connection.held || connection.received.size() < plan_.limits.held_bytes);
}

// What is left of an earlier read comes first.
void AuditedSessions::take_turn(Connection& connection, std::uint64_t until_ns) {
    const auto can_go_on = [&connection] { return connection.backlog && !connection.held; };
    if (can_go_on()) handle_packets(connection, until_ns);
    if (!connection.open || can_go_on() || !can_be_read(connection)) return;
    if (!read(connection)) return lose(connection);
    if (can_go_on()) handle_packets(connection, until_ns);
}

// Behind a login everything but heartbeats and further logins that succeed waits for what it brings.
bool AuditedSessions::waits_for_replay(Connection& connection) {
    if (!connection.replay.under_way()) return false;
    const auto packet = connection.received.next();
    if (!packet || packet->type == '1' || packet->type == 'T') return false;
    if (packet->type != 'l') return true;
    const auto login = model::read_login(packet->payload);
    return !login || status_of(connection, *login) != ' ';
}

// False when the peer has closed.
bool AuditedSessions::read(Connection& connection) {
    connection.readable = false;
    if (witness_.next_is(What::client_gone)) {
        witness_.expect(What::client_gone, connection.fd);
        return false;
    }
    const Entry& entry = witness_.take(What::client_bytes);
    if (entry.fd != connection.fd) throw Finding("it is the turn of client " + number_of(connection.fd));
    if (entry.bytes.empty()) return true;
    connection.received.arrive(entry.bytes);
    connection.last_received_ms = witness_.now_ms();
    connection.backlog = true;
    return true;
}

// Eight packets at least, if they do not take a millisecond.
void AuditedSessions::handle_packets(Connection& connection, std::uint64_t until_ns) {
    const std::uint64_t start_ms = witness_.now_ms();
    connection.backlog = connection.held = false;
    for (int handled = 1; connection.open && !connection.backlog; ++handled) {
        if (waits_for_replay(connection)) {
            connection.backlog = connection.held = true;
            break;
        }
        const auto packet = connection.received.cut();
        if (!packet) break;
        handle(connection, *packet);
        const std::uint64_t now_ms = witness_.now_ms();
        const bool enough = handled >= 8 || now_ms > start_ms;
        connection.backlog = enough && now_ms * model::Turns::ns_in_a_ms >= until_ns;
    }
    if (connection.open) expect_nothing_waiting(connection);
}

// Nothing is held against a client before everything that it has sent has been read.
void AuditedSessions::look_again(Connection& connection, std::uint64_t turn_ms) {
    if (!read(connection)) return lose(connection);
    if (connection.backlog) handle_packets(connection, (witness_.now_ms() + turn_ms) * model::Turns::ns_in_a_ms);
}

void AuditedSessions::handle(Connection& connection, const model::Packet& packet) {
    if (packet.type == 'l') return log_in(connection, packet.payload);
    if (packet.type == '1' || packet.type == 'T') return;
    if (packet.type == 'X') {
        witness_.expect_said("bench: client " + connection.name() + " logged out");
        return drop(connection, "logout request", false);
    }
    if (!connection.logged_in) return say_goodbye(connection, 'B', "not logged in");
    if (packet.type == 'U' && packet.payload.size() >= 2) request(connection, packet.payload);
}

void AuditedSessions::request(Connection& connection, const Bytes& message) {
    model::Answers answers;
    if (!orders_.handle(connection.handle, message, answers)) {
        const char type[] = {static_cast<char>(message[0]), static_cast<char>(message[1]), '\0'};
        witness_.expect_said(std::string("bench: bad MEO message '") + type + "' (" + std::to_string(message.size()) +
                             " bytes) from " + connection.name() + " — goodbye");
        expect_sent(connection, model::goodbye_packet('B', "unknown or malformed application message"));
        return drop(connection, "bad packet", true);
    }
    for (const Bytes& answer : answers) deliver(connection, answer);
    feed_.expect_flush();
    disconnect_when_scripted(connection);
}

void AuditedSessions::disconnect_when_scripted(Connection& connection) {
    const bool due = bench_.disconnect_after != 0 && bench_.orders >= bench_.disconnect_after;
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
    model::Stream& stream = streams_[connection.username];
    stream.told.push_back(message);
    stream.forget_all_but(plan_.limits.stream_messages);
    if (bench_.in_lapse(witness_.now_ms())) return;
    if (connection.replay.under_way()) return connection.replay.follow(stream.last_number());
    expect_sent(connection, model::sequenced_packet(stream.last_number(), message));
}

void AuditedSessions::deliver() {
    orders_.venue.cancel_unsolicited();
    for (const model::Venue::Outbound& outbound : std::exchange(orders_.venue.outbox, {})) route(outbound);
    feed_.expect_flush();
    expect_nothing_waiting();
}

// A user who is away hears of it with the next login, and nothing is forgotten for it.
void AuditedSessions::route(const model::Venue::Outbound& outbound) {
    Connection& connection = connections_.at(static_cast<std::size_t>(outbound.client));
    if (connection.open && connection.logged_in) return deliver(connection, outbound.message);
    streams_[connection.username].told.push_back(outbound.message);
}

void AuditedSessions::expect_sent(Connection& connection, const Bytes& packet) {
    expect_handed_over(connection, packet);
    connection.last_sent_ms = witness_.now_ms();
}

// False when the connection takes nothing of it. Of what it takes in part the rest goes before anything else.
bool AuditedSessions::expect_handed_over(Connection& connection, const Bytes& packet) {
    if (!expect_completed(connection)) return false;
    const Entry& entry = witness_.expect_bytes(What::packet_sent, connection.fd, packet);
    if (entry.taken == 0) return false;
    connection.packet_waits = entry.flag;
    connection.unsent.assign(packet.begin() + static_cast<std::ptrdiff_t>(entry.taken), packet.end());
    return true;
}

bool AuditedSessions::expect_completed(Connection& connection) {
    Bytes& unsent = connection.unsent;
    if (unsent.empty()) return true;
    const Entry& entry = witness_.expect_bytes(What::packet_sent, connection.fd, unsent);
    if (entry.taken != 0) connection.packet_waits = entry.flag;
    unsent.erase(unsent.begin(), unsent.begin() + static_cast<std::ptrdiff_t>(entry.taken));
    return unsent.empty();
}

void AuditedSessions::continue_sending() {
    const auto has_output = [](const Connection& connection) {
        return connection.open && (!connection.unsent.empty() || connection.replay.under_way());
    };
    sending_.begin(witness_.now_ms(),
                   static_cast<std::size_t>(std::count_if(connections_.begin(), connections_.end(), has_output)));
    bool time_is_up = false;
    for (Connection& connection : connections_) {
        if (time_is_up || !has_output(connection) || !sending_.owes(connection.sending_turn)) continue;
        time_is_up = sending_.time_is_up(witness_.now_ms());
        if (time_is_up) continue;
        const std::uint64_t until_ns = sending_.give(connection.sending_turn, witness_.now_ms());
        if (expect_completed(connection)) continue_replay(connection, until_ns);
    }
    if (!time_is_up) sending_.end_round();
    farewells_.serve();
}

void AuditedSessions::continue_replay(Connection& connection, std::uint64_t until_ns) {
    if (!connection.replay.under_way()) return;
    connection.last_sent_ms = witness_.now_ms();
    const model::Stream& stream = streams_[connection.username];
    while (connection.replay.under_way() && expect_handed_over(connection, connection.replay.next(stream))) {
        connection.replay.taken();
        if (witness_.now_ms() * model::Turns::ns_in_a_ms >= until_ns) break;
    }
    expect_nothing_waiting(connection);
    if (!connection.replay.under_way()) connection.held = false;
}

void AuditedSessions::say_goodbye(Connection& connection, char reason, const std::string& text) {
    expect_sent(connection, model::goodbye_packet(reason, text));
    close(connection);
}

void AuditedSessions::lose(Connection& connection) {
    witness_.expect_said("bench: client " + connection.name() + " disconnected");
    drop(connection, "connection lost", false);
}

void AuditedSessions::drop(Connection& connection, const std::string& reason, bool announced) {
    if (announced) {
        witness_.expect_said("bench: dropping the connection of " + connection.name() + " (" + reason + ")");
    }
    close(connection);
    orders_.venue.client_dropped(connection.handle, connection.name());
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
    connection.open = false;
    connection.replay = {};
    by_fd_.erase(connection.fd);
    if (connection.unsent.empty()) return witness_.expect(What::client_closed, connection.fd);
    model::Debt debt(plan_.limits);
    debt.add(std::exchange(connection.unsent, {}), witness_.now_ms());
    farewells_.add(connection.fd, std::move(debt));
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
            if (age_ms(pass_ms, connection.connected_ms) < model::login_limit_ms) continue;
            look_again(connection, 1);
            if (!connection.open || connection.logged_in) continue;
            say_goodbye(connection, 'L', "timed out waiting for login");
            continue;
        }
        if (age_ms(pass_ms, connection.last_sent_ms) >= model::heartbeat_interval_ms &&
            !bench_.in_lapse(witness_.now_ms())) {
            expect_sent(connection, model::session_packet('0', {}));
        }
        if (age_ms(pass_ms, connection.last_received_ms) < model::silence_limit_ms) continue;
        look_again(connection, 1);
        if (!connection.open || age_ms(pass_ms, connection.last_received_ms) < model::silence_limit_ms) continue;
        witness_.expect_said("[kavo_me] client " + std::to_string(connection.fd) + " (" + connection.name() +
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
