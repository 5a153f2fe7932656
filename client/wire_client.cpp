#include "client/wire_client.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "client/dial.h"
#include "client/transcript.h"
#include "common/socket.h"

namespace kavo::client {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds heartbeat_interval{500};
constexpr milliseconds longest_wait{100};  // then it is time to look whether a heartbeat is due

bool is_heartbeat(ByteView packet) {
    return get(packet, esesm::layout::packet::type) == static_cast<char>(esesm::PacketType::server_heartbeat);
}

}  // namespace

std::optional<ByteView> first_packet(ByteView bytes) {
    namespace at = esesm::layout::packet;
    if (bytes.size() < at::header_size) return std::nullopt;
    const std::size_t size = end_of(at::length) + get(bytes, at::length);
    if (bytes.size() < size) return std::nullopt;
    return bytes.first(size);
}

std::vector<WireClient*> WireClient::all_;

WireClient::WireClient(std::uint16_t port) : socket_(dial(port)) {
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
    last_sent_ = steady_clock::now();
    while (!bytes.empty()) {
        const ssize_t sent = ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent <= 0) return;  // the venue has gone; reading will tell
        bytes = bytes.subspan(static_cast<std::size_t>(sent));
    }
}

void WireClient::send_packet(char type, ByteView payload) {
    send_bytes(esesm::build_packet(static_cast<esesm::PacketType>(type), payload));
}

void WireClient::log_in(const Login& login) {
    send_packet('l', login.payload());
}
void WireClient::send(const NewOrder& order) {
    send_packet('U', order.bytes());
}
void WireClient::send(const Replace& request) {
    send_packet('U', request.bytes());
}
void WireClient::send(const Cancel& request) {
    send_packet('U', request.bytes());
}
void WireClient::send_heartbeat() {
    send_packet('1');
}

void WireClient::keep_all_alive() {
    for (WireClient* client : all_) {
        const bool due = steady_clock::now() - client->last_sent_ >= heartbeat_interval;
        if (due && !client->silent_ && !client->closed_) client->send_heartbeat();
    }
}

std::optional<Bytes> WireClient::take_packet() {
    const auto first = first_packet(ByteView(received_).subspan(taken_));
    if (!first) return std::nullopt;
    Bytes packet(first->begin(), first->end());
    taken_ += packet.size();
    if (get(packet, esesm::layout::packet::type) == static_cast<char>(esesm::PacketType::sequenced_data)) {
        last_sequence_ = get(packet, esesm::layout::sequenced_packet::sequence);
    }
    return packet;
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
            closed_ = true;
        } else {
            received_.erase(received_.begin(), received_.begin() + static_cast<std::ptrdiff_t>(taken_));
            taken_ = 0;
            received_.insert(received_.end(), chunk, chunk + count);
        }
    }
}

std::optional<Bytes> WireClient::next_packet() {
    const auto deadline = steady_clock::now() + patience;
    while (steady_clock::now() < deadline) {
        const auto packet = next_packet_or_heartbeat();
        if (!packet || !is_heartbeat(*packet)) return packet;
    }
    return std::nullopt;
}

std::optional<Bytes> WireClient::next_packet_or_heartbeat() {
    const auto deadline = steady_clock::now() + patience;
    while (steady_clock::now() < deadline) {
        keep_all_alive();
        const auto packet = next_packet_of_any_kind(longest_wait);
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
        const std::string line = next();
        if (line.find(part) != std::string::npos || line == "closed" || line == "silence") return line;
    }
}

}  // namespace kavo::client
