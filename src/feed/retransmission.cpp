#include "feed/retransmission.h"

#include <algorithm>
#include <limits>
#include <string>
#include <utility>

namespace kavo {

using esesm::GoodbyeReason;
using esesm::LoginStatus;

namespace {

constexpr std::string_view application_protocol = "DoM";  // whatever follows it passes

LoginStatus check(const esesm::LoginRequest& request) {
    if (request.session_protocol_version != esesm::session_protocol) return LoginStatus::incompatible_session;
    if (!request.application_protocol_version.starts_with(application_protocol)) {
        return LoginStatus::incompatible_application;
    }
    if (request.entries.size() != 1) return LoginStatus::invalid_engine_count;
    if (request.entries.front().requested_sequence != 0) return LoginStatus::invalid_start_sequence;
    return LoginStatus::successful;
}

}  // namespace

Retransmission::Retransmission(DomFeed& feed, const Clock& clock, Transport transport, std::uint8_t session,
                               const Commentary& commentary)
    : feed_(feed),
      clock_(clock),
      transport_(std::move(transport)),
      session_(session),
      commentary_(commentary),
      farewells_(transport_, clock),
      round_(clock, receivers_budget_ns) {}

void Retransmission::serve() {
    if (connections_waiting) accept_connections();
    take_turns();
    for (RConn& connection : connections_) run_timer(connection);
    std::erase_if(connections_, [](const RConn& connection) { return !connection.open(); });
    farewells_.serve();
}

void Retransmission::accept_connections() {
    for (int accepts = 0; accepts < transport_.accepts_limit; ++accepts) {
        const int fd = transport_.accept(accept_exhausted_);
        if (fd == no_socket) return;
        open_connection(fd);
    }
}

RConn& Retransmission::open_connection(int fd) {
    RConn& connection = connections_.emplace_back();
    connection.fd = fd;
    connection.connected_ms = clock_.steady_ms();
    return connection;
}

void Retransmission::take_turns() {
    const auto wants_turn = [](const RConn& connection) {
        return connection.readable || connection.backlog || !connection.outgoing.empty();
    };
    round_.begin(static_cast<std::size_t>(std::count_if(connections_.begin(), connections_.end(), wants_turn)));
    for (RConn& connection : connections_) {
        if (!wants_turn(connection) || !round_.owes_turn(connection.turn)) continue;
        if (round_.spent()) return;
        take_turn(connection, round_.give_turn(connection.turn));
    }
    round_.end();
}

// What is owed to a receiver comes before anything that it still has to say.
void Retransmission::take_turn(RConn& connection, std::uint64_t until_ns) {
    if (!send_rest(connection)) return;
    if (connection.backlog) cut_packets(connection, until_ns);
    if (!connection.open() || connection.backlog || !connection.readable) return;
    read(connection);
    if (connection.backlog) cut_packets(connection, until_ns);
}

void Retransmission::read(RConn& connection) {
    bool arrived = false;
    const ReadEnd end = transport_.read(connection.fd, connection.received.incoming(), arrived, true);
    if (end == ReadEnd::gone) return close(connection);
    connection.backlog = arrived;
    connection.readable = end == ReadEnd::more;
}

void Retransmission::receive(RConn& connection, ByteView bytes) {
    Bytes& incoming = connection.received.incoming();
    incoming.insert(incoming.end(), bytes.begin(), bytes.end());
    cut_packets(connection, std::numeric_limits<std::uint64_t>::max());
}

void Retransmission::cut_packets(RConn& connection, std::uint64_t until_ns) {
    connection.backlog = false;
    while (connection.open() && !connection.backlog) {
        const auto packet = connection.received.cut();
        if (!packet) return;
        on_rconn_packet(connection, *packet);
        connection.backlog = !send_rest(connection) || clock_.steady_ns() >= until_ns;
    }
}

// A receiver is not too late with what the service has not read yet.
void Retransmission::run_timer(RConn& connection) {
    if (!connection.open() || connection.logged_in) return;
    if (elapsed_ms(clock_.steady_ms(), connection.connected_ms) <= esesm::login_limit_ms) return;
    read(connection);
    if (connection.open()) cut_packets(connection, clock_.steady_ns() + last_look_ns);
    if (!connection.open() || connection.logged_in) return;
    say_goodbye(connection, GoodbyeReason::login_timeout, esesm::login_timeout_text);
}

void Retransmission::on_rconn_packet(RConn& connection, const esesm::Packet& packet) {
    switch (packet.type) {
        case esesm::PacketType::login_request: return log_in(connection, packet.payload);
        case esesm::PacketType::client_heartbeat:
        case esesm::PacketType::client_test: return;
        case esesm::PacketType::unsequenced_data: return refresh(connection, packet.payload);
        case esesm::PacketType::retransmission_request: return retransmit(connection, packet.payload);
        case esesm::PacketType::logout_request: return close(connection);
        default: return say_goodbye(connection, GoodbyeReason::bad_packet, "unknown packet type");
    }
}

void Retransmission::log_in(RConn& connection, ByteView payload) {
    const auto request = esesm::read_login_request(payload);
    if (!request) {
        return say_goodbye(connection, GoodbyeReason::bad_packet, esesm::malformed_login_text);
    }
    const LoginStatus status = check(*request);
    send(connection, build(esesm::LoginResponse{{{status, session_, feed_.last_sequence()}}}));
    if (status == LoginStatus::successful) {
        connection.logged_in = true;
        return;
    }
    const std::string_view text = login_status_text(status);
    commentary_.say("bench: retransmission login %s REJECTED (%c: %s)\n", request->username.c_str(),
                    static_cast<char>(status), std::string(text).c_str());
    // One who asked for a wrong sequence may try again on the same connection.
    if (status != LoginStatus::invalid_start_sequence) say_goodbye(connection, GoodbyeReason::done, text);
}

// What the history does not hold is left out without a word; an empty range is answered by the goodbye alone. The reply
// is put together at once, so whatever the history forgets meanwhile, a slow receiver gets all of it.
void Retransmission::retransmit(RConn& connection, ByteView payload) {
    namespace at = layout::retransmission_request;
    if (!connection.logged_in) {
        return say_goodbye(connection, GoodbyeReason::bad_packet, esesm::not_logged_in_text);
    }
    if (payload.size() < at::min_size) {
        return say_goodbye(connection, GoodbyeReason::bad_packet, "malformed retransmission request");
    }
    std::uint64_t next = std::max(feed_.history.oldest(), get(payload, at::first));
    const std::uint64_t last = std::min(feed_.last_sequence(), get(payload, at::last));
    while (next <= last) {
        const MessageLog::Run run = feed_.history.run_at(next, last);
        send(connection, run.bytes);
        next = run.next;
    }
    ++feed_.counters.retransmissions;
    say_goodbye(connection, GoodbyeReason::done, "retransmission complete");
}

void Retransmission::send(RConn& connection, ByteView bytes) {
    connection.outgoing.add(bytes, clock_.steady_ms());
}

// False while something is left, and when the receiver is gone or has taken nothing for too long.
bool Retransmission::send_rest(RConn& connection) {
    Outgoing& outgoing = connection.outgoing;
    if (outgoing.empty()) return true;
    const bool gone = !outgoing.send(transport_, connection.fd);
    if (!gone && outgoing.empty()) return true;
    if (gone || outgoing.stalled(transport_, connection.fd, clock_.steady_ms())) close(connection);
    return false;
}

// Nothing more of the connection is handled. It ends when the receiver has taken everything.
void Retransmission::say_goodbye(RConn& connection, GoodbyeReason reason, std::string_view text) {
    send(connection, build(esesm::Goodbye{reason, text}));
    farewells_.add(std::exchange(connection.fd, no_socket), std::exchange(connection.outgoing, {}));
}

void Retransmission::close(RConn& connection) {
    if (connection.open()) transport_.close(connection.fd);
    connection.fd = no_socket;
    connection.outgoing = {};
}

}  // namespace kavo
