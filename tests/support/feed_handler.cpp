#include "support/feed_handler.h"

#include <algorithm>

#include "feed/dom_layout.h"
#include "support/process.h"
#include "support/recovery_client.h"

namespace kavo::test {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

// A datagram that was overtaken comes right behind the one that overtook it. Two more are patience enough.
constexpr unsigned datagrams_until_recovery = 3;

bool is_about_an_order(ByteView message) {
    switch (static_cast<dom::MessageType>(get(message, dom::layout::type))) {
        case dom::MessageType::add_order:
        case dom::MessageType::modify_order:
        case dom::MessageType::delete_order:
        case dom::MessageType::order_executed: return true;
        default: return false;
    }
}

}  // namespace

FeedHandler::FeedHandler(FeedReader& feed, std::uint16_t retransmission_port)
    : feed_(feed), retransmission_port_(retransmission_port) {}

void FeedHandler::start_from_snapshot() {
    const Snapshot snapshot = fetch_snapshot('O', retransmission_port_);
    ++counters.refreshes;
    book_ = {};
    for (const Bytes& message : snapshot.messages) book_.apply(message);
    next_ = snapshot.as_of + 1;
    early_.erase(early_.begin(), early_.lower_bound(next_));
    apply_what_is_due();
}

bool FeedHandler::take_datagram(milliseconds longest) {
    const std::optional<Bytes> datagram = feed_.next_datagram(longest);
    if (!datagram) return false;
    ByteView rest = *datagram;
    while (const auto packet = mach::take_packet(rest)) take_packet(*packet);
    apply_what_is_due();
    if (last_known_ < next_) {
        datagrams_since_gap_ = 0;
    } else if (++datagrams_since_gap_ >= datagrams_until_recovery) {
        recover();
    }
    return true;
}

bool FeedHandler::follow_to(std::uint64_t sequence) {
    auto deadline = steady_clock::now() + patience;
    while (next_ <= sequence) {
        const std::uint64_t before = next_;
        take_datagram(milliseconds(100));
        if (next_ != before) deadline = steady_clock::now() + patience;
        if (steady_clock::now() > deadline) return false;
    }
    return true;
}

// A heartbeat carries the last number used, so it shows what is missing at the end of the feed.
void FeedHandler::take_packet(const mach::Packet& packet) {
    const std::uint64_t sequence = packet.header.sequence;
    const bool late = sequence >= next_ && sequence < last_known_;
    last_known_ = std::max(last_known_, sequence);
    if (packet.header.type == mach::PacketType::heartbeat) datagrams_since_gap_ = datagrams_until_recovery;
    if (packet.header.type != mach::PacketType::application_data) return;
    if (!take_message(sequence, packet.message)) {
        ++counters.duplicates;
    } else if (late) {
        ++counters.late;
    }
}

bool FeedHandler::take_message(std::uint64_t sequence, ByteView message) {
    if (sequence < next_) return false;
    return early_.try_emplace(sequence, message.begin(), message.end()).second;
}

void FeedHandler::apply_what_is_due() {
    while (!early_.empty() && early_.begin()->first == next_) {
        const auto message = early_.extract(early_.begin());
        apply(next_++, message.mapped());
    }
}

void FeedHandler::apply(std::uint64_t sequence, ByteView message) {
    const std::uint32_t changed = book_.apply(message);
    if (changed == 0 && is_about_an_order(message)) ++counters.unconnected;
    if (on_applied) on_applied(sequence, changed);
}

void FeedHandler::recover() {
    datagrams_since_gap_ = 0;
    ++counters.gaps;
    const std::uint64_t last_missing = early_.empty() ? last_known_ : early_.begin()->first - 1;
    for (const NumberedMessage& message : fetch_range(next_, last_missing, retransmission_port_)) {
        if (take_message(message.sequence, message.message)) ++counters.recovered;
    }
    const std::uint64_t before = next_;
    apply_what_is_due();
    if (next_ == before) start_from_snapshot();
}

}  // namespace kavo::test
