#include "audit/packets.h"

#include "model/fields.h"

namespace kavo::simulation {

Bytes behind_header(std::size_t size, ByteView message) {
    Bytes bytes;
    bytes.reserve(size + message.size());
    bytes.resize(size);
    bytes.insert(bytes.end(), message.begin(), message.end());
    return bytes;
}

Bytes session_packet(char type, ByteView payload) {
    Bytes packet = behind_header(3, payload);
    model::put(packet, 0, 2, payload.size() + 1);
    model::put_char(packet, 2, type);
    return packet;
}

Bytes sequenced_packet(std::uint64_t number, ByteView message) {
    Bytes payload = behind_header(9, message);
    model::put(payload, 0, 8, number);
    model::put(payload, 8, 1, 1);
    return session_packet('s', payload);
}

Bytes goodbye_packet(char reason, std::string_view text) {
    Bytes payload = behind_header(1, as_bytes(text));
    model::put_char(payload, 0, reason);
    return session_packet('G', payload);
}

Bytes login_response(char status, std::uint8_t session, std::uint64_t highest) {
    Bytes payload(11);
    model::put(payload, 0, 1, 1);
    model::put_char(payload, 1, status);
    model::put(payload, 2, 1, session);
    model::put(payload, 3, 8, highest);
    return session_packet('r', payload);
}

Bytes feed_packet(std::uint64_t sequence, std::uint8_t type, std::uint8_t session, ByteView message) {
    Bytes packet = behind_header(12, message);
    model::put(packet, 0, 8, sequence);
    model::put(packet, 8, 2, packet.size());
    model::put(packet, 10, 1, type);
    model::put(packet, 11, 1, session);
    return packet;
}

bool cut_session_packet(Bytes& received, char& type, Bytes& payload) {
    if (received.size() < 2) return false;
    const auto length = static_cast<std::size_t>(model::get(received, 0, 2));
    if (length == 0) received.clear();
    if (length == 0 || received.size() < length + 2) return false;
    const auto end = received.begin() + static_cast<std::ptrdiff_t>(length + 2);
    type = static_cast<char>(received[2]);
    payload.assign(received.begin() + 3, end);
    received.erase(received.begin(), end);
    return true;
}

std::string padded_text(const Bytes& payload, std::size_t at, std::size_t width) {
    std::string text(as_text(payload).substr(at, width));
    while (!text.empty() && (text.back() == ' ' || text.back() == '\0')) text.pop_back();
    return text;
}

bool read_login(const Bytes& payload, Login& login) {
    if (payload.size() < 27) return false;
    login.session_protocol = padded_text(payload, 0, 5);
    login.username = padded_text(payload, 5, 5);
    login.computer_id = padded_text(payload, 10, 8);
    login.application_protocol = padded_text(payload, 18, 8);
    login.engines = payload[26];
    if (payload.size() < 27 + 9 * login.engines) return false;
    if (login.engines == 0) return true;
    login.engine_id = payload[27];
    login.requested = model::get(payload, 28, 8);
    return true;
}

std::string_view login_status_text(char status) {
    switch (status) {
        case 'A': return "incompatible application protocol version";
        case 'C': return "invalid number of matching engines";
        case 'I': return "incompatible session protocol version";
        case 'L': return "client already logged in";
        case 'N': return "invalid start sequence number requested";
        case 'S': return "invalid trading session requested";
        case 'X': return "invalid username/computer ID";
        default: return "unknown status";
    }
}

}  // namespace kavo::simulation
