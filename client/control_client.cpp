#include "client/control_client.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>

namespace kavo::client {

ControlClient::ControlClient(std::uint16_t port) : socket_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in venue{};
    venue.sin_family = AF_INET;
    venue.sin_port = htons(port);
    venue.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(socket_, reinterpret_cast<const sockaddr*>(&venue), sizeof venue) != 0) {
        throw std::runtime_error("no way to the control port");
    }
}

ControlClient::~ControlClient() {
    close(socket_);
}

void ControlClient::send(std::string_view datagram) const {
    if (::send(socket_, datagram.data(), datagram.size(), 0) != static_cast<ssize_t>(datagram.size())) {
        throw std::runtime_error("a command could not be sent");
    }
}

std::string ControlClient::next_reply(std::chrono::milliseconds longest) const {
    pollfd polled{socket_, POLLIN, 0};
    if (poll(&polled, 1, static_cast<int>(longest.count())) <= 0) return "silence";
    char reply[65'536];
    const ssize_t size = recv(socket_, reply, sizeof reply, 0);
    return size < 0 ? "silence" : std::string(reply, static_cast<std::size_t>(size));
}

std::string ControlClient::ask(std::string_view command) const {
    send(command);
    return next_reply();
}

std::uint64_t ControlClient::next_sequence() const {
    return number_behind(" next_seq=", ask("stats"));
}

std::uint64_t number_behind(std::string_view label, const std::string& text) {
    const std::size_t at = text.find(label);
    if (at == std::string::npos) throw std::runtime_error("no '" + std::string(label) + "' in: " + text);
    return std::stoull(text.substr(at + label.size()));
}

}  // namespace kavo::client
