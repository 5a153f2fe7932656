#include "client/wire_client.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "client/dial.h"
#include "client/packets.h"
#include "client/transcript.h"

namespace kavo::client {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds longest_wait{100};  // then it is time to look whether a heartbeat is due

// It waits as long as it is told to, not as long as the session would.
constexpr Session::Timing timing{.heartbeat_after_ms = 500, .silence_limit_ms = Session::never_ms};

std::uint64_t now_ms() {
    const auto now = steady_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(std::chrono::duration_cast<milliseconds>(now).count());
}

}  // namespace

std::vector<WireClient*> WireClient::all_;

WireClient::WireClient(std::uint16_t port) : socket_(dial(port)), session_(Login{}, timing) {
    session_.connected(now_ms());
    all_.push_back(this);
}

WireClient::~WireClient() {
    disconnect();
    std::erase(all_, this);
}

void WireClient::disconnect() {
    if (socket_ >= 0) close(socket_);
    socket_ = -1;
    closed_ = true;
}

void WireClient::reset() {
    const linger at_once{1, 0};
    setsockopt(socket_, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    disconnect();
}

void WireClient::send_bytes(ByteView bytes) {
    session_.say_bytes(bytes);
    send_all();
}

// A venue that has gone takes nothing any more; reading will tell.
void WireClient::send_all() {
    while (!session_.to_send().empty()) {
        const ByteView waiting = session_.to_send();
        const ssize_t sent = ::send(socket_, waiting.data(), waiting.size(), MSG_NOSIGNAL);
        session_.sent(sent > 0 ? static_cast<std::size_t>(sent) : waiting.size(), now_ms());
    }
}

void WireClient::send_packet(char type, ByteView payload) {
    session_.say(static_cast<esesm::PacketType>(type), payload);
    send_all();
}

void WireClient::log_in(const Login& login) {
    session_.log_in(login);
    send_all();
}
void WireClient::send(const NewOrder& order) {
    session_.send(order);
    send_all();
}
void WireClient::send(const Replace& request) {
    session_.send(request);
    send_all();
}
void WireClient::send(const Cancel& request) {
    session_.send(request);
    send_all();
}
void WireClient::send_heartbeat() {
    session_.say(esesm::PacketType::client_heartbeat);
    send_all();
}

void WireClient::keep_all_alive() {
    for (WireClient* client : all_) {
        if (client->silent_ || client->closed_) continue;
        client->session_.check_time(now_ms());
        client->send_all();
    }
}

std::optional<Bytes> WireClient::take_packet() {
    const auto arrival = session_.next();
    if (!arrival) return std::nullopt;
    if (arrival->sequence != 0) last_sequence_ = arrival->sequence;
    return Bytes(arrival->packet.begin(), arrival->packet.end());
}

std::optional<Bytes> WireClient::next_packet_of_any_kind(milliseconds longest) {
    const auto deadline = steady_clock::now() + longest;
    while (true) {
        if (auto packet = take_packet()) return packet;
        const auto left = std::chrono::duration_cast<milliseconds>(deadline - steady_clock::now());
        if (closed_ || left.count() < 0) return std::nullopt;
        pollfd polled{socket_, POLLIN, 0};
        if (poll(&polled, 1, static_cast<int>(left.count())) <= 0) return std::nullopt;
        std::uint8_t chunk[65'536];
        const ssize_t count = recv(socket_, chunk, sizeof chunk, 0);
        if (count <= 0) {
            session_.disconnected();
            closed_ = true;
        } else {
            session_.receive(ByteView(chunk, static_cast<std::size_t>(count)), now_ms());
        }
    }
}

std::optional<Bytes> WireClient::next_packet() {
    const auto deadline = steady_clock::now() + patience;
    while (steady_clock::now() < deadline) {
        auto packet = next_packet_or_heartbeat();
        if (!packet || !has_type(*packet, esesm::PacketType::server_heartbeat)) return packet;
    }
    return std::nullopt;
}

std::optional<Bytes> WireClient::next_packet_or_heartbeat() {
    const auto deadline = steady_clock::now() + patience;
    while (steady_clock::now() < deadline) {
        keep_all_alive();
        auto packet = next_packet_of_any_kind(longest_wait);
        if (packet || closed_) return packet;
    }
    return std::nullopt;
}

std::string WireClient::next() {
    const auto packet = next_packet();
    if (packet) return packet_text(*packet);
    return closed_ ? "closed" : "silence";
}

std::string WireClient::next(std::size_t count) {
    std::vector<std::string> lines;
    for (std::size_t i = 0; i < count; ++i) lines.push_back(next());
    return joined(lines);
}

std::string WireClient::next_with(const std::string& part) {
    while (true) {
        std::string line = next();
        if (line.find(part) != std::string::npos || line == "closed" || line == "silence") return line;
    }
}

}  // namespace kavo::client
