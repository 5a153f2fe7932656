// The UDP sockets of this machine, or of this network namespace, that hear a feed, and what the kernel has thrown away
// because they were not read in time.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kavo::companion {

struct UdpSocket {
    std::uint64_t inode = 0;  // tells sockets apart
    std::uint64_t drops = 0;  // since it was opened
};

// Those bound to this port, and to this address or to all.
//   address  host byte order
std::vector<UdpSocket> udp_sockets(std::uint32_t address, std::uint16_t port);

// The same in a table of the kernel's, /proc/net/udp or /proc/net/udp6.
std::vector<UdpSocket> udp_sockets_in(const std::string& table, std::uint32_t address, std::uint16_t port);

}  // namespace kavo::companion
