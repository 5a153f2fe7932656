#include "client/dial.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>
#include <string>

namespace kavo::client {

int dial(std::uint16_t port, int receive_buffer) {
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    // The window that a connection begins with is that of the buffer that it has by then.
    if (receive_buffer != 0) setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &receive_buffer, sizeof receive_buffer);
    sockaddr_in venue{};
    venue.sin_family = AF_INET;
    venue.sin_port = htons(port);
    venue.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(socket, reinterpret_cast<const sockaddr*>(&venue), sizeof venue) != 0) {
        close(socket);
        throw std::runtime_error("nobody listens on port " + std::to_string(port));
    }
    const int on = 1;
    setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    return socket;
}

in_addr ipv4_address(const std::string& text) {
    in_addr address{};
    if (inet_pton(AF_INET, text.c_str(), &address) != 1) throw std::runtime_error("no address: " + text);
    return address;
}

}  // namespace kavo::client
