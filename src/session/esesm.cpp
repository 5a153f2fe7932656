#include "session/esesm.h"

#include <algorithm>

namespace kavo::esesm {

namespace {

void put_header(MutableBytes packet, PacketType type) {
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

std::optional<Packet> read_packet(ByteView bytes) {
    namespace at = layout::packet;
    if (bytes.size() < end_of(at::length) || get(bytes, at::length) == 0) return std::nullopt;
    const std::size_t size = end_of(at::length) + get(bytes, at::length);
    if (bytes.size() < size) return std::nullopt;
    return Packet{static_cast<PacketType>(get(bytes, at::type)), bytes.first(size).subspan(at::header_size)};
}

std::optional<LoginRequest> read_login_request(ByteView payload) {
    namespace at = layout::login_request;
    if (payload.size() < at::min_size) return std::nullopt;
    LoginRequest request;
    request.session_protocol_version = padded_text(payload, at::session_protocol_version);
    request.username = padded_text(payload, at::username);
    request.computer_id = padded_text(payload, at::computer_id);
    request.application_protocol_version = padded_text(payload, at::application_protocol_version);
    const std::size_t count = get(payload, at::matching_engine_count);
    if (payload.size() < at::min_size + count * at::entry::size) return std::nullopt;
    for (std::size_t i = 0; i < count; ++i) {
        const ByteView entry = payload.subspan(at::min_size + i * at::entry::size, at::entry::size);
        request.entries.push_back(
            {get(entry, at::entry::matching_engine_id), get(entry, at::entry::requested_sequence)});
    }
    return request;
}

Bytes build_packet(PacketType type, ByteView payload) {
    Bytes packet(layout::packet::header_size + payload.size());
    put_header(packet, type);
    std::copy(payload.begin(), payload.end(), packet.begin() + layout::packet::header_size);
    return packet;
}

Bytes build(const Goodbye& goodbye) {
    Bytes payload(layout::goodbye::min_size);
    put(payload, layout::goodbye::goodbye_reason, static_cast<char>(goodbye.reason));
    payload.insert(payload.end(), goodbye.text.begin(), goodbye.text.end());
    return build_packet(PacketType::goodbye, payload);
}

Bytes build(const LoginResponse& response) {
    namespace at = layout::login_response;
    const std::vector<LoginResponse::Entry>& entries = response.entries;
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

void build_sequenced(MutableBytes packet, std::uint64_t sequence, ByteView message) {
    namespace at = layout::sequenced_packet;
    put_header(packet, PacketType::sequenced_data);
    put(packet, at::sequence, sequence);
    put(packet, at::matching_engine_id, only_matching_engine);
    std::copy(message.begin(), message.end(), packet.begin() + at::header_size);
}

std::optional<Packet> ReceiveBuffer::cut() {
    namespace at = layout::packet;
    if (rest().size() >= end_of(at::length) && get(rest(), at::length) == 0) cut_ = bytes_.size();
    const auto packet = next();
    if (packet) cut_ += at::header_size + packet->payload.size();
    return packet;
}

Bytes& ReceiveBuffer::incoming() {
    bytes_.erase(bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(cut_));
    cut_ = 0;
    return bytes_;
}

}  // namespace kavo::esesm
