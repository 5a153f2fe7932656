// The feed as one would keep it on paper: every message on a list of its own, every datagram built byte by byte.
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "common/bytes.h"
#include "feed/dom_feed.h"

namespace kavo::fuzz {

class LiteralFeed {
public:
    LiteralFeed(std::uint8_t session, std::uint64_t start_ms)
        : now_ms(start_ms), session_(session), flushed_ms_(start_ms) {}

    void publish(const Bytes& message);
    void flush();
    void heartbeat_when_idle();
    void forget_all_but(std::size_t messages);

    // What a receiver is sent who asks for this range: one packet for each message that is still held.
    Bytes sent_again(std::uint64_t first, std::uint64_t last) const;

    std::uint64_t now_ms;
    FeedFaults faults;
    FeedCounters counters;
    std::uint64_t last_number = 0;
    std::map<std::uint64_t, Bytes> held_messages;
    std::vector<Bytes> datagrams;

private:
    void leave(const Bytes& datagram);

    std::uint8_t session_;
    std::uint64_t flushed_ms_;
    Bytes filling_;
    Bytes held_back_;
};

}  // namespace kavo::fuzz
