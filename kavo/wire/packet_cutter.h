// Finds the packets of the session protocol in the bytes of one direction, however these arrive.
#pragma once

#include <cstddef>
#include <optional>

#include "client/packets.h"
#include "common/bytes.h"

namespace kavo::companion {

class PacketCutter {
public:
    void take(ByteView bytes);
    // The next whole packet, valid until the cutter is touched again. A length of zero makes the rest unreadable, for
    // the venue as well: what has come is thrown away, and reading starts afresh with whatever is taken next.
    std::optional<ByteView> next();

private:
    Bytes bytes_;
    std::size_t cut_ = 0;  // bytes before this one have been handed out
};

}  // namespace kavo::companion
