#include "kavo/bench/ports.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <random>
#include <string>

#include "kavo/basics/problem.h"

namespace kavo::companion {

namespace {

constexpr int block_ports = 8;
constexpr int lowest_leased = 10'000;  // below are well-known services
constexpr int highest_port = 65'535;
constexpr int backlog = 64;

// Without SO_REUSEADDR, so that whoever holds the port on any address, and even a connection that has just ended on it,
// is in the way.
Descriptor bound(int type, in_addr_t address, std::uint16_t port) {
    Descriptor socket{::socket(AF_INET, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)};
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_port = htons(port);
    name.sin_addr.s_addr = htonl(address);
    if (bind(socket.get(), reinterpret_cast<const sockaddr*>(&name), sizeof name) != 0) return Descriptor{};
    return socket;
}

bool is_free(std::uint16_t port) {
    return bound(SOCK_STREAM, INADDR_ANY, port).open() && bound(SOCK_DGRAM, INADDR_ANY, port).open();
}

bool holds_a_default(int first) {
    for (const int port : {25'377, 25'379, 28'700}) {
        if (port >= first && port < first + block_ports) return true;
    }
    return false;
}

}  // namespace

std::vector<std::uint16_t> blocks_beside(std::uint16_t lowest, std::uint16_t highest) {
    std::vector<std::uint16_t> blocks;
    const auto add = [&blocks](int from, int to) {
        for (int first = from; first + block_ports <= to; first += block_ports) {
            if (!holds_a_default(first)) blocks.push_back(static_cast<std::uint16_t>(first));
        }
    };
    add(lowest_leased, lowest);
    // Where the system's range begins far down, what is above it has to do.
    if (blocks.empty()) add(std::max(highest + 1, lowest_leased), highest_port + 1);
    return blocks;
}

std::optional<PortLease> lease_block(std::uint16_t first) {
    PortLease lease;
    lease.held = bound(SOCK_STREAM, INADDR_ANY, first);
    if (!lease.held.open()) return std::nullopt;
    for (int i = 1; i < block_ports; ++i) {
        if (!is_free(static_cast<std::uint16_t>(first + i))) return std::nullopt;
    }
    std::uint16_t next = first;
    BenchPorts& ports = lease.ports;
    for (std::uint16_t* port :
         {&ports.orders, &ports.recovery, &ports.orders_behind, &ports.recovery_behind, &ports.feed, &ports.control}) {
        *port = ++next;
    }
    return lease;
}

PortLease lease_ports() {
    std::uint16_t lowest = 32'768;
    std::uint16_t highest = 60'999;
    std::ifstream("/proc/sys/net/ipv4/ip_local_port_range") >> lowest >> highest;
    const std::vector<std::uint16_t> blocks = blocks_beside(lowest, highest);
    const std::size_t start = std::random_device{}();
    for (std::size_t i = 0; i < blocks.size(); ++i) {
        auto lease = lease_block(blocks[(start + i) % blocks.size()]);
        if (lease) return std::move(*lease);
    }
    throw Problem(Status::bench, "all " + std::to_string(blocks.size()) +
                                     " blocks of ports are taken: end benches that are not needed, or try --isolated.");
}

BenchPorts default_ports() {
    return {.orders = 28'700,
            .recovery = 25'379,
            .orders_behind = 28'701,
            .recovery_behind = 25'380,
            .feed = 25'377,
            .control = 25'378};
}

Descriptor listen_on(std::uint16_t port) {
    Descriptor socket = bound(SOCK_STREAM, INADDR_LOOPBACK, port);
    if (socket.open() && listen(socket.get(), backlog) == 0) return socket;
    throw Problem(Status::bench, "cannot listen on port " + std::to_string(port) + ": " + std::strerror(errno) +
                                     ". Somebody took it just now; try again.");
}

}  // namespace kavo::companion
