#include "kavo/screen/books.h"

#include <algorithm>
#include <stdexcept>

#include "client/recovery_client.h"
#include "feed/recovery_layout.h"

namespace kavo::companion {

namespace {

using std::chrono::steady_clock;

constexpr std::chrono::milliseconds between_attempts{1000};  // to learn the books from the service
constexpr const char* no_service = "without a service they are known from message 1 on only";

}  // namespace

void Books::take(ByteView datagram) {
    ByteView rest = datagram;
    const auto first = client::read_feed_packet(rest);
    if (!first) return;
    if (receiver_ && receiver_->contradicts(datagram)) {
        lines_.fallen_back();
        receiver_.reset();
        arrivals_.expect(0);
    }
    if (!receiver_) begin(*first);
    if (!receiver_) return arrivals_.take(datagram);
    lines_.bare(first->header);
    follow([&] {
        receiver_->take(datagram);
        if (receiver_->recovery_due()) recover();
    });
}

void Books::pause() {
    if (receiver_ && receiver_->has_gap()) follow([this] { recover(); });
}

// Knows the books from this packet on, if that can be: before the first message they are empty, and before any other
// the service tells them.
void Books::begin(const client::FeedPacket& packet) {
    const bool data = packet.header.type == mach::PacketType::application_data;
    if (packet.header.type == mach::PacketType::start || (data && packet.header.sequence == 1)) {
        receiver_.emplace();
        return know();
    }
    if (retrans_port_ == 0) return say_unknown(no_service);
    if (steady_clock::now() < next_attempt_) return;
    try {
        join(packet);
    } catch (const std::runtime_error& error) {
        receiver_.reset();
        next_attempt_ = steady_clock::now() + between_attempts;
        say_unknown(error.what());
    }
}

void Books::join(const client::FeedPacket& packet) {
    check_service(packet);
    receiver_.emplace();
    start_from_snapshot();
    const std::uint64_t as_of = receiver_->next_sequence() - 1;
    if (packet.header.type == mach::PacketType::heartbeat && packet.header.sequence != as_of) return doubt();
    show_snapshot(as_of);
    know();
}

// Nothing but its number tells whose a heartbeat is, and it comes while nothing happens. If something has happened
// right behind it, the next packet tells more.
void Books::doubt() {
    receiver_.reset();
    if (++doubts_ > 1) throw std::runtime_error("the refresh stands elsewhere than the feed");
}

// The service on this port may be another simulator's: that of this feed has sent this very message.
void Books::check_service(const client::FeedPacket& packet) const {
    if (packet.header.type != mach::PacketType::application_data) return;
    const auto told = client::fetch_range(packet.header.sequence, packet.header.sequence, retrans_port_);
    if (told.size() == 1 && std::ranges::equal(told.front().message, packet.message)) return;
    throw another_feed();
}

void Books::know() {
    reason_.clear();
    doubts_ = 0;
    gap_first_ = gap_last_ = 0;
    receiver_->on_applied = [this](std::uint64_t sequence, std::uint32_t changed) { show(sequence, changed); };
    receiver_->on_snapshot = [this](std::uint64_t as_of) { show_snapshot(as_of); };
    receiver_->on_gap = [this](std::uint64_t first, std::uint64_t last) {
        gap_first_ = first;
        gap_last_ = last;
        lines_.gap(first, last);
    };
}

void Books::follow(const std::function<void()>& step) {
    try {
        step();
    } catch (const std::runtime_error& error) {
        forget(error.what());
    }
}

// What has come already behind a gap that cannot be filled is shown as it came.
void Books::forget(const std::string& reason) {
    say_unknown(retrans_port_ == 0 ? no_service : reason);
    arrivals_.expect(gap_last_ + 1);
    for (const auto& [sequence, message] : receiver_->early()) arrivals_.take_message(sequence, message);
    receiver_.reset();
}

void Books::say_unknown(const std::string& reason) {
    if (reason == reason_) return;
    reason_ = reason;
    lines_.no_books(reason);
}

void Books::start_from_snapshot() {
    receiver_->start_from(client::fetch_snapshot(static_cast<char>(RefreshType::all), retrans_port_));
}

void Books::recover() {
    const client::SequenceRange range = receiver_->begin_recovery();
    switch (receiver_->take_recovered(client::fetch_range(range.first, range.last, retrans_port_))) {
        case client::Recovered::whole: return;
        case client::Recovered::out_of_reach: return start_from_snapshot();
        case client::Recovered::another_feed: throw another_feed();
    }
}

std::runtime_error Books::another_feed() const {
    return std::runtime_error("the service on port " + std::to_string(retrans_port_) + " serves another feed");
}

void Books::show(std::uint64_t sequence, std::uint32_t changed) {
    const bool fetched = sequence >= gap_first_ && sequence <= gap_last_;
    lines_.message(sequence, receiver_->message(sequence), fetched ? "fetched again" : "");
    if (changed != 0) lines_.book(sequence, changed, receiver_->book());
}

void Books::show_snapshot(std::uint64_t as_of) {
    lines_.refresh(as_of);
    for (const auto& [secid, book] : receiver_->book().books()) lines_.book(as_of, secid, receiver_->book());
}

}  // namespace kavo::companion
