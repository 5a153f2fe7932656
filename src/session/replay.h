// What a login has set in motion: its response, the stored messages that it asked for, and behind them whatever is
// numbered while they are on their way.
#pragma once

#include <cstdint>
#include <vector>

#include "common/bytes.h"

namespace kavo {

struct Replay {
    // Consecutive numbers of a stream.
    struct Stretch {
        std::uint64_t next = 0;
        std::uint64_t end = 0;  // behind the last one

        bool empty() const { return next == end; }
    };

    Bytes response;               // until the connection has taken it
    Stretch missed;               // what the login asked for
    bool completion_due = false;  // behind the last of these
    // Mostly one: a message that a lapse has swallowed leaves a gap.
    std::vector<Stretch> followers;

    bool over() const { return response.empty() && !completion_due && followers.empty(); }
    // The first stored message that it still needs; 0 when there is none.
    std::uint64_t oldest_needed() const {
        if (!missed.empty()) return missed.next;
        return followers.empty() ? 0 : followers.front().next;
    }
    // A message that is numbered now waits for its turn.
    void follow(std::uint64_t number) {
        if (followers.empty() || followers.back().end != number) followers.push_back({number, number});
        ++followers.back().end;
    }
};

}  // namespace kavo
