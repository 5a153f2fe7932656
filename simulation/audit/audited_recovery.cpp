#include "audit/audited_recovery.h"

#include <algorithm>

#include "audit/finding.h"
#include "audit/packets.h"
#include "model/literal_fields.h"

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

void AuditedRecovery::serve() {
    while (true) {
        if (witness_.next_is(What::receiver_connected)) {
            Connection& connection = connections_.emplace_back();
            connection.fd = witness_.take(What::receiver_connected).fd;
            connection.connected_ms = witness_.now_ms();
        } else if (witness_.next_is(What::receiver_bytes)) {
            const Entry& entry = witness_.take(What::receiver_bytes);
            receive(connection_of(entry.fd), entry.bytes);
        } else if (witness_.next_is(What::receiver_gone)) {
            connection_of(witness_.take(What::receiver_gone).fd).gone = true;
        } else {
            break;
        }
    }
    for (Connection& connection : connections_) {
        if (connection.open && connection.gone) close(connection);
        if (connection.open) run_timer(connection);
    }
    std::erase_if(connections_, [](const Connection& connection) { return !connection.open; });
}

AuditedRecovery::Connection& AuditedRecovery::connection_of(int fd) {
    const auto open = std::find_if(connections_.begin(), connections_.end(), [fd](const Connection& connection) {
        return connection.open && connection.fd == fd;
    });
    if (open == connections_.end()) throw Finding("the venue reads a receiver that it has closed");
    return *open;
}

void AuditedRecovery::receive(Connection& connection, const Bytes& bytes) {
    Bytes& received = connection.received;
    append(received, bytes);
    char type = 0;
    for (Bytes payload; connection.open && cut_session_packet(received, type, payload);) {
        handle(connection, type, payload);
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
    expect_reply(connection, login_response(status, plan_.engine.session, feed_.last_sequence()));
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
    expect_reply(connection, reply);
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
    expect_reply(connection, reply);
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
    if (type == 'O' || type == 'S') add(orders_.definitions());
    if (type == 'O' || type == 't') add(orders_.trading_statuses());
    if (type == 'O') add(orders_.resting_orders());
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

void AuditedRecovery::run_timer(Connection& connection) {
    if (connection.logged_in || witness_.now_ms() <= connection.connected_ms + login_limit_ms) return;
    say_goodbye(connection, 'L', "timed out waiting for login");
}

// In as many pieces as the venue likes. One that a receiver does not take is the last.
void AuditedRecovery::expect_reply(Connection& connection, const Bytes& bytes) {
    for (std::size_t at = 0; connection.open && at < bytes.size();) {
        const Entry& entry = witness_.take(What::reply_sent);
        const std::size_t size = std::min(entry.bytes.size(), bytes.size() - at);
        const auto start = bytes.begin() + static_cast<std::ptrdiff_t>(at);
        if (entry.fd != connection.fd || size == 0 || size != entry.bytes.size() ||
            !std::equal(entry.bytes.begin(), entry.bytes.end(), start)) {
            throw Finding(in_words(entry) + " is not the reply that receiver " + number_of(connection.fd) +
                          " should get at byte " + std::to_string(at) + " of " + std::to_string(bytes.size()));
        }
        at += size;
        if (!entry.flag) close(connection);
    }
}

void AuditedRecovery::say_goodbye(Connection& connection, char reason, const std::string& text) {
    expect_reply(connection, goodbye_packet(reason, text));
    if (connection.open) close(connection);
}

void AuditedRecovery::close(Connection& connection) {
    witness_.expect(What::receiver_closed, connection.fd);
    connection.open = false;
}

}  // namespace kavo::simulation
