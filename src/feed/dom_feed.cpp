#include "feed/dom_feed.h"

#include <algorithm>
#include <utility>

#include "feed/dom_messages.h"
#include "session/esesm.h"

namespace kavo {

DomFeed::DomFeed(std::uint8_t session, const Clock& clock, SendDatagram send_datagram)
    : session_(session), clock_(clock), send_datagram_(std::move(send_datagram)), last_flush_ms_(clock.steady_ms()) {}

void DomFeed::send_start() {
    send_datagram_(build(mach::Header{0, mach::layout::header_size, mach::PacketType::start, session_}));
    reset_datagram();
}

void DomFeed::publish(ByteView message) {
    const std::uint64_t sequence = history.next();
    esesm::build_sequenced(history.append(esesm::sequenced_size(message.size())), sequence, message);
    history.trim(history_limit_messages);
    ++counters.messages;

    const std::size_t size = mach::layout::header_size + message.size();
    if (fill_ + size > datagram_.size()) flush();
    if (size > datagram_.size()) return;
    const mach::HeaderBytes header =
        build(mach::Header{sequence, static_cast<std::uint16_t>(size), mach::PacketType::application_data, session_});
    const auto behind_header =
        std::copy(header.begin(), header.end(), datagram_.begin() + static_cast<std::ptrdiff_t>(fill_));
    std::copy(message.begin(), message.end(), behind_header);
    fill_ += size;
    if (message_count_++ == 0) first_sequence_ = sequence;
}

void DomFeed::publish_timed(ByteView message, std::uint64_t wall_ns) {
    const auto second = static_cast<std::uint32_t>(wall_ns / ns_per_second);
    if (second != announced_second_) {
        announced_second_ = second;
        publish(dom::build(dom::SystemTime{second}));
    }
    publish(message);
}

void DomFeed::heartbeat_when_idle() {
    if (elapsed_ms(clock_.steady_ms(), last_flush_ms_) < heartbeat_after_ms) return;
    flush();
    send_datagram_(
        build(mach::Header{last_sequence(), mach::layout::header_size, mach::PacketType::heartbeat, session_}));
    reset_datagram();
}

ByteView DomFeed::message(std::uint64_t sequence) const {
    return history.at(sequence).subspan(esesm::layout::sequenced_packet::header_size);
}

void DomFeed::reset_datagram() {
    fill_ = 0;
    message_count_ = 0;
    first_sequence_ = 0;
    last_flush_ms_ = clock_.steady_ms();
}

}  // namespace kavo
