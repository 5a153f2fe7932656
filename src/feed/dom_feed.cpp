#include "feed/dom_feed.h"

#include <utility>

#include "feed/dom_messages.h"
#include "session/esesm.h"

namespace kavo {

DomFeed::DomFeed(std::uint8_t session, const Clock& clock, SendDatagram send_datagram, const Commentary& commentary)
    : session_(session),
      clock_(clock),
      way_out_(faults, counters, std::move(send_datagram), commentary),
      last_flush_ms_(clock.steady_ms()) {}

void DomFeed::send_start() {
    way_out_.send_untouched(build(mach::Header{.type = mach::PacketType::start, .session = session_}));
    begin_datagram();
}

void DomFeed::publish(ByteView message) {
    const std::uint64_t sequence = history.next();
    esesm::build_sequenced(history.append(esesm::sequenced_size(message.size())), sequence, message);
    history.trim(history_limit);
    ++counters.messages;

    if (!datagram_.has_room_for(message.size())) flush();
    if (datagram_.has_room_for(message.size())) datagram_.add(sequence, session_, message);
}

std::uint32_t DomFeed::stamp(MutableBytes message) const {
    const std::uint64_t now_ns = clock_.wall_ns();
    put(message, dom::layout::timestamp, static_cast<std::uint32_t>(now_ns % ns_per_second));
    return static_cast<std::uint32_t>(now_ns / ns_per_second);
}

void DomFeed::announce_second(std::uint32_t second) {
    if (second == announced_second_) return;
    announced_second_ = second;
    publish(dom::build(dom::SystemTime{second}));
}

// Without messages nothing leaves, and the time of the last flush stays.
void DomFeed::flush() {
    if (datagram_.messages() == 0) return;
    way_out_.send(datagram_);
    // A dropped or held datagram refreshes the flush time too, or the next heartbeat would give the gap away early.
    begin_datagram();
}

void DomFeed::heartbeat_when_idle() {
    if (elapsed_ms(clock_.steady_ms(), last_flush_ms_) < heartbeat_after_ms) return;
    flush();
    way_out_.send_untouched(
        build(mach::Header{.sequence = last_sequence(), .type = mach::PacketType::heartbeat, .session = session_}));
    begin_datagram();
}

ByteView DomFeed::message(std::uint64_t sequence) const {
    return history.at(sequence).subspan(esesm::layout::sequenced_packet::header_size);
}

void DomFeed::begin_datagram() {
    datagram_.clear();
    last_flush_ms_ = clock_.steady_ms();
}

}  // namespace kavo
