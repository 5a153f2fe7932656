#include "kavo/wire/relay.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace kavo::companion {

namespace {

// With no descriptor left, those who call wait so long until it is tried again.
constexpr std::chrono::milliseconds until_descriptors{10};

std::uint16_t port_of(const sockaddr_in& name) {
    return ntohs(name.sin_port);
}

std::uint16_t own_port(int socket) {
    sockaddr_in name{};
    socklen_t size = sizeof name;
    getsockname(socket, reinterpret_cast<sockaddr*>(&name), &size);
    return port_of(name);
}

}  // namespace

Relay::Relay(Loop& loop, Recording& recording, RunLog& log, int listening, std::uint16_t behind)
    : loop_(loop),
      parts_{.loop = loop,
             .recording = recording,
             .log = log,
             .faults_of = [this](const std::string& user) -> RelayFaults& { return faults_[user]; },
             .on_packet =
                 [this](const std::string& user, bool by_client, ByteView packet) {
                     if (on_packet) on_packet(user, by_client, packet);
                 },
             .on_end =
                 [this] {
                     // Not at once: the connection that is over is still at work.
                     if (clearing_ == 0) clearing_ = loop_.after(std::chrono::nanoseconds(0), [this] { clear_away(); });
                 }},
      listening_(listening),
      port_(own_port(listening)),
      behind_(behind) {
    fcntl(listening_, F_SETFL, fcntl(listening_, F_GETFL) | O_NONBLOCK);
    loop_.watch(listening_, POLLIN, [this](short) { accept_clients(); });
}

Relay::~Relay() {
    loop_.cancel(accepting_);
    loop_.cancel(clearing_);
    loop_.forget(listening_);
    close(listening_);
}

void Relay::accept_clients() {
    sockaddr_in caller{};
    socklen_t size = sizeof caller;
    int client = -1;
    while ((client = accept4(listening_, reinterpret_cast<sockaddr*>(&caller), &size, SOCK_CLOEXEC | SOCK_NONBLOCK)) >=
           0) {
        connections_.emplace_back(parts_, client, Recording::Ends{port_of(caller), port_}, behind_);
    }
    if (errno != EAGAIN && errno != ECONNABORTED && errno != EINTR) accept_again_later();
}

void Relay::accept_again_later() {
    loop_.forget(listening_);
    accepting_ = loop_.after(until_descriptors,
                             [this] { loop_.watch(listening_, POLLIN, [this](short) { accept_clients(); }); });
}

void Relay::clear_away() {
    clearing_ = 0;
    connections_.remove_if([](const RelayConnection& connection) { return connection.over(); });
}

RelayFaults& Relay::faults(const std::string& user) {
    return faults_[user];
}

std::vector<RelayConnection*> Relay::connections_of(const std::string& user) {
    std::vector<RelayConnection*> found;
    for (RelayConnection& connection : connections_) {
        if (connection.user() == user && !connection.broken()) found.push_back(&connection);
    }
    return found;
}

void Relay::apply(const std::string& user) {
    for (RelayConnection* connection : connections_of(user)) connection->apply();
}

std::size_t Relay::break_connections(const std::string& user, Breaking how) {
    const auto connections = connections_of(user);
    for (RelayConnection* connection : connections) connection->break_now(how);
    return connections.size();
}

std::size_t Relay::open_connections() const {
    return static_cast<std::size_t>(
        std::ranges::count_if(connections_, [](const RelayConnection& connection) { return !connection.over(); }));
}

}  // namespace kavo::companion
