#include "client/peer.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <stdexcept>

#include "client/dial.h"
#include "client/packets.h"
#include "client/transcript.h"
#include "session/esesm.h"

namespace kavo::client {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

// False when nothing of the kind happens in time.
bool wait_for(int socket, short event, milliseconds longest) {
    pollfd polled{socket, event, 0};
    return poll(&polled, 1, static_cast<int>(std::max(longest, milliseconds(0)).count())) > 0;
}

}  // namespace

Peer::Peer(std::uint16_t port, int receive_buffer) : socket_(dial(port, receive_buffer)) {}

Peer::~Peer() {
    close(socket_);
}

std::size_t Peer::pour(ByteView bytes, milliseconds longest) {
    if (longest.count() > 0) wait_for(socket_, POLLOUT, longest);
    const ssize_t sent = ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent >= 0) return static_cast<std::size_t>(sent);
    if (errno != EAGAIN) reset_ = true;
    return 0;
}

void Peer::pour_all(ByteView bytes) {
    const auto deadline = steady_clock::now() + patience;
    while (!bytes.empty()) {
        if (reset_ || steady_clock::now() > deadline) throw std::runtime_error("nobody reads any more");
        bytes = bytes.subspan(pour(bytes, milliseconds(20)));
    }
}

void Peer::send_heartbeat() {
    pour(esesm::build_packet(esesm::PacketType::client_heartbeat, {}));
}

void Peer::log_in(const Login& login) {
    pour_all(esesm::build_packet(esesm::PacketType::login_request, login.payload()));
    const auto answer = next_packet(patience);
    if (!answer) throw std::runtime_error("no answer to the login of " + login.username);
    if (!is_accepted_login(*answer)) throw std::runtime_error("instead of a login: " + packet_text(*answer));
}

void Peer::log_out() {
    pour_all(esesm::build_packet(esesm::PacketType::logout_request, {}));
    while (next_packet(patience)) continue;
    if (open()) throw std::runtime_error("a logout without its end");
}

std::size_t Peer::take(MutableBytes into) {
    if (!open()) return 0;
    const ssize_t count = recv(socket_, into.data(), into.size(), MSG_DONTWAIT);
    if (count > 0) return static_cast<std::size_t>(count);
    if (count == 0) end_ = reset_ ? End::reset : End::orderly;
    if (count < 0 && errno != EAGAIN) end_ = End::reset;
    return 0;
}

std::size_t Peer::take(std::size_t most) {
    received_.erase(received_.begin(), received_.begin() + static_cast<std::ptrdiff_t>(given_));
    given_ = 0;
    most = std::min(most, most_at_once);
    std::array<std::uint8_t, 65'536> chunk;
    std::size_t taken = 0;
    while (taken < most) {
        const std::size_t count = take(MutableBytes(chunk).first(std::min(chunk.size(), most - taken)));
        if (count == 0) break;
        received_.insert(received_.end(), chunk.begin(), chunk.begin() + static_cast<std::ptrdiff_t>(count));
        taken += count;
    }
    return taken;
}

void Peer::discard() {
    constexpr std::size_t most = 1 << 30;
    if (!open()) return;
    const ssize_t count = recv(socket_, nullptr, most, MSG_TRUNC | MSG_DONTWAIT);
    if (count == 0) end_ = reset_ ? End::reset : End::orderly;
}

std::optional<ByteView> Peer::next_packet() {
    const auto packet = first_packet(ByteView(received_).subspan(given_));
    if (packet) given_ += packet->size();
    return packet;
}

std::optional<ByteView> Peer::next_packet(milliseconds longest) {
    const auto deadline = steady_clock::now() + longest;
    while (true) {
        if (const auto packet = next_packet()) return packet;
        if (take() > 0) continue;
        const auto left = std::chrono::ceil<milliseconds>(deadline - steady_clock::now());
        if (!open() || left.count() <= 0) return std::nullopt;
        wait_for(socket_, POLLIN, left);
    }
}

void Peer::break_off() const {
    const linger at_once{1, 0};
    setsockopt(socket_, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
}

}  // namespace kavo::client
