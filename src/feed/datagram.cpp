#include "feed/datagram.h"

#include <algorithm>

namespace kavo::mach {

void Datagram::add(std::uint64_t sequence, std::uint8_t session, ByteView message) {
    const auto size = static_cast<std::uint16_t>(layout::header_size + message.size());
    const HeaderBytes header = build(Header{sequence, size, PacketType::application_data, session});
    const auto behind_header =
        std::copy(header.begin(), header.end(), bytes_.begin() + static_cast<std::ptrdiff_t>(fill_));
    std::copy(message.begin(), message.end(), behind_header);
    fill_ += size;
    if (messages_++ == 0) first_sequence_ = sequence;
}

void Datagram::clear() {
    fill_ = 0;
    messages_ = 0;
    first_sequence_ = 0;
}

}  // namespace kavo::mach
