#include "client/recovery_client.h"

#include <stdexcept>

#include "client/transcript.h"
#include "feed/retransmission.h"

namespace kavo::client {

namespace {

namespace header = esesm::layout::packet;
namespace sequenced = esesm::layout::sequenced_packet;
namespace refresh = layout::refresh_message;

bool has_type(ByteView packet, esesm::PacketType type) {
    return get(packet, header::type) == static_cast<char>(type);
}

bool is_refresh_message(ByteView payload) {
    return payload.size() > refresh::header_size && get(payload, refresh::reply) == 'r';
}

std::string refresh_text(ByteView payload) {
    if (payload.size() == layout::refresh_end::size && get(payload, layout::refresh_end::end) == 'E') {
        return std::string("end of '") + get(payload, layout::refresh_end::refresh_type) + "'";
    }
    if (!is_refresh_message(payload)) return "unknown refresh packet";
    return "as of " + std::to_string(get(payload, refresh::as_of)) + ": " +
           dom_text(payload.subspan(refresh::header_size));
}

// Logs in and sends one request; gives the packets of the reply up to the goodbye, which must be the expected one.
std::vector<Bytes> converse(std::uint16_t port, char type, ByteView payload, const std::string& goodbye) {
    RecoveryClient client(port);
    client.log_in();
    if (const std::string answer = client.next(); !answer.starts_with("login accepted")) {
        throw std::runtime_error("instead of a login: " + answer);
    }
    client.wire.send_packet(type, payload);
    std::vector<Bytes> packets;
    while (auto packet = client.wire.next_packet()) {
        if (has_type(*packet, esesm::PacketType::goodbye)) {
            if (recovery_text(*packet) != goodbye) break;
            return packets;
        }
        packets.push_back(std::move(*packet));
    }
    throw std::runtime_error("a reply without '" + goodbye + "' behind packet " + std::to_string(packets.size()));
}

}  // namespace

Login receiver_login(std::string_view username) {
    Login login = client::login(username);
    login.application_protocol = "DoM1.3";
    return login;
}

std::string recovery_text(ByteView packet) {
    if (has_type(packet, esesm::PacketType::sequenced_data)) {
        return std::to_string(get(packet, sequenced::sequence)) + ": " +
               dom_text(packet.subspan(sequenced::header_size));
    }
    if (has_type(packet, esesm::PacketType::unsequenced_data)) return refresh_text(packet.subspan(header::header_size));
    return packet_text(packet);
}

Bytes retransmission_payload(std::uint64_t first, std::uint64_t last) {
    namespace at = layout::retransmission_request;
    Bytes payload(at::min_size);
    put(payload, at::first, first);
    put(payload, at::last, last);
    return payload;
}

RecoveryClient::RecoveryClient(std::uint16_t port) : wire(port) {
    wire.keep_silent();
}

void RecoveryClient::request(std::uint64_t first, std::uint64_t last) {
    wire.send_packet('a', retransmission_payload(first, last));
}

void RecoveryClient::request_refresh(char type) {
    wire.send_packet('U', Bytes{'R', static_cast<std::uint8_t>(type)});
}

std::string RecoveryClient::next() {
    if (const auto packet = wire.next_packet()) return recovery_text(*packet);
    return wire.closed() ? "closed" : "silence";
}

std::string RecoveryClient::next(std::size_t count) {
    std::vector<std::string> lines;
    for (std::size_t i = 0; i < count; ++i) lines.push_back(next());
    return joined(lines);
}

std::string RecoveryClient::rest() {
    std::vector<std::string> lines;
    do {
        lines.push_back(next());
    } while (lines.back() != "closed" && lines.back() != "silence");
    return joined(lines);
}

std::vector<NumberedMessage> fetch_range(std::uint64_t first, std::uint64_t last, std::uint16_t port) {
    std::vector<NumberedMessage> messages;
    for (const Bytes& packet :
         converse(port, 'a', retransmission_payload(first, last), "goodbye 'A' retransmission complete")) {
        if (!has_type(packet, esesm::PacketType::sequenced_data)) throw std::runtime_error(recovery_text(packet));
        messages.push_back(
            {get(packet, sequenced::sequence), Bytes(packet.begin() + sequenced::header_size, packet.end())});
    }
    return messages;
}

Snapshot fetch_snapshot(char type, std::uint16_t port) {
    std::vector<Bytes> packets =
        converse(port, 'U', Bytes{'R', static_cast<std::uint8_t>(type)}, "goodbye 'A' refresh complete");
    if (packets.empty() || recovery_text(packets.back()) != std::string("end of '") + type + "'") {
        throw std::runtime_error("a refresh without its end");
    }
    Snapshot snapshot;
    snapshot.bytes = packets.back().size();
    packets.pop_back();
    for (const Bytes& packet : packets) {
        const ByteView payload = ByteView(packet).subspan(header::header_size);
        if (!is_refresh_message(payload)) throw std::runtime_error("in a refresh: " + recovery_text(packet));
        snapshot.bytes += packet.size();
        snapshot.as_of = get(payload, refresh::as_of);
        snapshot.messages.emplace_back(payload.begin() + refresh::header_size, payload.end());
    }
    return snapshot;
}

}  // namespace kavo::client
