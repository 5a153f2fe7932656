// What a user of order entry is owed: a numbered stream that outlives every connection, and behind a login all of it
// that was missed.
#pragma once

#include <algorithm>
#include <cstdint>
#include <deque>
#include <vector>

#include "model/packets.h"

namespace kavo::model {

// Of a client that is logged in.
inline constexpr std::uint64_t heartbeat_interval_ms = 1'000;  // of the venue's silence
inline constexpr std::uint64_t silence_limit_ms = 3'000;       // of the client's

// All that a user was ever told. Whoever logs in can have the messages from `oldest` on; the others are still known
// here, and may even be on their way.
struct Stream {
    std::uint64_t last_number() const { return told.size(); }
    const Bytes& message(std::uint64_t number) const { return told.at(number - 1); }
    void forget_all_but(std::size_t messages) {
        if (told.size() > messages) oldest = std::max(oldest, told.size() - messages + 1);
    }

    std::vector<Bytes> told;  // message 1 in front
    std::uint64_t oldest = 1;
};

// What a login brings: its response, then the messages that it asked for, then the end of the replay, then what was
// numbered meanwhile. Each packet goes out when the connection takes it.
class Replay {
public:
    Replay() = default;  // nothing
    //   from  the first message that the login asked for; nothing is replayed when the stream does not have it yet
    Replay(Bytes response, std::uint64_t from, std::uint64_t highest);

    bool under_way() const { return !response_.empty() || completion_due_ || !followers_.empty(); }
    // A message that is numbered now waits for its turn.
    void follow(std::uint64_t number) { followers_.push_back(number); }
    // The packet that is due, and that the connection has taken it.
    Bytes next(const Stream& stream) const;
    void taken();

private:
    Bytes response_;
    std::deque<std::uint64_t> missed_;
    bool completion_due_ = false;
    std::deque<std::uint64_t> followers_;
};

}  // namespace kavo::model
