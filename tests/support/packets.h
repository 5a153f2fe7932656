// Packets as a scene puts them together.
#pragma once

#include <vector>

#include "client/recovery.h"
#include "common/bytes.h"
#include "session/esesm.h"

namespace kavo::test {

inline Bytes packet(char type, ByteView payload = {}) {
    return esesm::build_packet(static_cast<esesm::PacketType>(type), payload);
}

// All of them, one behind the other.
inline Bytes together(const std::vector<Bytes>& packets) {
    Bytes bytes;
    for (const Bytes& one : packets) bytes.insert(bytes.end(), one.begin(), one.end());
    return bytes;
}

// A request to the service behind the feed.
inline Bytes retransmission(std::uint64_t first, std::uint64_t last) {
    return packet('a', client::retransmission_payload(first, last));
}

}  // namespace kavo::test
