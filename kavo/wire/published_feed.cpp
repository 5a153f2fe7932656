#include "kavo/wire/published_feed.h"

#include <algorithm>

namespace kavo::companion {

void PublishedFeed::publish(const FeedHistory::Datagram& datagram) {
    if (datagram.day != day_) {
        day_ = datagram.day;
        last_ = 0;
        state_ = {};
        applied_ = 0;
    }
    session_ = datagram.session;
    last_ = std::max(last_, datagram.last);
}

void PublishedFeed::messages(std::uint64_t first, std::uint64_t last,
                             const std::function<void(std::uint64_t, ByteView)>& sink) const {
    const auto& day = history_.days()[day_];
    last = std::min(last, last_);
    for (auto message = std::ranges::lower_bound(day, first, {}, &FeedHistory::Message::sequence);
         message != day.end() && message->sequence <= last; ++message) {
        sink(message->sequence, history_.bytes(*message));
    }
}

// Worked out when it is asked for, from where it was asked for the last time.
const FeedState& PublishedFeed::state() {
    const auto& day = history_.days()[day_];
    while (applied_ < day.size() && day[applied_].sequence <= last_) state_.apply(history_.bytes(day[applied_++]));
    return state_;
}

}  // namespace kavo::companion
