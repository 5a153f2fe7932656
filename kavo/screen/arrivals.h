// Messages printed as they arrive, with marks where their numbers are not in order.
#pragma once

#include <cstdint>

#include "common/bytes.h"
#include "feed/mach.h"
#include "kavo/screen/feed_lines.h"

namespace kavo::companion {

class Arrivals {
public:
    explicit Arrivals(FeedLines& lines) : lines_(lines) {}

    void take(ByteView datagram);
    void take_message(std::uint64_t sequence, ByteView message);

    // What the next message should be; 0, as at the beginning, for any.
    void expect(std::uint64_t sequence) { expected_ = sequence; }

private:
    void take_heartbeat(const mach::Header& header);
    void arrive_at(std::uint64_t sequence);
    void fall_back_to(std::uint64_t sequence);

    FeedLines& lines_;
    std::uint64_t expected_ = 0;
};

}  // namespace kavo::companion
