// What happens to a datagram on its way out: it is sent, sent twice, held back behind the next one, or dropped.
// Numbers and history are never touched, so everything that is lost here can be had by retransmission.
#include <cstdio>

#include "common/fault_rule.h"
#include "common/text.h"
#include "feed/dom_feed.h"

namespace kavo {

void DomFeed::flush() {
    if (message_count_ == 0) return;
    ++counters.packets;
    flush_datagram();
    // A dropped or held datagram refreshes the flush time too, or the next heartbeat would give the gap away early.
    reset_datagram();
}

void DomFeed::flush_datagram() {
    const std::uint64_t number = counters.packets;
    const bool in_burst =
        number >= faults.drop_burst_start && number - faults.drop_burst_start < faults.drop_burst_count;
    if (fault_fires(number, faults.drop_every, faults.drop_next, in_burst)) {
        ++counters.dropped;
        std::fprintf(stderr, "kavo_me fault: dropped seq %llu (packet %llu, %zu message(s))\n",
                     printable(first_sequence_), printable(number), message_count_);
        return;
    }
    // Decided before the hold, so a held datagram uses up a pending duplicate without being sent twice.
    const bool duplicate = fault_fires(number, faults.dup_every, faults.dup_next);
    if (fault_fires(number, faults.reorder_every, faults.reorder_next)) return hold_datagram();

    const ByteView datagram = ByteView(datagram_).first(fill_);
    send_datagram_(datagram);
    if (duplicate) {
        send_datagram_(datagram);
        ++counters.duplicated;
        std::fprintf(stderr, "kavo_me fault: duplicated seq %llu\n", printable(first_sequence_));
    }
    if (held_.empty()) return;
    send_datagram_(held_);
    held_.clear();
}

// A datagram that is held already is overwritten and so lost, deliberately: only retransmission brings it back.
void DomFeed::hold_datagram() {
    held_.assign(datagram_.begin(), datagram_.begin() + static_cast<std::ptrdiff_t>(fill_));
    ++counters.reordered;
    std::fprintf(stderr, "kavo_me fault: reordered seq %llu (held behind the next packet)\n",
                 printable(first_sequence_));
}

}  // namespace kavo
