// How a stream is cut into packets, as one would describe it on paper: a second statement for the receive buffer to be
// held against.
#pragma once

#include <cstdint>
#include <optional>

#include "common/bytes.h"

namespace kavo::fuzz {

class LiteralCutter {
public:
    struct Packet {
        char type = 0;
        ByteView payload;
    };

    // The next packet of a stream of which `arrived` is everything that has come since its beginning.
    std::optional<Packet> cut(ByteView arrived) {
        const ByteView waiting = arrived.subspan(done_);
        if (waiting.size() < 2) return std::nullopt;
        const std::size_t length = waiting[0] + 256u * waiting[1];
        if (length == 0) {
            lost_track_ = true;
            done_ = arrived.size();
            return std::nullopt;
        }
        if (waiting.size() < length + 2) return std::nullopt;
        done_ += length + 2;
        return Packet{static_cast<char>(waiting[2]), waiting.subspan(3, length - 1)};
    }

    // From a length of zero on, what is a packet depends on how the stream arrived.
    bool lost_track() const { return lost_track_; }

private:
    std::size_t done_ = 0;
    bool lost_track_ = false;
};

}  // namespace kavo::fuzz
