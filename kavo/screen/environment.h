// Where a bench listens, as `kavo test` and whoever else starts one tell the processes that they start:
//   KAVO_ORDERS, KAVO_RECOVERY, KAVO_CONTROL  127.0.0.1:PORT
//   KAVO_FEED                                 GROUP:PORT
//   KAVO_IFACE                                address of the interface on which the feed is heard
// A port alone will do as well, where the address is always the same.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace kavo::companion {

struct Endpoint {
    std::string address;  // empty when only a port was named
    std::uint16_t port = 0;
};

// "ADDRESS:PORT" or "PORT"; nothing for anything else.
std::optional<Endpoint> endpoint_of(const std::string& text);

// Nothing when the variable is not set, or empty. Throws Problem when it names no port.
std::optional<Endpoint> endpoint_from_environment(const char* variable);

// The port that was asked for on the command line, or else the environment's, or else this one.
std::uint16_t port_or(std::optional<std::uint16_t> asked, const char* variable, std::uint16_t otherwise);

// The feed, part by part, in the same way.
struct FeedAddress {
    std::string group = "233.54.28.111";
    std::uint16_t port = 25377;
    std::string interface_address = "127.0.0.1";
};
struct AskedFeed {
    std::optional<std::string> group;
    std::optional<std::uint16_t> port;
    std::optional<std::string> interface_address;
};
FeedAddress feed_address(const AskedFeed& asked);
// False for a feed that goes to one address alone, where the last who listens takes it from everybody else.
bool is_multicast(const FeedAddress& address);

}  // namespace kavo::companion
