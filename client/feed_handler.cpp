#include "client/feed_handler.h"

#include <algorithm>
#include <stdexcept>
#include <string>

#include "client/dial.h"
#include "client/recovery_client.h"
#include "feed/dom_layout.h"

namespace kavo::client {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

// A datagram that was overtaken comes right behind the one that overtook it. Two more are patience enough.
constexpr unsigned datagrams_until_recovery = 3;
// What comes a second time is compared with what was there. No datagram is held back behind so many messages.
constexpr std::size_t remembered_messages = 10'000;

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
    applied_.clear();
    for (const Bytes& message : snapshot.messages) book_.apply(message);
    next_ = snapshot.as_of + 1;
    early_.erase(early_.begin(), early_.lower_bound(next_));
    if (on_snapshot) on_snapshot(snapshot.as_of);
    apply_what_is_due();
}

bool FeedHandler::take_datagram(milliseconds longest) {
    const std::optional<Bytes> datagram = feed_.next_datagram(longest);
    if (!datagram) return false;
    if (contradicts(*datagram)) throw std::runtime_error("the feed has begun again without a start packet");
    take(*datagram);
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

bool FeedHandler::contradicts(ByteView datagram) const {
    while (const auto packet = mach::take_packet(datagram)) {
        if (contradicts(*packet)) return true;
    }
    return false;
}

bool FeedHandler::contradicts(const mach::Packet& packet) const {
    const std::uint64_t sequence = packet.header.sequence;
    if (packet.header.type == mach::PacketType::heartbeat) return sequence < last_known_;
    if (packet.header.type != mach::PacketType::application_data) return false;
    return differs(sequence, packet.message) || sequence + remembered_messages < last_known_;
}

// True when the number is known to stand for another message.
bool FeedHandler::differs(std::uint64_t sequence, ByteView told) const {
    if (remembers(sequence)) return !std::ranges::equal(message(sequence), told);
    const auto early = early_.find(sequence);
    return early != early_.end() && !std::ranges::equal(early->second, told);
}

void FeedHandler::take(ByteView datagram) {
    while (const auto packet = mach::take_packet(datagram)) take_packet(*packet);
    apply_what_is_due();
    if (!has_gap()) {
        datagrams_since_gap_ = 0;
    } else if (++datagrams_since_gap_ >= datagrams_until_recovery) {
        recover();
    }
}

ByteView FeedHandler::message(std::uint64_t sequence) const {
    return applied_.at(applied_.size() - (next_ - sequence));
}

// A process that has just started counts from 1 again, whatever was before it.
void FeedHandler::start_anew() {
    book_ = {};
    next_ = 1;
    last_known_ = 0;
    early_.clear();
    applied_.clear();
}

// A heartbeat carries the last number used, so it shows what is missing at the end of the feed.
void FeedHandler::take_packet(const mach::Packet& packet) {
    if (packet.header.type == mach::PacketType::start) return start_anew();
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
    while (!early_.empty() && early_.begin()->first == next_) apply(std::move(early_.extract(early_.begin()).mapped()));
}

void FeedHandler::apply(Bytes message) {
    const std::uint32_t changed = book_.apply(message);
    if (changed == 0 && is_about_an_order(message)) ++counters.unconnected;
    applied_.push_back(std::move(message));
    if (applied_.size() > remembered_messages) applied_.pop_front();
    const std::uint64_t sequence = next_++;
    if (on_applied) on_applied(sequence, changed);
}

// The messages around the gap, as far as they are known, are asked for too: whatever the service tells differently
// shows that it belongs to another process than what has been received.
void FeedHandler::recover() {
    datagrams_since_gap_ = 0;
    ++counters.gaps;
    const std::uint64_t last_missing = early_.empty() ? last_known_ : early_.begin()->first - 1;
    if (on_gap) on_gap(next_, last_missing);
    const std::uint64_t first = remembers(next_ - 1) ? next_ - 1 : next_;
    const std::uint64_t last = early_.empty() ? last_missing : last_missing + 1;
    const std::vector<NumberedMessage> fetched = fetch_range(first, last, retransmission_port_);
    for (const NumberedMessage& message : fetched) {
        if (differs(message.sequence, message.message)) throw_another_feed();
        if (take_message(message.sequence, message.message)) ++counters.recovered;
    }
    const std::uint64_t before = next_;
    apply_what_is_due();
    if (next_ > last_missing) return;
    if (fetched.empty() || next_ != before) throw_another_feed();
    start_from_snapshot();
}

void FeedHandler::throw_another_feed() const {
    throw std::runtime_error("the service on port " + std::to_string(retransmission_port_) + " serves another feed");
}

}  // namespace kavo::client
