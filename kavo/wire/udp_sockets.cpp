#include "kavo/wire/udp_sockets.h"

#include <arpa/inet.h>

#include <algorithm>
#include <charconv>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string_view>

namespace kavo::companion {

namespace {

constexpr std::size_t inode_field = 9;
constexpr std::size_t drops_field = 12;

// An address as the kernel writes it down: eight hexadecimal digits for each four bytes, which it takes for a number
// of this machine. One of IPv6 hears the feed when it stands for all addresses, or for one of IPv4 in its last digits.
bool hears(std::string_view local, std::uint32_t address, std::uint16_t port) {
    const std::size_t colon = local.find(':');
    if (colon == std::string_view::npos || colon < 8) return false;
    const auto number = [](std::string_view digits) {
        std::uint32_t value = 0;
        std::from_chars(digits.data(), digits.data() + digits.size(), value, 16);
        return value;
    };
    if (number(local.substr(colon + 1)) != port) return false;
    const std::uint32_t bound = ntohl(number(local.substr(colon - 8, 8)));
    const std::string_view before = local.substr(0, colon - 8);
    const bool plain = before.find_first_not_of('0') == std::string_view::npos;
    const bool mapped = before == "0000000000000000FFFF0000";
    return (bound == 0 && plain) || (bound == address && (before.empty() || mapped)) || (bound == 0 && mapped);
}

std::string content_of(const char* file) {
    std::ifstream in(file);
    return {std::istreambuf_iterator<char>(in), {}};
}

}  // namespace

std::vector<UdpSocket> udp_sockets_in(const std::string& table, std::uint32_t address, std::uint16_t port) {
    std::vector<UdpSocket> found;
    std::istringstream lines(table);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        const std::vector<std::string> fields{std::istream_iterator<std::string>(words), {}};
        if (fields.size() <= drops_field || !hears(fields[1], address, port)) continue;
        found.push_back({std::stoull(fields[inode_field]), std::stoull(fields[drops_field])});
    }
    return found;
}

std::vector<UdpSocket> udp_sockets(std::uint32_t address, std::uint16_t port) {
    std::vector<UdpSocket> found = udp_sockets_in(content_of("/proc/net/udp"), address, port);
    const std::vector<UdpSocket> more = udp_sockets_in(content_of("/proc/net/udp6"), address, port);
    found.insert(found.end(), more.begin(), more.end());
    return found;
}

}  // namespace kavo::companion
