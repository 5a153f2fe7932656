// A receiver of the feed that ends with the whole of it in order, however damaged it arrives, and with the books that
// follow from it. It takes datagrams and what is recovered as bytes, and says what is missing; whoever has the sockets
// fetches that. feed_handler.h is this with sockets.
//
//     receiver.take(datagram);
//     if (receiver.recovery_due()) {
//         const auto [first, last] = receiver.begin_recovery();
//         ... Recovery::of_messages(first, last), and the conversation ...
//         switch (receiver.take_recovered(recovery.messages)) {
//             case Recovered::whole: break;
//             case Recovered::out_of_reach: ... receiver.start_from(snapshot) ...; break;
//             case Recovered::another_feed: ... nothing here is to go on from ...
//         }
//     }
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <vector>

#include "client/feed_messages.h"
#include "client/received_book.h"
#include "client/recovery.h"
#include "common/bytes.h"

namespace kavo::client {

// Numbers of messages, both ends included.
struct SequenceRange {
    std::uint64_t first = 0;
    std::uint64_t last = 0;

    bool operator==(const SequenceRange&) const = default;
};

// What a recovery has brought: all that was missing; nothing, since it lies too far back; or messages that contradict
// what was received.
enum class Recovered { whole, out_of_reach, another_feed };

// A new one expects the first message of the day next.
class FeedReceiver {
public:
    // A datagram contradicts when it can only come from another process than those before it, and one without a start
    // packet: its numbers have fallen back, or stand for other messages.
    bool contradicts(ByteView datagram) const;
    // Applies what is next, keeps what is early, and passes over what was there. A start packet begins a new session:
    // everything before it is forgotten.
    void take(ByteView datagram);

    // True when a later message than the next is known: from itself, or from a heartbeat.
    bool has_gap() const { return last_known_ >= next_; }
    // The first stretch of what is missing. There must be a gap.
    SequenceRange missing() const;
    // True when a gap will not heal by the order of datagrams any more: three have come since, or a heartbeat.
    bool recovery_due() const { return has_gap() && datagrams_since_gap_ >= datagrams_until_recovery; }

    // What to ask for: what is missing, and with it the messages around the gap, as far as they are known. Whatever the
    // service tells differently shows that it belongs to another process than what has been received.
    SequenceRange begin_recovery();
    Recovered take_recovered(const std::vector<NumberedMessage>& messages);
    // Forgets everything, and goes on behind the state that a snapshot of all ('O') holds.
    void start_from(const Snapshot& snapshot);

    std::uint64_t next_sequence() const { return next_; }  // everything before it has been applied
    const ReceivedBook& book() const { return book_; }
    // One of the latest messages that have been applied one by one, so not by a snapshot.
    ByteView message(std::uint64_t sequence) const;
    // The messages that have come already and wait behind a gap, by number.
    const std::map<std::uint64_t, Bytes>& early() const { return early_; }

    // Called after each message that has been applied, in order.
    //   changed  the product whose book it changed, or 0
    std::function<void(std::uint64_t sequence, std::uint32_t changed)> on_applied;
    // Called when a recovery begins, and after a snapshot has been applied.
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
    // A datagram that was overtaken comes right behind the one that overtook it. Two more are patience enough.
    static constexpr unsigned datagrams_until_recovery = 3;

    bool contradicts(const FeedPacket& packet) const;
    bool differs(std::uint64_t sequence, ByteView told) const;
    void start_anew();
    void take_packet(const FeedPacket& packet);
    bool take_message(std::uint64_t sequence, ByteView message);
    void apply_what_is_due();
    void apply(Bytes message);
    bool remembers(std::uint64_t sequence) const { return sequence < next_ && next_ - sequence <= applied_.size(); }

    ReceivedBook book_;
    std::uint64_t next_ = 1;
    std::uint64_t last_known_ = 0;          // the highest number that the feed has shown
    std::map<std::uint64_t, Bytes> early_;  // messages behind a gap
    std::deque<Bytes> applied_;             // the latest ones, up to next_
    unsigned datagrams_since_gap_ = 0;
    std::uint64_t last_asked_for_ = 0;  // of what was missing when the latest recovery began
};

}  // namespace kavo::client
