// Addresses and connections, as a client of the venue needs them.
#pragma once

#include <netinet/in.h>

#include <chrono>
#include <cstdint>
#include <string>

namespace kavo::client {

// How long a client waits for what should have happened long before.
inline constexpr std::chrono::seconds patience{20};

// A blocking socket connected to this port of 127.0.0.1, without delay of small packets, to be closed by the caller.
// Throws when nobody listens.
//   receive_buffer  bytes; 0 is the system's choice
int dial(std::uint16_t port, int receive_buffer = 0);

// An IPv4 address of four numbers. Throws for anything else.
in_addr ipv4_address(const std::string& text);

}  // namespace kavo::client
