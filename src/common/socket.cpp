#include "common/socket.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/sockios.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace kavo {

namespace {

void make_non_blocking(int socket) {
    fcntl(socket, F_SETFL, fcntl(socket, F_GETFL) | O_NONBLOCK);
}

void switch_on(int socket, int level, int option) {
    const int on = 1;
    setsockopt(socket, level, option, &on, sizeof on);
}

bool bind_to(int socket, in_addr_t address, std::uint16_t port) {
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_port = htons(port);
    name.sin_addr.s_addr = htonl(address);
    return bind(socket, reinterpret_cast<const sockaddr*>(&name), sizeof name) == 0;
}

// Says why the last call failed, and gives the socket up.
int give_up(int socket, const char* what, const Commentary& commentary) {
    commentary.say("%s: %s\n", what, std::strerror(errno));
    close_socket(socket);
    return no_socket;
}

}  // namespace

in_addr to_address(const std::string& text) {
    in_addr address{};
    inet_pton(AF_INET, text.c_str(), &address);
    return address;
}

int open_listener(std::uint16_t port, int backlog, const char* what, const Commentary& commentary) {
    const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
    if (listener == no_socket) return give_up(listener, what, commentary);
    switch_on(listener, SOL_SOCKET, SO_REUSEADDR);
    if (!bind_to(listener, INADDR_ANY, port) || listen(listener, backlog) != 0) {
        return give_up(listener, what, commentary);
    }
    make_non_blocking(listener);
    return listener;
}

int open_local_datagrams(std::uint16_t port, const char* what, const Commentary& commentary) {
    const int datagrams = ::socket(AF_INET, SOCK_DGRAM, 0);
    if (datagrams == no_socket) return give_up(datagrams, what, commentary);
    switch_on(datagrams, SOL_SOCKET, SO_REUSEADDR);
    if (!bind_to(datagrams, INADDR_LOOPBACK, port)) return give_up(datagrams, what, commentary);
    make_non_blocking(datagrams);
    return datagrams;
}

int accept_connection(int listener, bool& exhausted) {
    const int connection = accept(listener, nullptr, nullptr);
    exhausted = connection < 0 && (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM);
    if (connection < 0) return no_socket;
    make_non_blocking(connection);
    switch_on(connection, IPPROTO_TCP, TCP_NODELAY);
    return connection;
}

ReadEnd read_available(int socket, MutableBytes scratch, Bytes& buffer, bool& arrived, bool end_possible) {
    arrived = false;
    for (int reads = 0; reads < reads_a_turn; ++reads) {
        const ssize_t count = recv(socket, scratch.data(), scratch.size(), 0);
        if (count == 0) return ReadEnd::gone;
        if (count < 0) return errno == EAGAIN ? ReadEnd::open : ReadEnd::gone;
        buffer.insert(buffer.end(), scratch.begin(), scratch.begin() + count);
        arrived = true;
        if (static_cast<std::size_t>(count) == scratch.size()) break;
        if (!end_possible) return ReadEnd::open;
    }
    return ReadEnd::more;
}

std::optional<std::size_t> send_packet(int socket, ByteView packet, bool more_follows) {
    const int flags = MSG_NOSIGNAL | (more_follows ? MSG_MORE : 0);
    const ssize_t taken = send(socket, packet.data(), packet.size(), flags);
    if (taken >= 0) return static_cast<std::size_t>(taken);
    if (errno == EAGAIN) return 0;
    return std::nullopt;
}

// Switching the option on again is what pushes.
void push_packets(int socket) {
    switch_on(socket, IPPROTO_TCP, TCP_NODELAY);
}

std::size_t unacknowledged_bytes(int socket) {
    int count = 0;
    return ioctl(socket, SIOCOUTQ, &count) == 0 ? static_cast<std::size_t>(count) : 0;
}

void finish_sending(int socket) {
    shutdown(socket, SHUT_WR);
}

Transport socket_transport(const int& listener) {
    return {
        .accept =
            [&listener](bool& exhausted) {
                exhausted = false;
                return listener == no_socket ? no_socket : accept_connection(listener, exhausted);
            },
        .read = [scratch = Bytes(read_bytes)](
                    int fd, Bytes& buffer, bool& arrived,
                    bool end_possible) mutable { return read_available(fd, scratch, buffer, arrived, end_possible); },
        .send = send_packet,
        .push = push_packets,
        .unacknowledged = unacknowledged_bytes,
        .finish = finish_sending,
        .close = close_socket,
    };
}

void close_socket(int socket) {
    if (socket >= 0) close(socket);
}

}  // namespace kavo
