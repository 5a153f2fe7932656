// The packets of the session protocol as a client meets them: cut off the bytes of a connection, each still whole, and
// read. Whatever is not of its type, or too short for it, reads as nothing.
#pragma once

#include <cstdint>
#include <optional>

#include "common/bytes.h"
#include "session/esesm.h"

namespace kavo::client {

// The packet that these bytes begin with; nothing when it is not whole.
std::optional<ByteView> first_packet(ByteView bytes);

bool has_type(ByteView packet, esesm::PacketType type);

// What follows the type.
ByteView payload_of(ByteView packet);

// A message under its number: of a user's stream, or of the feed.
struct SequencedMessage {
    std::uint64_t sequence = 0;
    ByteView message;  // lent by the packet
};
std::optional<SequencedMessage> read_sequenced(ByteView packet);

// The number of a sequenced packet; 0 for a packet of any other type.
std::uint64_t sequence_of(ByteView packet);

// The answer to a login. The protocol has room for several; the venue gives one, and only the first is read.
std::optional<esesm::LoginResponse::Entry> read_login_response(ByteView packet);

// True for a login response that accepts.
bool is_accepted_login(ByteView packet);

// Its text is lent by the packet.
std::optional<esesm::Goodbye> read_goodbye(ByteView packet);

}  // namespace kavo::client
