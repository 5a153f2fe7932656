#include "feed/fault_injection.h"

#include <utility>

#include "common/fault_rule.h"
#include "common/text.h"

namespace kavo {

FaultInjection::FaultInjection(FeedFaults& faults, FeedCounters& counters, SendDatagram send_datagram,
                               const Commentary& commentary)
    : faults_(faults), counters_(counters), send_datagram_(std::move(send_datagram)), commentary_(commentary) {}

void FaultInjection::send(const mach::Datagram& datagram) {
    const std::uint64_t number = ++counters_.packets;
    const bool in_burst =
        number >= faults_.drop_burst_start && number - faults_.drop_burst_start < faults_.drop_burst_count;
    if (fault_fires(number, faults_.drop_every, faults_.drop_next, in_burst)) {
        ++counters_.dropped;
        return commentary_.say("kavo_me fault: dropped seq %llu (packet %llu, %zu message(s))\n",
                               printable(datagram.first_sequence()), printable(number), datagram.messages());
    }
    // Decided before the hold, so a held datagram uses up a pending duplicate without being sent twice.
    const bool duplicate = fault_fires(number, faults_.dup_every, faults_.dup_next);
    if (fault_fires(number, faults_.reorder_every, faults_.reorder_next)) return hold(datagram);

    send_datagram_(datagram.bytes());
    if (duplicate) {
        send_datagram_(datagram.bytes());
        ++counters_.duplicated;
        commentary_.say("kavo_me fault: duplicated seq %llu\n", printable(datagram.first_sequence()));
    }
    if (held_.empty()) return;
    send_datagram_(held_);
    held_.clear();
}

// A datagram that is held already is overwritten and so lost, deliberately: only retransmission brings it back.
void FaultInjection::hold(const mach::Datagram& datagram) {
    held_.assign(datagram.bytes().begin(), datagram.bytes().end());
    ++counters_.reordered;
    commentary_.say("kavo_me fault: reordered seq %llu (held behind the next packet)\n",
                    printable(datagram.first_sequence()));
}

}  // namespace kavo
