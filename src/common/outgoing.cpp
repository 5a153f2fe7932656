#include "common/outgoing.h"

#include <algorithm>

#include "common/clock.h"

namespace kavo {

void Outgoing::add(ByteView bytes, std::uint64_t now_ms) {
    if (empty()) last_taken_ms_ = now_ms;
    bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
}

bool Outgoing::send(const Transport& transport, int fd) {
    if (empty()) return true;
    const ByteView rest = ByteView(bytes_).subspan(sent_);
    const auto taken = transport.send(fd, rest.first(std::min(rest.size(), transport.send_limit_bytes)), false);
    if (!taken) return false;
    sent_ += *taken;
    handed_over_ += *taken;
    if (empty()) {
        bytes_ = {};
        sent_ = 0;
    }
    return true;
}

bool Outgoing::stalled(const Transport& transport, int fd, std::uint64_t now_ms) {
    const std::uint64_t under_way = std::min<std::uint64_t>(transport.unacknowledged(fd), handed_over_);
    const std::uint64_t taken = handed_over_ - under_way;
    if (taken > taken_) last_taken_ms_ = now_ms;
    taken_ = taken;
    return elapsed_ms(now_ms, last_taken_ms_) >= patience_ms;
}

}  // namespace kavo
