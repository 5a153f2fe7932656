// The service behind a replayed feed, on a TCP port of 127.0.0.1.
#pragma once

#include <cstdint>
#include <list>

#include "kavo/basics/loop.h"
#include "kavo/wire/published_feed.h"
#include "kavo/wire/recovery_talk.h"

namespace kavo::companion {

class RecoveryService {
public:
    // Throws Problem when it cannot listen there.
    RecoveryService(Loop& loop, PublishedFeed& feed, std::uint16_t port);
    ~RecoveryService();
    RecoveryService(const RecoveryService&) = delete;
    RecoveryService& operator=(const RecoveryService&) = delete;

    std::size_t open_connections() const { return receivers_.size(); }
    std::size_t retransmissions() const { return retransmissions_; }
    std::size_t refreshes() const { return refreshes_; }

private:
    struct Receiver {
        int socket = -1;
        RecoveryTalk talk;
        Bytes owed;
        std::size_t sent = 0;  // of what is owed
        bool finished = false;
        Loop::Timer timer = 0;
    };
    using Place = std::list<Receiver>::iterator;

    void accept_receivers();
    void on_events(Place receiver, short events);
    bool hear(Place receiver);
    bool send_owed(Place receiver);
    void wait_no_longer_than(Place receiver, std::chrono::milliseconds longest);
    void watch(Place receiver);
    void close(Place receiver);

    Loop& loop_;
    PublishedFeed& feed_;
    int listening_ = -1;
    std::list<Receiver> receivers_;
    std::size_t retransmissions_ = 0;
    std::size_t refreshes_ = 0;
};

}  // namespace kavo::companion
