#include "model/packets.h"

#include <utility>

namespace kavo::model {

namespace {

void append_text(Bytes& to, std::string_view text) {
    to.insert(to.end(), text.begin(), text.end());
}

}  // namespace

std::uint64_t little_endian(ByteView bytes) {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) value |= std::uint64_t{bytes[i]} << (8 * i);
    return value;
}

void append(Bytes& to, ByteView bytes) {
    to.insert(to.end(), bytes.begin(), bytes.end());
}

void append_number(Bytes& to, std::uint64_t value, std::size_t width) {
    for (std::size_t i = 0; i < width; ++i) to.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

Bytes session_packet(char type, ByteView payload) {
    Bytes packet;
    packet.reserve(3 + payload.size());
    append_number(packet, payload.size() + 1, 2);
    packet.push_back(static_cast<std::uint8_t>(type));
    append(packet, payload);
    return packet;
}

Bytes sequenced_packet(std::uint64_t number, ByteView message) {
    Bytes payload;
    append_number(payload, number, 8);
    payload.push_back(1);
    append(payload, message);
    return session_packet('s', payload);
}

Bytes goodbye_packet(char reason, std::string_view text) {
    Bytes payload{static_cast<std::uint8_t>(reason)};
    append_text(payload, text);
    return session_packet('G', payload);
}

Bytes login_response(char status, std::uint8_t session, std::uint64_t highest) {
    Bytes payload{1, static_cast<std::uint8_t>(status), session};
    append_number(payload, highest, 8);
    return session_packet('r', payload);
}

void Cutter::arrive(ByteView bytes) {
    arrived_.erase(arrived_.begin(), arrived_.begin() + static_cast<std::ptrdiff_t>(std::exchange(cut_, 0)));
    append(arrived_, bytes);
}

std::optional<Packet> Cutter::next() const {
    const ByteView rest = ByteView(arrived_).subspan(cut_);
    if (rest.size() < 2) return std::nullopt;
    const std::size_t length = rest[0] + 256u * rest[1];
    if (length == 0 || rest.size() < length + 2) return std::nullopt;
    const ByteView payload = rest.subspan(3, length - 1);
    return Packet{static_cast<char>(rest[2]), {payload.begin(), payload.end()}};
}

std::optional<Packet> Cutter::cut() {
    if (size() >= 2 && arrived_[cut_] == 0 && arrived_[cut_ + 1] == 0) {
        cut_ = arrived_.size();
        lost_track_ = true;
    }
    auto packet = next();
    if (packet) cut_ += 3 + packet->payload.size();
    return packet;
}

}  // namespace kavo::model
