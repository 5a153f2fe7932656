#include "client/feed_reader.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "client/dial.h"
#include "client/feed_messages.h"
#include "client/transcript.h"

namespace kavo::client {

namespace {

using std::chrono::steady_clock;

constexpr int receive_buffer_bytes = 4 << 20;  // a receiver that is late must not lose what the test wants to see

[[noreturn]] void give_up(int receiver, const std::string& what) {
    const std::string reason = std::strerror(errno);
    close(receiver);
    throw std::runtime_error(what + ": " + reason);
}

int open_receiver(const std::string& address, std::uint16_t port) {
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_port = htons(port);
    name.sin_addr = ipv4_address(address);
    const int receiver = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    setsockopt(receiver, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    setsockopt(receiver, SOL_SOCKET, SO_RCVBUF, &receive_buffer_bytes, sizeof receive_buffer_bytes);
    if (bind(receiver, reinterpret_cast<const sockaddr*>(&name), sizeof name) != 0) {
        give_up(receiver, "cannot listen on " + address + ":" + std::to_string(port));
    }
    return receiver;
}

bool is_multicast(const std::string& address) {
    return IN_MULTICAST(ntohl(ipv4_address(address).s_addr));
}

}  // namespace

// SO_REUSEADDR would let two tests share a port, but the system never chooses one that is taken.
FeedReader::FeedReader() : socket_(open_receiver("127.0.0.1", 0)) {}

FeedReader::FeedReader(const std::string& group, std::uint16_t port, const std::string& interface_address) {
    const ip_mreq membership{ipv4_address(group), ipv4_address(interface_address)};
    socket_ = open_receiver(group, port);
    if (!is_multicast(group)) return;
    if (setsockopt(socket_, IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof membership) != 0) {
        give_up(socket_, "cannot join " + group + " on " + interface_address);
    }
}

FeedReader::~FeedReader() {
    close(socket_);
}

std::uint16_t FeedReader::port() const {
    sockaddr_in name{};
    socklen_t size = sizeof name;
    getsockname(socket_, reinterpret_cast<sockaddr*>(&name), &size);
    return ntohs(name.sin_port);
}

std::optional<Bytes> FeedReader::next_datagram(std::chrono::milliseconds longest) {
    pollfd polled{socket_, POLLIN, 0};
    if (poll(&polled, 1, static_cast<int>(longest.count())) <= 0) return std::nullopt;
    Bytes datagram(65'536);
    const ssize_t size = recv(socket_, datagram.data(), datagram.size(), 0);
    if (size < 0) return std::nullopt;
    datagram.resize(static_cast<std::size_t>(size));
    return datagram;
}

std::optional<FeedReader::Packet> FeedReader::next_packet(std::chrono::milliseconds longest) {
    if (packets_.empty()) {
        const std::optional<Bytes> datagram = next_datagram(longest);
        if (!datagram) return std::nullopt;
        ByteView rest = *datagram;
        while (const auto packet = read_feed_packet(rest)) {
            packets_.push_back({packet->header, Bytes(packet->message.begin(), packet->message.end())});
        }
        if (packets_.empty()) throw std::runtime_error("a datagram without packets");
        if (!packets_.front().message.empty()) ++datagrams_;
    }
    Packet packet = std::move(packets_.front());
    packets_.pop_front();
    if (!packet.message.empty()) last_sequence_ = packet.header.sequence;
    return packet;
}

std::string FeedReader::next_message(const std::string& start) {
    const auto deadline = steady_clock::now() + patience;
    while (steady_clock::now() < deadline) {
        const std::optional<Packet> packet = next_packet(std::chrono::milliseconds(100));
        if (!packet || packet->message.empty()) continue;
        std::string text = dom_text(packet->message);
        if (text.starts_with(start)) return text;
    }
    return {};
}

// The next line worth reading, after at most so long a silence.
std::optional<std::string> FeedReader::next_line(std::chrono::milliseconds longest) {
    while (const std::optional<Packet> packet = next_packet(longest)) {
        if (packet->message.empty()) continue;
        const std::string text = dom_text(packet->message);
        if (!text.starts_with("time ")) return text;
    }
    return std::nullopt;
}

std::string FeedReader::next() {
    const auto deadline = steady_clock::now() + patience;
    while (steady_clock::now() < deadline) {
        if (const auto line = next_line(std::chrono::milliseconds(100))) return *line;
    }
    return "silence";
}

std::string FeedReader::next(std::size_t count) {
    std::vector<std::string> lines;
    for (std::size_t i = 0; i < count; ++i) lines.push_back(next());
    return joined(lines);
}

std::string FeedReader::waiting() {
    std::vector<std::string> lines;
    while (const auto line = next_line(std::chrono::milliseconds(0))) lines.push_back(*line);
    return joined(lines);
}

}  // namespace kavo::client
