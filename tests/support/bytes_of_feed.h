// A feed on a clock that stands still, whose datagrams are caught instead of sent.
#pragma once

#include <string>
#include <vector>

#include "feed/dom_feed.h"

namespace kavo::test {

// What a datagram carries, as a short line: "5 6 7" for three messages by their numbers, "start 0", "heartbeat 7".
std::string carried_by(ByteView datagram);

struct CaughtFeed {
    static constexpr std::uint8_t session = 7;
    static constexpr std::uint64_t steady_ms = 1'000'000;
    static constexpr std::uint64_t wall_ns = 1'700'000'000'000'000'000;

    // Publishes messages of `size` bytes each; every byte of message n is n.
    void publish(int count, std::size_t size = 20);
    // Publishes one message and flushes, `count` times: as many datagrams.
    void send(int count);
    // What was sent since the last call, one datagram after the other: "1 2 | 3 | heartbeat 3". Empty for nothing.
    std::string take_sent();

    Clock clock = standing_clock();
    std::vector<Bytes> sent;
    Commentary commentary;  // standard error
    DomFeed feed{session, clock, [this](ByteView datagram) { sent.emplace_back(datagram.begin(), datagram.end()); },
                 commentary};

private:
    static Clock standing_clock();
};

}  // namespace kavo::test
