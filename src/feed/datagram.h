// The datagram that is being filled: packets of one message each, back to back, as many as find room.
#pragma once

#include <array>
#include <cstdint>

#include "feed/mach.h"

namespace kavo::mach {

class Datagram {
public:
    bool has_room_for(std::size_t message_bytes) const {
        return message_bytes + layout::header_size <= bytes_.size() - fill_;
    }
    // Adds a message, for which there must be room.
    void add(std::uint64_t sequence, std::uint8_t session, ByteView message);
    void clear();

    ByteView bytes() const { return ByteView(bytes_).first(fill_); }
    std::size_t messages() const { return messages_; }
    std::uint64_t first_sequence() const { return first_sequence_; }  // 0 when it is empty

private:
    std::array<std::uint8_t, max_datagram_bytes> bytes_;
    std::size_t fill_ = 0;
    std::size_t messages_ = 0;
    std::uint64_t first_sequence_ = 0;
};

}  // namespace kavo::mach
