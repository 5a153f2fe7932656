// Sends the datagrams of a history again, at their pace or another, and damages them on their way out as the simulator
// does: numbers and history are never damaged, nor are start and heartbeat packets.
#pragma once

#include <netinet/in.h>

#include <chrono>
#include <cstdint>
#include <string>

#include "kavo/basics/loop.h"
#include "kavo/wire/feed_history.h"
#include "kavo/wire/published_feed.h"

namespace kavo::companion {

struct Playing {
    std::string group = "233.54.28.111";  // or the address of one receiver
    std::uint16_t port = 25377;
    std::string interface_address = "127.0.0.1";
    double speed = 1;  // times the pace of the recording; 0 is as fast as it goes
    // Every so manieth datagram with messages; 0 is none.
    std::uint64_t drop_every = 0;
    std::uint64_t duplicate_every = 0;
    std::uint64_t reorder_every = 0;  // is sent behind the next one that is
};

class FeedPlayer {
public:
    // Begins at once. Throws Problem when nothing can be sent there, from the loop as well.
    FeedPlayer(Loop& loop, const FeedHistory& history, PublishedFeed& published, const Playing& playing);
    ~FeedPlayer();
    FeedPlayer(const FeedPlayer&) = delete;
    FeedPlayer& operator=(const FeedPlayer&) = delete;

    // Everything has been sent. From then on, and in every longer pause, a heartbeat each second goes on showing the
    // last number.
    bool done() const { return next_ == history_.datagrams().size(); }

    struct Counters {
        std::uint64_t datagrams = 0;  // with messages, damaged or not
        std::uint64_t sent = 0;       // of any kind
        std::uint64_t dropped = 0;
        std::uint64_t duplicated = 0;
        std::uint64_t reordered = 0;
    };
    const Counters& counters() const { return counters_; }

private:
    using Clock = std::chrono::steady_clock;

    Clock::time_point due(const FeedHistory::Datagram& datagram) const;
    void play_what_is_due();
    void play(const FeedHistory::Datagram& datagram);
    void send(ByteView datagram);
    void release_held();
    void beat();

    Loop& loop_;
    const FeedHistory& history_;
    PublishedFeed& published_;
    Playing playing_;
    sockaddr_in destination_{};
    int socket_ = -1;
    Clock::time_point begun_ = Clock::now();
    std::size_t next_ = 0;
    ByteView held_;
    Counters counters_;
    Loop::Timer next_play_ = 0;
    Loop::Timer next_beat_ = 0;
};

}  // namespace kavo::companion
