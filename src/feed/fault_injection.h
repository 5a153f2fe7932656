// What happens to a datagram on its way out: it is sent, sent twice, held back behind the next one, or dropped. Numbers
// and history are never touched, so everything that is lost here can be had by retransmission.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <string_view>

#include "common/commentary.h"
#include "feed/datagram.h"

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

// The faults that fire on every Nth datagram and on the next ones asked for, in the order of the report: a row adds
// one.
struct FeedFault {
    std::string_view every_word;  // of the control port
    std::string_view next_word;
    std::uint32_t FeedFaults::*every;
    std::uint32_t FeedFaults::*next;
};
inline constexpr auto feed_faults = std::to_array<FeedFault>({
    {"drop_every", "drop", &FeedFaults::drop_every, &FeedFaults::drop_next},
    {"dup_every", "dup", &FeedFaults::dup_every, &FeedFaults::dup_next},
    {"reorder_every", "reorder", &FeedFaults::reorder_every, &FeedFaults::reorder_next},
});

class FaultInjection {
public:
    // Takes one datagram of at most 1400 bytes to the receivers.
    using SendDatagram = std::function<void(ByteView)>;

    //   faults    set by others at any time; this uses up what has `next` in its name
    //   counters  of which it counts the datagrams
    FaultInjection(FeedFaults& faults, FeedCounters& counters, SendDatagram send_datagram,
                   const Commentary& commentary);

    // The way out of a datagram with messages.
    void send(const mach::Datagram& datagram);
    // The way past the faults and the count, for what carries no messages.
    void send_untouched(ByteView datagram) const { send_datagram_(datagram); }

private:
    void hold(const mach::Datagram& datagram);

    FeedFaults& faults_;
    FeedCounters& counters_;
    SendDatagram send_datagram_;
    const Commentary& commentary_;
    Bytes held_;  // at most one datagram, waiting behind the next one that is sent
};

}  // namespace kavo
