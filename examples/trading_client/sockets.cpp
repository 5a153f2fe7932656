#include "sockets.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <stdexcept>

#include "client/dial.h"

namespace trading {

namespace {

constexpr std::size_t read_bytes = 64 << 10;
constexpr int feed_buffer_bytes = 4 << 20;

sockaddr_in name_of(const Address& address) {
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_port = htons(address.port);
    name.sin_addr = kavo::client::ipv4_address(address.host);
    return name;
}

bool nothing_yet() {
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
}

[[noreturn]] void give_up(const std::string& what) {
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

}  // namespace

std::uint64_t now_ms() {
    using namespace std::chrono;
    return static_cast<std::uint64_t>(duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
}

std::uint64_t wall_ns() {
    using namespace std::chrono;
    return static_cast<std::uint64_t>(duration_cast<nanoseconds>(system_clock::now().time_since_epoch()).count());
}

Socket& Socket::operator=(Socket&& other) noexcept {
    if (this == &other) return *this;
    close();
    number_ = std::exchange(other.number_, -1);
    return *this;
}

void Socket::close() {
    if (open()) ::close(number_);
    number_ = -1;
}

bool Socket::read(kavo::Bytes& into) const {
    while (true) {
        const std::size_t before = into.size();
        into.resize(before + read_bytes);
        const ssize_t count = recv(number_, into.data() + before, read_bytes, 0);
        into.resize(before + static_cast<std::size_t>(count > 0 ? count : 0));
        if (count == 0) return false;
        if (count < 0) return nothing_yet();
    }
}

std::optional<std::size_t> Socket::write(kavo::ByteView bytes) const {
    const ssize_t count = ::send(number_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (count >= 0) return static_cast<std::size_t>(count);
    if (nothing_yet()) return 0;
    return std::nullopt;
}

std::optional<kavo::Bytes> Socket::datagram() const {
    kavo::Bytes bytes(read_bytes);
    const ssize_t count = recv(number_, bytes.data(), bytes.size(), 0);
    if (count < 0) return std::nullopt;
    bytes.resize(static_cast<std::size_t>(count));
    return bytes;
}

Socket begin_connection(const Address& address) {
    const sockaddr_in name = name_of(address);
    Socket socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket.open()) give_up("no socket");
    const int on = 1;
    setsockopt(socket.number(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    connect(socket.number(), reinterpret_cast<const sockaddr*>(&name), sizeof name);
    return socket;
}

Socket join_feed(const Address& feed, const std::string& interface_address) {
    const sockaddr_in name = name_of(feed);
    Socket socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const int on = 1;
    setsockopt(socket.number(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    setsockopt(socket.number(), SOL_SOCKET, SO_RCVBUF, &feed_buffer_bytes, sizeof feed_buffer_bytes);
    if (bind(socket.number(), reinterpret_cast<const sockaddr*>(&name), sizeof name) != 0) {
        give_up("cannot listen on " + feed.host);
    }
    if (!IN_MULTICAST(ntohl(name.sin_addr.s_addr))) return socket;
    const ip_mreq membership{name.sin_addr, kavo::client::ipv4_address(interface_address)};
    if (setsockopt(socket.number(), IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof membership) != 0) {
        give_up("cannot join " + feed.host + " on " + interface_address);
    }
    return socket;
}

}  // namespace trading
