#include "session/esesm.h"

#include <algorithm>

namespace kavo::esesm {

namespace {

void write_header(MutableBytes packet, PacketType type) {
    namespace at = layout::packet;
    put(packet, at::length, static_cast<std::uint16_t>(packet.size() - end_of(at::length)));
    put(packet, at::type, static_cast<char>(type));
}

}  // namespace

std::string_view login_status_text(LoginStatus status) {
    switch (status) {
        case LoginStatus::successful: return "successful";
        case LoginStatus::incompatible_application: return "incompatible application protocol version";
        case LoginStatus::invalid_engine_count: return "invalid number of matching engines";
        case LoginStatus::incompatible_session: return "incompatible session protocol version";
        case LoginStatus::already_logged_in: return "client already logged in";
        case LoginStatus::invalid_start_sequence: return "invalid start sequence number requested";
        case LoginStatus::invalid_session: return "invalid trading session requested";
        case LoginStatus::engine_unavailable: return "matching engine unavailable";
        case LoginStatus::invalid_user: return "invalid username/computer ID";
    }
    return "unknown status";
}

bool parse_login_request(ByteView payload, LoginRequest& request) {
    namespace at = layout::login_request;
    request.entries.clear();
    if (payload.size() < at::min_size) return false;
    request.session_protocol_version = padded_text(payload, at::session_protocol_version);
    request.username = padded_text(payload, at::username);
    request.computer_id = padded_text(payload, at::computer_id);
    request.application_protocol_version = padded_text(payload, at::application_protocol_version);
    const std::size_t count = get(payload, at::matching_engine_count);
    if (payload.size() < at::min_size + count * at::entry::size) return false;
    for (std::size_t i = 0; i < count; ++i) {
        const ByteView entry = payload.subspan(at::min_size + i * at::entry::size, at::entry::size);
        request.entries.push_back(
            {get(entry, at::entry::matching_engine_id), get(entry, at::entry::requested_sequence)});
    }
    return true;
}

Bytes build_packet(PacketType type, ByteView payload) {
    Bytes packet(layout::packet::header_size + payload.size());
    write_header(packet, type);
    std::copy(payload.begin(), payload.end(), packet.begin() + layout::packet::header_size);
    return packet;
}

Bytes build_goodbye(GoodbyeReason reason, std::string_view text) {
    Bytes payload(layout::goodbye::min_size);
    put(payload, layout::goodbye::goodbye_reason, static_cast<char>(reason));
    payload.insert(payload.end(), text.begin(), text.end());
    return build_packet(PacketType::goodbye, payload);
}

Bytes build_login_response(const std::vector<LoginResponseEntry>& entries) {
    namespace at = layout::login_response;
    Bytes payload(at::min_size + entries.size() * at::entry::size);
    put(payload, at::entry_count, static_cast<std::uint8_t>(entries.size()));
    for (std::size_t i = 0; i < entries.size(); ++i) {
        const MutableBytes entry = MutableBytes(payload).subspan(at::min_size + i * at::entry::size, at::entry::size);
        put(entry, at::entry::login_status, static_cast<char>(entries[i].login_status));
        put(entry, at::entry::matching_engine_id, entries[i].matching_engine_id);
        put(entry, at::entry::highest_sequence, entries[i].highest_sequence);
    }
    return build_packet(PacketType::login_response, payload);
}

void write_sequenced(MutableBytes packet, std::uint64_t sequence, ByteView message) {
    namespace at = layout::sequenced_packet;
    write_header(packet, PacketType::sequenced_data);
    put(packet, at::sequence, sequence);
    put(packet, at::matching_engine_id, only_matching_engine);
    std::copy(message.begin(), message.end(), packet.begin() + at::header_size);
}

std::size_t ReceiveBuffer::whole_packet_size() const {
    constexpr auto length = layout::packet::length;
    if (rest().size() < end_of(length) || get(rest(), length) == 0) return 0;
    const std::size_t size = end_of(length) + get(rest(), length);
    return size <= rest().size() ? size : 0;
}

std::optional<ReceiveBuffer::Packet> ReceiveBuffer::next() const {
    namespace at = layout::packet;
    const std::size_t size = whole_packet_size();
    if (size == 0) return std::nullopt;
    const ByteView packet = rest().first(size);
    return Packet{static_cast<PacketType>(get(packet, at::type)), packet.subspan(at::header_size)};
}

std::optional<ReceiveBuffer::Packet> ReceiveBuffer::cut() {
    namespace at = layout::packet;
    if (rest().size() >= end_of(at::length) && get(rest(), at::length) == 0) cut_ = bytes_.size();
    const auto packet = next();
    cut_ += whole_packet_size();
    return packet;
}

Bytes& ReceiveBuffer::incoming() {
    bytes_.erase(bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(cut_));
    cut_ = 0;
    return bytes_;
}

}  // namespace kavo::esesm
