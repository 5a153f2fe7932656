#include "client/packets.h"

namespace kavo::client {

std::optional<ByteView> first_packet(ByteView bytes) {
    const auto packet = esesm::read_packet(bytes);
    if (!packet) return std::nullopt;
    return bytes.first(esesm::layout::packet::header_size + packet->payload.size());
}

bool has_type(ByteView packet, esesm::PacketType type) {
    namespace at = esesm::layout::packet;
    return packet.size() >= at::header_size && get(packet, at::type) == static_cast<char>(type);
}

ByteView payload_of(ByteView packet) {
    return packet.subspan(esesm::layout::packet::header_size);
}

std::optional<SequencedMessage> read_sequenced(ByteView packet) {
    namespace at = esesm::layout::sequenced_packet;
    if (!has_type(packet, esesm::PacketType::sequenced_data) || packet.size() < at::header_size) return std::nullopt;
    return SequencedMessage{get(packet, at::sequence), packet.subspan(at::header_size)};
}

std::uint64_t sequence_of(ByteView packet) {
    const auto read = read_sequenced(packet);
    return read ? read->sequence : 0;
}

std::optional<esesm::LoginResponse::Entry> read_login_response(ByteView packet) {
    namespace at = esesm::layout::login_response;
    if (!has_type(packet, esesm::PacketType::login_response)) return std::nullopt;
    const ByteView payload = payload_of(packet);
    if (payload.size() < at::min_size + at::entry::size || get(payload, at::entry_count) == 0) return std::nullopt;
    const ByteView entry = payload.subspan(at::min_size, at::entry::size);
    return esesm::LoginResponse::Entry{static_cast<esesm::LoginStatus>(get(entry, at::entry::login_status)),
                                       get(entry, at::entry::matching_engine_id),
                                       get(entry, at::entry::highest_sequence)};
}

bool is_accepted_login(ByteView packet) {
    const auto read = read_login_response(packet);
    return read && read->login_status == esesm::LoginStatus::successful;
}

std::optional<esesm::Goodbye> read_goodbye(ByteView packet) {
    namespace at = esesm::layout::goodbye;
    if (!has_type(packet, esesm::PacketType::goodbye)) return std::nullopt;
    const ByteView payload = payload_of(packet);
    if (payload.size() < at::min_size) return std::nullopt;
    return esesm::Goodbye{static_cast<esesm::GoodbyeReason>(get(payload, at::goodbye_reason)),
                          as_text(payload.subspan(at::min_size))};
}

}  // namespace kavo::client
