// MACH, the packets inside a feed datagram: a 12-byte header, then at most one message. A datagram is a plain run of
// packets.
#pragma once

#include <array>
#include <cstdint>
#include <optional>

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
    std::uint16_t length = layout::header_size;
    PacketType type = PacketType::heartbeat;
    std::uint8_t session = 0;
};

// Writes the header at the start of `packet`, whose length it states.
void write_header(MutableBytes packet, std::uint64_t sequence, PacketType type, std::uint8_t session);

// A packet that is nothing but its header: start and heartbeat.
using BarePacket = std::array<std::uint8_t, layout::header_size>;
BarePacket bare_packet(std::uint64_t sequence, PacketType type, std::uint8_t session);

struct Packet {
    Header header;
    ByteView message;  // empty for start and heartbeat
};
// Takes the first packet off a datagram; nothing when what is left is no whole packet.
std::optional<Packet> take_packet(ByteView& datagram);

}  // namespace kavo::mach
