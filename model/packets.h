// The packets of the session protocol, stated a second time: offsets are plain numbers, and nothing is shared with the
// venue's own tables.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "model/records.h"

namespace kavo::model {

using ByteView = std::span<const std::uint8_t>;

// A number of as many bytes as there are, the lowest first.
std::uint64_t little_endian(ByteView bytes);
void append(Bytes& to, ByteView bytes);
void append_number(Bytes& to, std::uint64_t value, std::size_t width);

Bytes session_packet(char type, ByteView payload);
Bytes sequenced_packet(std::uint64_t number, ByteView message);
Bytes goodbye_packet(char reason, std::string_view text);
Bytes login_response(char status, std::uint8_t session, std::uint64_t highest);

struct Packet {
    char type = 0;
    Bytes payload;
};

// Cuts a stream into packets, however it arrives.
class Cutter {
public:
    void arrive(ByteView bytes);

    // The next whole packet, which stays where it is; nothing when there is none.
    std::optional<Packet> next() const;
    // Takes it. A length of zero makes all that has arrived unreadable: it is thrown away.
    std::optional<Packet> cut();

    std::size_t size() const { return arrived_.size() - cut_; }  // of what has arrived and is no whole packet yet
    // From a length of zero on, what is a packet depends on how the stream arrived.
    bool lost_track() const { return lost_track_; }

private:
    Bytes arrived_;
    std::size_t cut_ = 0;  // bytes of it that have been taken
    bool lost_track_ = false;
};

}  // namespace kavo::model
