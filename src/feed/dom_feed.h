// The feed: every depth-of-market message gets the next sequence number, is kept for retransmission, and leaves in a
// datagram that fault injection may damage on the way out.
#pragma once

#include <array>
#include <cstdint>
#include <functional>

#include "common/bytes.h"
#include "common/clock.h"
#include "common/message_log.h"
#include "feed/fault_injection.h"

namespace kavo {

class DomFeed {
public:
    static constexpr std::size_t history_limit_messages = 200'000;
    static constexpr std::uint64_t heartbeat_after_ms = 1000;

    using SendDatagram = FaultInjection::SendDatagram;

    // One message handed out by a state builder, whose time is still to be stamped.
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
    DomFeed(std::uint8_t session, const Clock& clock, SendDatagram send_datagram, const Commentary& commentary);
    DomFeed(const DomFeed&) = delete;  // its way out refers to its faults and counters
    DomFeed& operator=(const DomFeed&) = delete;

    // Announces the session. Goes out at once, without a number and past the injected faults.
    void send_start();

    // Gives the message the next number. A message over 1388 bytes fits no datagram: it is numbered and kept all the
    // same, and can be had by retransmission only.
    void publish(ByteView message);
    // The same for a message as it was built: it is stamped with a reading of the wall clock, and announced by a System
    // Time message when that lies in another second than the last one announced.
    template <std::size_t size>
    void publish_timed(std::array<std::uint8_t, size> message) {
        announce_second(stamp(message));
        publish(message);
    }
    // Puts the nanoseconds within the present second into a message, and tells the second.
    std::uint32_t stamp(MutableBytes message) const;

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
    std::size_t history_limit = history_limit_messages;

private:
    void announce_second(std::uint32_t second);
    void begin_datagram();

    std::uint8_t session_;
    const Clock& clock_;
    FaultInjection way_out_;
    std::uint32_t announced_second_ = 0;
    std::uint64_t last_flush_ms_ = 0;
    mach::Datagram datagram_;  // being filled
};

}  // namespace kavo
