#include "kavo/audit/stream_position.h"

#include <algorithm>

namespace kavo::companion {

namespace {

// A client may have been busy when its connection ended, and what it had not read by then it cannot know.
constexpr std::uint64_t last_moments_ns = 1'000 * ns_per_ms;

}  // namespace

// What a client asks for tells what it expects better than anything else. Whoever asks for 1 may be a new process that
// knows nothing yet.
void StreamPosition::let_in(std::uint64_t asked, std::uint64_t highest) {
    const std::uint64_t from = asked == 0 ? highest + 1 : asked;
    replay_end_ = from <= highest ? highest : 0;
    in_order_ = least_ = from;
    unsure_.clear();
    if (!known_) {
        highest_ = from - 1;
        early_.clear();
    }
    if (!known_ || from > next_) skip_to(from);
    known_ = true;
}

// The venue moves a number that it no longer has up to the oldest that it has, so what a replay begins behind is gone.
bool StreamPosition::given(const ClientEvent& event) {
    const std::uint64_t number = event.number;
    if (number > next_ && number <= replay_end_) skip_to(number);
    if (number > in_order_ && number <= replay_end_) in_order_ = number;
    replay_end_ = 0;
    if (number == in_order_) {
        ++in_order_;
        const bool can_be_read = closed_.count(event.conversation) == 0;
        if (can_be_read) unsure_.push_back({event.read_ns + last_moments_ns, in_order_, event.conversation});
    }
    highest_ = std::max(highest_, number);
    if (number == next_) skip_to(number + 1);
    if (number <= next_) return false;
    early_.insert(number);
    return true;
}

void StreamPosition::forget() {
    *this = StreamPosition();
}

std::uint64_t StreamPosition::least_next(std::uint64_t now_ns) {
    while (!unsure_.empty() && unsure_.front().sure_ns <= now_ns) {
        least_ = std::max(least_, unsure_.front().next);
        unsure_.pop_front();
    }
    return least_;
}

void StreamPosition::closed(const Conversation& conversation, std::uint64_t at_ns) {
    least_next(at_ns);
    closed_.insert(&conversation);
    const auto of_it = [&](const Step& step) { return step.conversation == &conversation; };
    if (conversation.reset) std::erase_if(unsure_, of_it);
    for (Step& step : unsure_) {
        if (of_it(step)) step.sure_ns = at_ns;
    }
}

// Everything before this number is there, or will never be; so is what was given early right behind it.
void StreamPosition::skip_to(std::uint64_t number) {
    next_ = number;
    while (!early_.empty() && *early_.begin() <= next_) {
        if (*early_.begin() == next_) ++next_;
        early_.erase(early_.begin());
    }
}

}  // namespace kavo::companion
