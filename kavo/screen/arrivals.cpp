#include "kavo/screen/arrivals.h"

#include "client/feed_messages.h"

namespace kavo::companion {

namespace {

// A datagram that is held back on its way, or sent twice, comes a few datagrams late.
constexpr std::uint64_t longest_delay_messages = 1000;

}  // namespace

void Arrivals::take(ByteView datagram) {
    while (const auto packet = client::read_feed_packet(datagram)) {
        switch (packet->header.type) {
            case mach::PacketType::start: expected_ = 1; break;
            case mach::PacketType::heartbeat: take_heartbeat(packet->header); break;
            case mach::PacketType::application_data: take_message(packet->header.sequence, packet->message); break;
        }
        lines_.bare(packet->header);
    }
}

void Arrivals::take_message(std::uint64_t sequence, ByteView message) {
    if (sequence + longest_delay_messages < expected_) fall_back_to(sequence);
    if (sequence < expected_) return lines_.message(sequence, message, "out of order");
    arrive_at(sequence);
    lines_.message(sequence, message);
    expected_ = sequence + 1;
}

// It carries the last number used, and is never late.
void Arrivals::take_heartbeat(const mach::Header& header) {
    if (header.sequence + 1 < expected_) fall_back_to(header.sequence + 1);
    arrive_at(header.sequence + 1);
}

void Arrivals::arrive_at(std::uint64_t sequence) {
    if (expected_ != 0 && expected_ < sequence) lines_.gap(expected_, sequence - 1);
    expected_ = sequence;
}

void Arrivals::fall_back_to(std::uint64_t sequence) {
    lines_.fallen_back();
    expected_ = sequence;
}

}  // namespace kavo::companion
