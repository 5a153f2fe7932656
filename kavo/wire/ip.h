// What a recording writes and a capture reads of the headers in front of what was said.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kavo::companion {

inline constexpr std::size_t ip_header_bytes = 20;  // without options
inline constexpr std::size_t tcp_header_bytes = 20;
inline constexpr std::size_t udp_header_bytes = 8;
inline constexpr std::uint8_t ip_protocol_tcp = 6;
inline constexpr std::uint8_t ip_protocol_udp = 17;

}  // namespace kavo::companion
