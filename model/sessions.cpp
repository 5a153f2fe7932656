#include "model/sessions.h"

#include <utility>

namespace kavo::model {

Replay::Replay(Bytes response, std::uint64_t from, std::uint64_t highest)
    : response_(std::move(response)), completion_due_(from <= highest) {
    for (std::uint64_t number = from; number <= highest; ++number) missed_.push_back(number);
}

Bytes Replay::next(const Stream& stream) const {
    if (!response_.empty()) return response_;
    if (missed_.empty() && completion_due_) return session_packet('c', Bytes{1});
    const std::uint64_t number = missed_.empty() ? followers_.front() : missed_.front();
    return sequenced_packet(number, stream.message(number));
}

void Replay::taken() {
    if (!response_.empty()) {
        response_.clear();
    } else if (!missed_.empty()) {
        missed_.pop_front();
    } else if (completion_due_) {
        completion_due_ = false;
    } else {
        followers_.pop_front();
    }
}

}  // namespace kavo::model
