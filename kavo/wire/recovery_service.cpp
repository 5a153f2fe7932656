#include "kavo/wire/recovery_service.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "kavo/basics/problem.h"

namespace kavo::companion {

namespace {

constexpr std::size_t request_bytes = 64 * 1024;
constexpr std::chrono::milliseconds without_moving{2000};
constexpr std::chrono::milliseconds login_limit{esesm::login_limit_ms};
// Others wait in the queue of the listener.
constexpr std::size_t most_receivers = 256;

int open_listener(std::uint16_t port) {
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_port = htons(port);
    name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int listening = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const int on = 1;
    setsockopt(listening, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    const bool open =
        bind(listening, reinterpret_cast<const sockaddr*>(&name), sizeof name) == 0 && listen(listening, 128) == 0;
    if (open) return listening;
    const std::string reason = std::strerror(errno);
    close(listening);
    throw Problem(Status::bench, "cannot answer recoveries on port " + std::to_string(port) + " (" + reason +
                                     "): name another with --recovery-port, or end what listens there");
}

}  // namespace

RecoveryService::RecoveryService(Loop& loop, PublishedFeed& feed, std::uint16_t port)
    : loop_(loop), feed_(feed), listening_(open_listener(port)) {
    loop_.watch(listening_, POLLIN, [this](short) { accept_receivers(); });
}

RecoveryService::~RecoveryService() {
    while (!receivers_.empty()) close(receivers_.begin());
    loop_.forget(listening_);
    ::close(listening_);
}

void RecoveryService::accept_receivers() {
    const int socket = accept4(listening_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    // With no descriptor left, whoever calls waits until somebody else is done.
    if (socket < 0 && (errno == EMFILE || errno == ENFILE)) loop_.forget(listening_);
    if (socket < 0) return;
    const int on = 1;
    setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    const Place receiver = receivers_.emplace(receivers_.end());
    receiver->socket = socket;
    wait_no_longer_than(receiver, login_limit);
    watch(receiver);
    if (receivers_.size() == most_receivers) loop_.forget(listening_);
}

// Whatever moves puts the end of patience off; only a login that never comes does not.
void RecoveryService::wait_no_longer_than(Place receiver, std::chrono::milliseconds longest) {
    loop_.cancel(receiver->timer);
    receiver->timer = loop_.after(longest, [this, receiver] {
        receiver->timer = 0;
        if (receiver->talk.logged_in() || receiver->talk.over()) return close(receiver);
        receiver->owed = receiver->talk.time_out();
        receiver->sent = 0;
        if (send_owed(receiver)) watch(receiver);
    });
}

void RecoveryService::on_events(Place receiver, short events) {
    if ((events & (POLLIN | POLLHUP | POLLERR)) != 0 && !hear(receiver)) return;
    if (!send_owed(receiver)) return;
    watch(receiver);
}

// False when the connection is over, and the receiver gone from the list.
bool RecoveryService::hear(Place receiver) {
    std::array<std::uint8_t, request_bytes> room;
    const ssize_t count = recv(receiver->socket, room.data(), room.size(), 0);
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) return true;
    if (count <= 0) {
        close(receiver);
        return false;
    }
    if (receiver->talk.over()) return true;  // thrown away
    const Bytes answer = receiver->talk.take(ByteView(room.data(), static_cast<std::size_t>(count)), feed_);
    receiver->owed.erase(receiver->owed.begin(), receiver->owed.begin() + static_cast<std::ptrdiff_t>(receiver->sent));
    receiver->owed.insert(receiver->owed.end(), answer.begin(), answer.end());
    receiver->sent = 0;
    retransmissions_ += receiver->talk.served() == RecoveryTalk::Served::messages ? 1 : 0;
    refreshes_ += receiver->talk.served() == RecoveryTalk::Served::state ? 1 : 0;
    if (!receiver->talk.logged_out()) return true;
    close(receiver);
    return false;
}

bool RecoveryService::send_owed(Place receiver) {
    while (receiver->sent < receiver->owed.size()) {
        const ByteView rest = ByteView(receiver->owed).subspan(receiver->sent);
        const ssize_t count = send(receiver->socket, rest.data(), rest.size(), MSG_NOSIGNAL);
        if (count < 0 && (errno == EAGAIN || errno == EINTR)) return true;
        if (count < 0) {
            close(receiver);
            return false;
        }
        receiver->sent += static_cast<std::size_t>(count);
        if (receiver->talk.over()) wait_no_longer_than(receiver, without_moving);
    }
    if (!receiver->talk.over() || receiver->finished) return true;
    shutdown(receiver->socket, SHUT_WR);
    receiver->finished = true;
    wait_no_longer_than(receiver, without_moving);
    return true;
}

// Before the goodbye nothing is heard of whoever has not taken its answer.
void RecoveryService::watch(Place receiver) {
    const bool owed = receiver->sent < receiver->owed.size();
    const bool listens = !owed || receiver->talk.over();
    const int events = (owed ? POLLOUT : 0) | (listens ? POLLIN : 0);
    loop_.watch(receiver->socket, static_cast<short>(events),
                [this, receiver](short happened) { on_events(receiver, happened); });
}

void RecoveryService::close(Place receiver) {
    loop_.cancel(receiver->timer);
    loop_.forget(receiver->socket);
    ::close(receiver->socket);
    receivers_.erase(receiver);
    loop_.watch(listening_, POLLIN, [this](short) { accept_receivers(); });
}

}  // namespace kavo::companion
