#include "feed/mach.h"

namespace kavo::mach {

void write_header(MutableBytes packet, std::uint64_t sequence, PacketType type, std::uint8_t session) {
    put(packet, layout::sequence, sequence);
    put(packet, layout::length, static_cast<std::uint16_t>(packet.size()));
    put(packet, layout::type, static_cast<std::uint8_t>(type));
    put(packet, layout::session, session);
}

BarePacket bare_packet(std::uint64_t sequence, PacketType type, std::uint8_t session) {
    BarePacket packet{};
    write_header(packet, sequence, type, session);
    return packet;
}

std::optional<Packet> take_packet(ByteView& datagram) {
    if (datagram.size() < layout::header_size) return std::nullopt;
    const Header header{get(datagram, layout::sequence), get(datagram, layout::length),
                        static_cast<PacketType>(get(datagram, layout::type)), get(datagram, layout::session)};
    if (header.length < layout::header_size || header.length > datagram.size()) return std::nullopt;
    const Packet packet{header, datagram.subspan(layout::header_size, header.length - layout::header_size)};
    datagram = datagram.subspan(header.length);
    return packet;
}

}  // namespace kavo::mach
