// What of a history has been published so far: what a recovery may be told of it.
#pragma once

#include <cstdint>
#include <functional>

#include "kavo/wire/feed_history.h"
#include "kavo/wire/feed_state.h"

namespace kavo::companion {

class PublishedFeed {
public:
    // The history outlives it.
    explicit PublishedFeed(const FeedHistory& history) : history_(history) {}

    // All messages up to the last of this datagram are known from now on, also those that come late or not at all.
    void publish(const FeedHistory::Datagram& datagram);

    std::uint64_t last() const { return last_; }  // number of the last message; 0 before the first
    std::uint8_t session() const { return session_; }
    // The messages with these numbers, both included, in order; what the history does not have is left out.
    void messages(std::uint64_t first, std::uint64_t last,
                  const std::function<void(std::uint64_t sequence, ByteView message)>& sink) const;
    // The state behind the last message, see FeedState.
    const FeedState& state();

private:
    const FeedHistory& history_;
    std::size_t day_ = 0;
    std::uint64_t last_ = 0;
    std::uint8_t session_ = 1;
    FeedState state_;
    std::size_t applied_ = 0;  // messages of the day that are in the state
};

}  // namespace kavo::companion
