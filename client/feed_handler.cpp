#include "client/feed_handler.h"

#include <stdexcept>
#include <string>

#include "client/dial.h"
#include "client/recovery_client.h"

namespace kavo::client {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

FeedHandler::FeedHandler(FeedReader& feed, std::uint16_t retransmission_port)
    : feed_(feed), retransmission_port_(retransmission_port) {}

void FeedHandler::start_from_snapshot() {
    receiver.start_from(fetch_snapshot(static_cast<char>(RefreshType::all), retransmission_port_));
}

bool FeedHandler::take_datagram(milliseconds longest) {
    const std::optional<Bytes> datagram = feed_.next_datagram(longest);
    if (!datagram) return false;
    if (receiver.contradicts(*datagram)) throw std::runtime_error("the feed has begun again without a start packet");
    take(*datagram);
    return true;
}

bool FeedHandler::follow_to(std::uint64_t sequence) {
    auto deadline = steady_clock::now() + patience;
    while (receiver.next_sequence() <= sequence) {
        const std::uint64_t before = receiver.next_sequence();
        take_datagram(milliseconds(100));
        if (receiver.next_sequence() != before) deadline = steady_clock::now() + patience;
        if (steady_clock::now() > deadline) return false;
    }
    return true;
}

void FeedHandler::take(ByteView datagram) {
    receiver.take(datagram);
    if (receiver.recovery_due()) recover();
}

void FeedHandler::recover() {
    const SequenceRange range = receiver.begin_recovery();
    switch (receiver.take_recovered(fetch_range(range.first, range.last, retransmission_port_))) {
        case Recovered::whole: return;
        case Recovered::out_of_reach: return start_from_snapshot();
        case Recovered::another_feed:
            throw std::runtime_error("the service on port " + std::to_string(retransmission_port_) +
                                     " serves another feed");
    }
}

}  // namespace kavo::client
