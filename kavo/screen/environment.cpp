#include "kavo/screen/environment.h"

#include <arpa/inet.h>

#include <charconv>
#include <cstdlib>

#include "kavo/basics/problem.h"

namespace kavo::companion {

std::optional<Endpoint> endpoint_of(const std::string& text) {
    const std::size_t colon = text.rfind(':');
    const std::size_t number = colon == std::string::npos ? 0 : colon + 1;
    Endpoint endpoint;
    if (colon != std::string::npos) endpoint.address = text.substr(0, colon);
    const char* end = text.data() + text.size();
    const auto read = std::from_chars(text.data() + number, end, endpoint.port);
    if (read.ec != std::errc() || read.ptr != end) return std::nullopt;
    return endpoint;
}

std::optional<Endpoint> endpoint_from_environment(const char* variable) {
    const char* text = std::getenv(variable);
    if (text == nullptr || *text == '\0') return std::nullopt;
    auto endpoint = endpoint_of(text);
    if (!endpoint) {
        throw Problem(Status::usage, "the environment has " + std::string(variable) + "=" + text +
                                         ", which is no ADDRESS:PORT: unset it, or correct it");
    }
    return endpoint;
}

std::uint16_t port_or(std::optional<std::uint16_t> asked, const char* variable, std::uint16_t otherwise) {
    if (asked) return *asked;
    const auto endpoint = endpoint_from_environment(variable);
    return endpoint ? endpoint->port : otherwise;
}

FeedAddress feed_address(const AskedFeed& asked) {
    FeedAddress address;
    if (const auto feed = endpoint_from_environment("KAVO_FEED")) {
        if (!feed->address.empty()) address.group = feed->address;
        address.port = feed->port;
    }
    if (const char* iface = std::getenv("KAVO_IFACE"); iface != nullptr && *iface != '\0') {
        address.interface_address = iface;
    }
    if (asked.group) address.group = *asked.group;
    if (asked.port) address.port = *asked.port;
    if (asked.interface_address) address.interface_address = *asked.interface_address;
    return address;
}

bool is_multicast(const FeedAddress& address) {
    in_addr group{};
    return inet_pton(AF_INET, address.group.c_str(), &group) == 1 && IN_MULTICAST(ntohl(group.s_addr));
}

}  // namespace kavo::companion
