// The feed: every depth-of-market message gets the next sequence number, is kept for retransmission, and leaves in a
// datagram that fault injection may damage on the way out.
#pragma once

#include <array>
#include <cstdint>
#include <functional>

#include "common/bytes.h"
#include "common/clock.h"
#include "common/message_log.h"
#include "feed/mach.h"

namespace kavo {

// Settings of the injected faults. Datagrams are numbered from 1; 0 is off. What has `next` in its name is used up.
struct FeedFaults {
    std::uint32_t drop_every = 0;
    std::uint64_t drop_burst_start = 0;  // first datagram of the burst
    std::uint32_t drop_burst_count = 0;
    std::uint32_t dup_every = 0;
    std::uint32_t reorder_every = 0;
    std::uint32_t drop_next = 0;
    std::uint32_t dup_next = 0;
    std::uint32_t reorder_next = 0;
};

struct FeedCounters {
    std::uint64_t messages = 0;  // published, whether or not they ever left
    std::uint64_t packets = 0;   // datagrams flushed, dropped ones included
    std::uint64_t retransmissions = 0;
    std::uint64_t refreshes = 0;
    std::uint64_t dropped = 0;
    std::uint64_t duplicated = 0;
    std::uint64_t reordered = 0;
};

class DomFeed {
public:
    static constexpr std::size_t history_limit_messages = 200'000;
    static constexpr std::uint64_t heartbeat_after_ms = 1000;

    // Takes one datagram of at most 1400 bytes to the receivers.
    using SendDatagram = std::function<void(ByteView)>;

    // One complete message handed out by a state builder.
    using MessageSink = std::function<void(ByteView)>;
    // Builds a part of the venue's present state, message by message; the engine installs all four.
    using StateBuilder = std::function<void(const MessageSink&)>;
    struct StateBuilders {
        StateBuilder system_state;
        StateBuilder series_definitions;
        StateBuilder series_trading_status;
        StateBuilder resting_orders;
    };

    //   session  1..255, carried in every packet
    DomFeed(std::uint8_t session, const Clock& clock, SendDatagram send_datagram);

    // Announces the session. Goes out at once, without a number and past the injected faults.
    void send_start();

    // Gives the message the next number. A message over 1388 bytes fits no datagram: it is numbered and kept all the
    // same, and can be had by retransmission only.
    void publish(ByteView message);
    // The same, announced by a System Time message when `wall_ns`, the moment at which the message was stamped, lies
    // in another second than the last one announced.
    void publish_timed(ByteView message, std::uint64_t wall_ns);

    // Sends what has been published since the last flush, subject to the injected faults. Without messages: nothing.
    void flush();

    // After a full second without a flush: flushes, then sends a heartbeat with the last number used.
    void heartbeat_when_idle();

    std::uint64_t next_sequence() const { return history.next(); }
    std::uint64_t last_sequence() const { return history.next() - 1; }
    // The message with this number, which the history must hold, as it was published.
    ByteView message(std::uint64_t sequence) const;

    FeedFaults faults;
    FeedCounters counters;
    StateBuilders state;
    MessageLog history;  // sequenced-data packets, ready to be sent again

private:
    void flush_datagram();
    void hold_datagram();
    void reset_datagram();

    std::uint8_t session_;
    const Clock& clock_;
    SendDatagram send_datagram_;
    std::uint32_t announced_second_ = 0;
    std::uint64_t last_flush_ms_ = 0;

    std::array<std::uint8_t, mach::max_datagram_bytes> datagram_;  // being filled
    std::size_t fill_ = 0;
    std::size_t message_count_ = 0;
    std::uint64_t first_sequence_ = 0;
    Bytes held_;  // at most one datagram, waiting behind the next one that is sent
};

}  // namespace kavo
