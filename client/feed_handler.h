// A receiver of the feed with all that it needs of the network: datagrams from a reader, and the service from which it
// fetches again what stays missing, or a snapshot when even that cannot be had.
#pragma once

#include <chrono>
#include <cstdint>

#include "client/feed_reader.h"
#include "client/feed_receiver.h"

namespace kavo::client {

// It throws when the service cannot be had, and when feed and service contradict each other. Its book then stands where
// it stood, and is nothing to go on from.
class FeedHandler {
public:
    //   retransmission_port  of the service on 127.0.0.1
    FeedHandler(FeedReader& feed, std::uint16_t retransmission_port);

    // Forgets everything and goes on behind a snapshot of the present state.
    void start_from_snapshot();

    // Takes the next datagram, and recovers what it shows to be missing; false when none comes in time.
    bool take_datagram(std::chrono::milliseconds longest);
    // Takes datagrams until the message with this number has been applied; false when there is no progress towards it
    // for longer than the usual patience.
    bool follow_to(std::uint64_t sequence);

    // A datagram that somebody else has read, and what it shows to be missing.
    void take(ByteView datagram);
    // Fetches what is missing without waiting for the order of datagrams to heal.
    void recover();

    // What has been received, and the books that follow from it.
    FeedReceiver receiver;

private:
    FeedReader& feed_;
    std::uint16_t retransmission_port_;
};

}  // namespace kavo::client
