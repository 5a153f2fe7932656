#include "feed/retransmission.h"

#include <algorithm>
#include <cstdio>
#include <string>
#include <utility>

#include "common/socket.h"

namespace kavo {

using esesm::GoodbyeReason;
using esesm::LoginStatus;

namespace {

constexpr std::uint64_t longest_pass_ms = 100;            // after which no further request is read
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

Retransmission::Retransmission(DomFeed& feed, const Clock& clock, ReceiverWire wire, std::uint8_t session)
    : feed_(feed), clock_(clock), wire_(std::move(wire)), session_(session), scratch_(read_bytes) {}

void Retransmission::serve(int listener) {
    if (listener != no_socket && connections_waiting) accept_connections(listener);
    const std::uint64_t start_ms = clock_.steady_ms();
    for (RConn& connection : connections_) {
        // One receiver that does not read is all that the other clients' patience has room for: the rest wait for the
        // next pass. Nothing cuts short the one that is being served.
        const bool too_slow = elapsed_ms(clock_.steady_ms(), start_ms) >= longest_pass_ms;
        if (!too_slow && std::exchange(connection.readable, false)) read(connection);
        run_timer(connection);
    }
    std::erase_if(connections_, [](const RConn& connection) { return !connection.open(); });
}

void Retransmission::accept_connections(int listener) {
    while (true) {
        const int fd = accept_connection(listener, accept_exhausted_);
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

void Retransmission::read(RConn& connection) {
    bool arrived = false;
    if (read_available(connection.fd, scratch_, connection.received.incoming(), arrived) == ReadEnd::gone) {
        return close(connection);
    }
    cut_packets(connection);
}

void Retransmission::receive(RConn& connection, ByteView bytes) {
    Bytes& incoming = connection.received.incoming();
    incoming.insert(incoming.end(), bytes.begin(), bytes.end());
    cut_packets(connection);
}

void Retransmission::cut_packets(RConn& connection) {
    while (connection.open()) {
        const auto packet = connection.received.cut();
        if (!packet) return;
        on_rconn_packet(connection, *packet);
    }
}

void Retransmission::run_timer(RConn& connection) {
    if (!connection.open() || connection.logged_in) return;
    if (elapsed_ms(clock_.steady_ms(), connection.connected_ms) <= esesm::login_limit_ms) return;
    say_goodbye(connection, GoodbyeReason::login_timeout, esesm::login_timeout_text);
}

void Retransmission::on_rconn_packet(RConn& connection, const esesm::ReceiveBuffer::Packet& packet) {
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
    esesm::LoginRequest request;
    if (!esesm::parse_login_request(payload, request)) {
        return say_goodbye(connection, GoodbyeReason::bad_packet, esesm::malformed_login_text);
    }
    const LoginStatus status = check(request);
    send(connection, esesm::build_login_response({{status, session_, feed_.last_sequence()}}));
    if (status == LoginStatus::successful) {
        connection.logged_in = true;
        return;
    }
    const std::string_view text = login_status_text(status);
    std::fprintf(stderr, "bench: retransmission login %s REJECTED (%c: %s)\n", request.username.c_str(),
                 static_cast<char>(status), std::string(text).c_str());
    // One who asked for a wrong sequence may try again on the same connection.
    if (status != LoginStatus::invalid_start_sequence) say_goodbye(connection, GoodbyeReason::done, text);
}

// What the history does not hold is left out without a word; an empty range is answered by the goodbye alone.
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
    while (connection.open() && next <= last) {
        const MessageLog::Run run = feed_.history.run_at(next, last);
        send(connection, run.bytes);
        next = run.next;
    }
    ++feed_.counters.retransmissions;
    say_goodbye(connection, GoodbyeReason::done, "retransmission complete");
}

void Retransmission::send(RConn& connection, ByteView bytes) {
    if (connection.open() && !wire_.send_all(connection.fd, bytes)) close(connection);
}

void Retransmission::say_goodbye(RConn& connection, GoodbyeReason reason, std::string_view text) {
    send(connection, esesm::build_goodbye(reason, text));
    close(connection);
}

void Retransmission::close(RConn& connection) {
    if (connection.open()) wire_.close(connection.fd);
    connection.fd = no_socket;
}

}  // namespace kavo
