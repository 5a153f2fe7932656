#include "books.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>

#include "client/recovery_client.h"
#include "lines.h"

namespace kavo::feed_dump {

namespace {

using std::chrono::steady_clock;

constexpr std::size_t shown_levels = 3;
constexpr std::chrono::milliseconds between_attempts{1000};  // to learn the books from the service
constexpr const char* no_service = "without a service they are known from message 1 on only";

}  // namespace

void Books::take(ByteView datagram) {
    ByteView rest = datagram;
    const auto first = client::read_feed_packet(rest);
    if (!first) return;
    if (handler_ && handler_->receiver.contradicts(datagram)) {
        print_fallen_back();
        handler_.reset();
        arrivals_.expect(0);
    }
    if (!handler_) begin(*first);
    if (!handler_) return arrivals_.take(datagram);
    print_bare(first->header);
    follow([&] { handler_->take(datagram); });
}

void Books::pause() {
    if (handler_ && handler_->receiver.has_gap()) follow([this] { handler_->recover(); });
}

// Knows the books from this packet on, if that can be: before the first message they are empty, and before any other
// the service tells them.
void Books::begin(const client::FeedPacket& packet) {
    const bool data = packet.header.type == mach::PacketType::application_data;
    if (packet.header.type == mach::PacketType::start || (data && packet.header.sequence == 1)) {
        handler_.emplace(feed_, retrans_port_);
        return know();
    }
    if (retrans_port_ == 0) return say_unknown(no_service);
    if (steady_clock::now() < next_attempt_) return;
    try {
        join(packet);
    } catch (const std::runtime_error& error) {
        handler_.reset();
        next_attempt_ = steady_clock::now() + between_attempts;
        say_unknown(error.what());
    }
}

void Books::join(const client::FeedPacket& packet) {
    check_service(packet);
    handler_.emplace(feed_, retrans_port_);
    handler_->start_from_snapshot();
    const std::uint64_t as_of = handler_->receiver.next_sequence() - 1;
    if (packet.header.type == mach::PacketType::heartbeat && packet.header.sequence != as_of) return doubt();
    show_snapshot(as_of);
    know();
}

// Nothing but its number tells whose a heartbeat is, and it comes while nothing happens. If something has happened
// right behind it, the next packet tells more.
void Books::doubt() {
    handler_.reset();
    if (++doubts_ > 1) throw std::runtime_error("the refresh stands elsewhere than the feed");
}

// The service on this port may be another simulator's: that of this feed has sent this very message.
void Books::check_service(const client::FeedPacket& packet) const {
    if (packet.header.type != mach::PacketType::application_data) return;
    const auto told = client::fetch_range(packet.header.sequence, packet.header.sequence, retrans_port_);
    if (told.size() == 1 && std::ranges::equal(told.front().message, packet.message)) return;
    throw std::runtime_error("the service on port " + std::to_string(retrans_port_) + " serves another feed");
}

void Books::know() {
    reason_.clear();
    doubts_ = 0;
    gap_first_ = gap_last_ = 0;
    handler_->receiver.on_applied = [this](std::uint64_t sequence, std::uint32_t changed) { show(sequence, changed); };
    handler_->receiver.on_snapshot = [this](std::uint64_t as_of) { show_snapshot(as_of); };
    handler_->receiver.on_gap = [this](std::uint64_t first, std::uint64_t last) {
        gap_first_ = first;
        gap_last_ = last;
        print_gap(first, last);
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
    for (const auto& [sequence, message] : handler_->receiver.early()) arrivals_.take_message(sequence, message);
    handler_.reset();
}

void Books::say_unknown(const std::string& reason) {
    if (reason == reason_) return;
    reason_ = reason;
    print_remark("no books: " + reason);
}

void Books::show(std::uint64_t sequence, std::uint32_t changed) const {
    const bool fetched = sequence >= gap_first_ && sequence <= gap_last_;
    print_message(sequence, handler_->receiver.message(sequence), fetched ? "fetched again" : "");
    if (changed != 0) show_book(changed);
}

void Books::show_book(std::uint32_t secid) const {
    std::printf("    %s\n", handler_->receiver.book().text(secid, shown_levels).c_str());
}

void Books::show_snapshot(std::uint64_t as_of) const {
    print_remark("refresh: the books as of message " + std::to_string(as_of));
    for (const auto& [secid, book] : handler_->receiver.book().books()) show_book(secid);
}

}  // namespace kavo::feed_dump
