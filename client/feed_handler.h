// A receiver that ends with the whole feed in order, however damaged it arrives: it lets the order of datagrams heal by
// itself, fetches again what stays missing, and starts anew from a snapshot when even that cannot be had.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>

#include "client/feed_reader.h"
#include "client/received_book.h"
#include "common/bytes.h"

namespace kavo::client {

// It throws when the service cannot be had, and when feed and service contradict each other. Its book then stands where
// it stood, and is nothing to go on from.
class FeedHandler {
public:
    // Expects the first message of the day next.
    FeedHandler(FeedReader& feed, std::uint16_t retransmission_port);

    // Forgets everything and goes on behind a snapshot of the present state.
    void start_from_snapshot();

    // Takes the next datagram, and recovers what it shows to be missing; false when none comes in time.
    bool take_datagram(std::chrono::milliseconds longest);
    // Takes datagrams until the message with this number has been applied; false when there is no progress towards it
    // for longer than the usual patience.
    bool follow_to(std::uint64_t sequence);

    // The two halves of take_datagram, for a receiver that reads the feed itself. A datagram contradicts when it can
    // only come from another process than those before it, and one without a start packet: its numbers have fallen
    // back, or stand for other messages.
    bool contradicts(ByteView datagram) const;
    void take(ByteView datagram);

    bool has_gap() const { return last_known_ >= next_; }
    // Fetches what is missing without waiting for the order of datagrams to heal.
    void recover();

    std::uint64_t next_sequence() const { return next_; }  // everything before it has been applied
    const ReceivedBook& book() const { return book_; }
    // One of the latest messages that have been applied one by one, so not by a snapshot.
    ByteView message(std::uint64_t sequence) const;
    // The messages that have come already and wait behind a gap, by number.
    const std::map<std::uint64_t, Bytes>& early() const { return early_; }

    // Called after each message that has been applied, in order.
    //   changed  the product whose book it changed, or 0
    std::function<void(std::uint64_t sequence, std::uint32_t changed)> on_applied;
    // Called before missing messages are fetched, and after a snapshot has been applied.
    std::function<void(std::uint64_t first, std::uint64_t last)> on_gap;
    std::function<void(std::uint64_t as_of)> on_snapshot;

    struct Counters {
        std::uint64_t duplicates = 0;   // messages that were there already
        std::uint64_t late = 0;         // messages that came by themselves though a later one had been there before
        std::uint64_t gaps = 0;         // that had to be fetched
        std::uint64_t recovered = 0;    // messages fetched again
        std::uint64_t refreshes = 0;    // fresh starts from a snapshot
        std::uint64_t unconnected = 0;  // order messages about an order that this receiver has never heard of
    };
    Counters counters;

private:
    bool contradicts(const mach::Packet& packet) const;
    bool differs(std::uint64_t sequence, ByteView told) const;
    [[noreturn]] void throw_another_feed() const;
    void start_anew();
    void take_packet(const mach::Packet& packet);
    bool take_message(std::uint64_t sequence, ByteView message);
    void apply_what_is_due();
    void apply(Bytes message);
    bool remembers(std::uint64_t sequence) const { return sequence < next_ && next_ - sequence <= applied_.size(); }

    FeedReader& feed_;
    std::uint16_t retransmission_port_;
    ReceivedBook book_;
    std::uint64_t next_ = 1;
    std::uint64_t last_known_ = 0;          // the highest number that the feed has shown
    std::map<std::uint64_t, Bytes> early_;  // messages behind a gap
    std::deque<Bytes> applied_;             // the latest ones, up to next_
    unsigned datagrams_since_gap_ = 0;
};

}  // namespace kavo::client
