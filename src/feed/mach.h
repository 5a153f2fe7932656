// MACH, the packets inside a feed datagram: a 12-byte header, then at most one message. A datagram is a plain run of
// packets.
#pragma once

#include <array>
#include <cstdint>

#include "common/bytes.h"

namespace kavo::mach {

enum class PacketType : std::uint8_t {
    heartbeat = 0,         // sequence: the last number used
    start = 1,             // sequence: 0
    application_data = 3,  // sequence: the message's own
};

namespace layout {
inline constexpr Number<std::uint64_t> sequence{0};
inline constexpr Number<std::uint16_t> length{8};  // of the whole packet
inline constexpr Number<std::uint8_t> type{10};
inline constexpr Number<std::uint8_t> session{11};
inline constexpr std::size_t header_size = end_of(session);
static_assert(adjoin(sequence, length, type, session) && header_size == 12);
}  // namespace layout

inline constexpr std::size_t max_datagram_bytes = 1400;

struct Header {
    std::uint64_t sequence = 0;
    std::uint16_t length = layout::header_size;  // of the whole packet
    PacketType type = PacketType::heartbeat;
    std::uint8_t session = 0;
};

using HeaderBytes = std::array<std::uint8_t, layout::header_size>;
// A start or a heartbeat is nothing else.
HeaderBytes build(const Header& header);

}  // namespace kavo::mach
