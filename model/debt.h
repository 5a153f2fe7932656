// What is owed to a peer that takes it in its own time, and may be given up.
#pragma once

#include <algorithm>
#include <cstdint>
#include <utility>

#include "model/packets.h"
#include "model/records.h"

namespace kavo::model {

class Debt {
public:
    static constexpr std::uint64_t patience_ms = 2'000;

    Debt() = default;
    explicit Debt(const Limits& limits) : longest_send_(limits.send_bytes) {}

    bool paid() const { return rest_.empty(); }
    void add(const Bytes& bytes, std::uint64_t now_ms) {
        if (paid()) last_taken_ms_ = now_ms;
        append(rest_, bytes);
    }
    // What the peer is offered at once.
    Bytes offer() const { return {rest_.begin(), rest_.begin() + distance(std::min(rest_.size(), longest_send_))}; }
    void take(std::size_t size) {
        rest_.erase(rest_.begin(), rest_.begin() + distance(size));
        taken_since_ = taken_since_ || size != 0;
    }
    // Whether the peer has taken nothing for too long. Asking is what tells the time at which it last did.
    bool stalled(std::uint64_t now_ms) {
        if (std::exchange(taken_since_, false)) last_taken_ms_ = now_ms;
        return now_ms >= last_taken_ms_ + patience_ms;
    }

private:
    static std::ptrdiff_t distance(std::size_t size) { return static_cast<std::ptrdiff_t>(size); }

    std::size_t longest_send_ = Limits().send_bytes;
    Bytes rest_;
    std::uint64_t last_taken_ms_ = 0;
    bool taken_since_ = false;
};

}  // namespace kavo::model
