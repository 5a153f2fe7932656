#include "audit/audited_recovery.h"

#include <algorithm>
#include <utility>

#include "audit/finding.h"
#include "audit/packets.h"
#include "model/fields.h"

namespace kavo::simulation {

namespace {

constexpr std::uint64_t login_limit_ms = 30'000;

void append(Bytes& bytes, const Bytes& more) {
    bytes.insert(bytes.end(), more.begin(), more.end());
}

char login_status(const Login& login) {
    if (login.session_protocol != "1.0") return 'I';
    if (!login.application_protocol.starts_with("DoM")) return 'A';
    if (login.engines != 1) return 'C';
    return login.requested == 0 ? ' ' : 'N';
}

}  // namespace

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
    while (witness_.next_is(What::receiver_connected)) {
        Connection& connection = connections_.emplace_back();
        connection.fd = witness_.take(What::receiver_connected).fd;
        connection.connected_ms = witness_.now_ms();
    }
}

void AuditedRecovery::take_turns() {
    const auto wants_turn = [](const Connection& connection) {
        return connection.readable || connection.backlog || !connection.debt.rest.empty();
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
    if (connection.debt.rest.empty()) return true;
    connection.debt.expect_sent(witness_, What::reply_sent, connection.fd);
    if (connection.debt.rest.empty()) return true;
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
    append(connection.received, entry.bytes);
    connection.backlog = !entry.bytes.empty();
    return true;
}

void AuditedRecovery::handle_packets(Connection& connection, std::uint64_t until_ns) {
    connection.backlog = false;
    char type = 0;
    for (Bytes payload;
         connection.open && !connection.backlog && cut_session_packet(connection.received, type, payload);) {
        handle(connection, type, payload);
        if (!connection.open) return;
        connection.backlog = !send_rest(connection) || witness_.now_ms() * AuditedTurns::ns_per_ms >= until_ns;
    }
}

void AuditedRecovery::handle(Connection& connection, char type, const Bytes& payload) {
    switch (type) {
        case 'l': return log_in(connection, payload);
        case '1':
        case 'T': return;
        case 'U': return refresh(connection, payload);
        case 'a': return retransmit(connection, payload);
        case 'X': return close(connection);
        default: return say_goodbye(connection, 'B', "unknown packet type");
    }
}

void AuditedRecovery::log_in(Connection& connection, const Bytes& payload) {
    Login login;
    if (!read_login(payload, login)) return say_goodbye(connection, 'B', "malformed login");
    const char status = login_status(login);
    owe(connection, login_response(status, plan_.engine.session, feed_.last_sequence()));
    if (status == ' ') {
        connection.logged_in = true;
        return;
    }
    const std::string text(login_status_text(status));
    witness_.expect_said("bench: retransmission login " + login.username + " REJECTED (" + status + ": " + text + ")");
    if (status != 'N') say_goodbye(connection, 'A', text);
}

void AuditedRecovery::retransmit(Connection& connection, const Bytes& payload) {
    if (!connection.logged_in) return say_goodbye(connection, 'B', "not logged in");
    if (payload.size() < 16) return say_goodbye(connection, 'B', "malformed retransmission request");
    const std::uint64_t first = std::max<std::uint64_t>(model::get(payload, 0, 8), 1);
    const std::uint64_t last = std::min(model::get(payload, 8, 8), feed_.last_sequence());
    Bytes reply;
    for (std::uint64_t sequence = first; sequence <= last; ++sequence) {
        append(reply, sequenced_packet(sequence, feed_.message(sequence)));
    }
    owe(connection, reply);
    ++feed_.retransmissions;
    say_goodbye(connection, 'A', "retransmission complete");
}

void AuditedRecovery::refresh(Connection& connection, const Bytes& payload) {
    if (!connection.logged_in || payload.size() < 2 || payload[0] != 'R') {
        return say_goodbye(connection, 'B', "unknown request");
    }
    const auto type = static_cast<char>(payload[1]);
    if (std::string_view("OSst").find(type) == std::string_view::npos) {
        return say_goodbye(connection, 'B', "unknown refresh type");
    }
    const Bytes reply = snapshot(type);
    owe(connection, reply);
    witness_.expect_said(std::string("bench: refresh '") + type + "' served as of seq " +
                         std::to_string(feed_.last_sequence()) + " (" + std::to_string(reply.size()) + " bytes)");
    ++feed_.refreshes;
    say_goodbye(connection, 'A', "refresh complete");
}

Bytes AuditedRecovery::snapshot(char type) const {
    std::vector<Bytes> messages{model::system_time(witness_.now_ns())};
    const auto add = [&messages](const std::vector<Bytes>& more) {
        messages.insert(messages.end(), more.begin(), more.end());
    };
    if (type == 'O' || type == 's') messages.push_back(model::system_state(witness_.now_ns(), plan_.engine.session));
    if (type == 'O' || type == 'S') add(orders_.venue.definitions());
    if (type == 'O' || type == 't') add(orders_.venue.trading_statuses());
    if (type == 'O') add(orders_.venue.resting_orders());
    Bytes reply;
    for (const Bytes& message : messages) {
        Bytes payload = behind_header(9, message);
        model::put_char(payload, 0, 'r');
        model::put(payload, 1, 8, feed_.last_sequence());
        append(reply, session_packet('U', payload));
    }
    append(reply, session_packet('U', Bytes{'E', static_cast<std::uint8_t>(type)}));
    return reply;
}

// Nobody is too late with what has not been read yet.
void AuditedRecovery::run_timer(Connection& connection) {
    if (connection.logged_in || witness_.now_ms() <= connection.connected_ms + login_limit_ms) return;
    if (!read(connection)) return;
    handle_packets(connection, (witness_.now_ms() + 1) * AuditedTurns::ns_per_ms);
    if (connection.open && !connection.logged_in) say_goodbye(connection, 'L', "timed out waiting for login");
}

void AuditedRecovery::owe(Connection& connection, const Bytes& bytes) {
    connection.debt.add(bytes, witness_.now_ms());
}

void AuditedRecovery::say_goodbye(Connection& connection, char reason, const std::string& text) {
    owe(connection, goodbye_packet(reason, text));
    connection.open = false;
    farewells_.add(connection.fd, std::exchange(connection.debt, {}));
}

void AuditedRecovery::close(Connection& connection) {
    witness_.expect(What::receiver_closed, connection.fd);
    connection.open = false;
}

}  // namespace kavo::simulation
