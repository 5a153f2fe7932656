#include "client/feed_receiver.h"

#include <algorithm>

namespace kavo::client {

namespace {

// What comes a second time is compared with what was there. No datagram is held back behind so many messages.
constexpr std::size_t remembered_messages = 10'000;

bool is_about_an_order(ByteView message) {
    if (message.empty()) return false;
    switch (static_cast<dom::MessageType>(get(message, dom::layout::type))) {
        case dom::MessageType::add_order:
        case dom::MessageType::modify_order:
        case dom::MessageType::delete_order:
        case dom::MessageType::order_executed: return true;
        default: return false;
    }
}

}  // namespace

bool FeedReceiver::contradicts(ByteView datagram) const {
    while (const auto packet = read_feed_packet(datagram)) {
        if (contradicts(*packet)) return true;
    }
    return false;
}

bool FeedReceiver::contradicts(const FeedPacket& packet) const {
    const std::uint64_t sequence = packet.header.sequence;
    if (packet.header.type == mach::PacketType::heartbeat) return sequence < last_known_;
    if (packet.header.type != mach::PacketType::application_data) return false;
    return differs(sequence, packet.message) || sequence + remembered_messages < last_known_;
}

// True when the number is known to stand for another message.
bool FeedReceiver::differs(std::uint64_t sequence, ByteView told) const {
    if (remembers(sequence)) return !std::ranges::equal(message(sequence), told);
    const auto early = early_.find(sequence);
    return early != early_.end() && !std::ranges::equal(early->second, told);
}

void FeedReceiver::take(ByteView datagram) {
    while (const auto packet = read_feed_packet(datagram)) take_packet(*packet);
    apply_what_is_due();
    datagrams_since_gap_ = has_gap() ? datagrams_since_gap_ + 1 : 0;
}

ByteView FeedReceiver::message(std::uint64_t sequence) const {
    return applied_.at(applied_.size() - (next_ - sequence));
}

// A process that has just started counts from 1 again, whatever was before it.
void FeedReceiver::start_anew() {
    book_ = {};
    next_ = 1;
    last_known_ = 0;
    early_.clear();
    applied_.clear();
}

// A heartbeat carries the last number used, so it shows what is missing at the end of the feed.
void FeedReceiver::take_packet(const FeedPacket& packet) {
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

bool FeedReceiver::take_message(std::uint64_t sequence, ByteView message) {
    if (sequence < next_) return false;
    return early_.try_emplace(sequence, message.begin(), message.end()).second;
}

void FeedReceiver::apply_what_is_due() {
    while (!early_.empty() && early_.begin()->first == next_) apply(std::move(early_.extract(early_.begin()).mapped()));
}

void FeedReceiver::apply(Bytes message) {
    const std::uint32_t changed = book_.apply(message);
    if (changed == 0 && is_about_an_order(message)) ++counters.unconnected;
    applied_.push_back(std::move(message));
    if (applied_.size() > remembered_messages) applied_.pop_front();
    const std::uint64_t sequence = next_++;
    if (on_applied) on_applied(sequence, changed);
}

SequenceRange FeedReceiver::missing() const {
    return {next_, early_.empty() ? last_known_ : early_.begin()->first - 1};
}

SequenceRange FeedReceiver::begin_recovery() {
    datagrams_since_gap_ = 0;
    ++counters.gaps;
    const SequenceRange gap = missing();
    last_asked_for_ = gap.last;
    if (on_gap) on_gap(gap.first, gap.last);
    return {remembers(next_ - 1) ? next_ - 1 : next_, early_.empty() ? gap.last : gap.last + 1};
}

// The service forgets its oldest messages first. So a gap is filled up to its end or not at all, and a service that
// knows of nothing at all is not that of this feed.
Recovered FeedReceiver::take_recovered(const std::vector<NumberedMessage>& messages) {
    for (const NumberedMessage& message : messages) {
        if (differs(message.sequence, message.message)) return Recovered::another_feed;
        if (take_message(message.sequence, message.message)) ++counters.recovered;
    }
    const std::uint64_t before = next_;
    apply_what_is_due();
    if (next_ > last_asked_for_) return Recovered::whole;
    return messages.empty() || next_ != before ? Recovered::another_feed : Recovered::out_of_reach;
}

void FeedReceiver::start_from(const Snapshot& snapshot) {
    ++counters.refreshes;
    book_ = {};
    applied_.clear();
    for (const Bytes& message : snapshot.messages) book_.apply(message);
    next_ = snapshot.as_of + 1;
    early_.erase(early_.begin(), early_.lower_bound(next_));
    if (on_snapshot) on_snapshot(snapshot.as_of);
    apply_what_is_due();
}

}  // namespace kavo::client
