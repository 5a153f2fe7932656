#include "common/socket.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace kavo {

namespace {

void make_non_blocking(int socket) {
    fcntl(socket, F_SETFL, fcntl(socket, F_GETFL) | O_NONBLOCK);
}

void switch_on(int socket, int level, int option) {
    const int on = 1;
    setsockopt(socket, level, option, &on, sizeof on);
}

}  // namespace

in_addr to_address(const std::string& text) {
    in_addr address{};
    inet_pton(AF_INET, text.c_str(), &address);
    return address;
}

int open_listener(std::uint16_t port, int backlog, const char* what) {
    const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
    switch_on(listener, SOL_SOCKET, SO_REUSEADDR);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(listener, backlog) != 0) {
        std::perror(what);
        close_socket(listener);
        return no_socket;
    }
    make_non_blocking(listener);
    return listener;
}

int accept_connection(int listener, bool& exhausted) {
    const int connection = accept(listener, nullptr, nullptr);
    exhausted = connection < 0 && (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM);
    if (connection < 0) return no_socket;
    make_non_blocking(connection);
    switch_on(connection, IPPROTO_TCP, TCP_NODELAY);
    return connection;
}

ReadEnd read_available(int socket, MutableBytes scratch, Bytes& buffer, bool& arrived) {
    arrived = false;
    while (true) {
        const ssize_t count = recv(socket, scratch.data(), scratch.size(), 0);
        if (count == 0) return ReadEnd::gone;
        if (count < 0) return errno == EAGAIN ? ReadEnd::drained : ReadEnd::gone;
        buffer.insert(buffer.end(), scratch.begin(), scratch.begin() + count);
        arrived = true;
    }
}

void send_packet(int socket, ByteView packet, bool more_follows) {
    const int flags = MSG_NOSIGNAL | (more_follows ? MSG_MORE : 0);
    [[maybe_unused]] const ssize_t ignored = send(socket, packet.data(), packet.size(), flags);
}

void close_socket(int socket) {
    if (socket >= 0) close(socket);
}

}  // namespace kavo
