// Listens to the feed beside the client, and records every datagram with the kernel's own time stamp.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "kavo/basics/loop.h"
#include "kavo/basics/run_log.h"
#include "kavo/wire/recording.h"

namespace kavo::companion {

class FeedTap {
public:
    // Joins the group and binds to it, so that other groups on the same port are not heard; an address of this machine
    // takes a feed that is sent to it alone. Throws Problem when that cannot be.
    FeedTap(Loop& loop, Recording& recording, RunLog& log, const std::string& group, std::uint16_t port,
            const std::string& interface_address);
    ~FeedTap();
    FeedTap(const FeedTap&) = delete;
    FeedTap& operator=(const FeedTap&) = delete;

    // Reads everything that has arrived.
    void drain();

    std::function<void(ByteView datagram)> on_datagram;

private:
    // (the implementer's)
};

}  // namespace kavo::companion
