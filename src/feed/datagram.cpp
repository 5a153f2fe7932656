#include "feed/datagram.h"

#include <algorithm>

namespace kavo::mach {

void Datagram::add(std::uint64_t sequence, std::uint8_t session, ByteView message) {
    const MutableBytes packet = MutableBytes(bytes_).subspan(fill_, layout::header_size + message.size());
    write_header(packet, sequence, PacketType::application_data, session);
    std::copy(message.begin(), message.end(), packet.begin() + layout::header_size);
    fill_ += packet.size();
    if (messages_++ == 0) first_sequence_ = sequence;
}

void Datagram::clear() {
    fill_ = 0;
    messages_ = 0;
    first_sequence_ = 0;
}

}  // namespace kavo::mach
