// The state of the feed as a snapshot tells it: definitions, statuses, and every order that rests, in its queue.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "common/bytes.h"
#include "common/price.h"
#include "feed/recovery_layout.h"

namespace kavo::companion {

class FeedState {
public:
    // Takes the next message of the feed. One about an order of which nothing is known changes nothing.
    void apply(ByteView message);

    using Sink = std::function<void(ByteView message)>;
    // The messages of a snapshot in their order, all but System Time, which comes before them.
    //   timestamp  nanoseconds within the second, that each message carries
    void tell(RefreshType type, std::uint32_t timestamp, const Sink& sink) const;

private:
    struct Resting {
        std::uint64_t order_id = 0;
        std::uint32_t secid = 0;
        bool buy = false;
        WirePrice price = 0;
        std::uint32_t quantity = 0;
        std::string attribution;
        std::uint64_t queued = 0;  // later ones stand behind earlier ones
    };

    std::vector<const Resting*> in_order() const;

    Bytes system_state_;
    std::map<std::uint32_t, Bytes> definitions_;  // by product
    std::map<std::uint32_t, Bytes> statuses_;
    std::unordered_map<std::uint64_t, Resting> orders_;
    std::uint64_t queued_ = 0;
};

}  // namespace kavo::companion
