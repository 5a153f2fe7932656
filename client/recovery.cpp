#include "client/recovery.h"

#include "client/packets.h"
#include "client/transcript.h"

namespace kavo::client {

namespace {

namespace refresh = layout::refresh_message;

bool is_refresh_message(ByteView payload) {
    return payload.size() > refresh::header_size && get(payload, refresh::reply) == 'r';
}

bool is_refresh_end(ByteView payload) {
    return payload.size() == layout::refresh_end::size && get(payload, layout::refresh_end::end) == 'E';
}

std::string refresh_text(ByteView payload) {
    if (is_refresh_end(payload)) return std::string("end of '") + get(payload, layout::refresh_end::refresh_type) + "'";
    if (!is_refresh_message(payload)) return "unknown refresh packet";
    return "as of " + std::to_string(get(payload, refresh::as_of)) + ": " +
           dom_text(payload.subspan(refresh::header_size));
}

Bytes kept(ByteView bytes) {
    return {bytes.begin(), bytes.end()};
}

}  // namespace

Login receiver_login(std::string_view username) {
    Login login = client::login(username);
    login.application_protocol = "DoM1.3";
    return login;
}

Bytes retransmission_payload(std::uint64_t first, std::uint64_t last) {
    namespace at = layout::retransmission_request;
    Bytes payload(at::min_size);
    put(payload, at::first, first);
    put(payload, at::last, last);
    return payload;
}

Bytes refresh_payload(char type) {
    namespace at = layout::refresh_request;
    Bytes payload(at::min_size);
    put(payload, at::request, 'R');
    put(payload, at::refresh_type, type);
    return payload;
}

std::string recovery_text(ByteView packet) {
    if (const auto again = read_sequenced(packet)) {
        return std::to_string(again->sequence) + ": " + dom_text(again->message);
    }
    if (has_type(packet, esesm::PacketType::unsequenced_data)) return refresh_text(payload_of(packet));
    return packet_text(packet);
}

Recovery Recovery::of_messages(std::uint64_t first, std::uint64_t last) {
    return Recovery(esesm::PacketType::retransmission_request, retransmission_payload(first, last));
}

Recovery Recovery::of_state(char type) {
    Recovery recovery(esesm::PacketType::unsequenced_data, refresh_payload(type));
    recovery.refresh_type_ = type;
    return recovery;
}

Recovery::Recovery(esesm::PacketType type, ByteView request)
    : request_(type), opening_(esesm::build_packet(esesm::PacketType::login_request, receiver_login().payload())) {
    const Bytes packet = esesm::build_packet(type, request);
    opening_.insert(opening_.end(), packet.begin(), packet.end());
}

void Recovery::receive(ByteView bytes) {
    Bytes& incoming = received_.incoming();
    incoming.insert(incoming.end(), bytes.begin(), bytes.end());
    while (!over()) {
        const auto packet = received_.cut();
        if (!packet) return;
        take(esesm::build_packet(packet->type, packet->payload));
    }
}

void Recovery::disconnected() {
    if (!over()) problem_ = "a reply without its end behind packet " + std::to_string(packets_);
}

void Recovery::take(ByteView packet) {
    if (!logged_in_) {
        logged_in_ = is_accepted_login(packet);
        if (!logged_in_) problem_ = "instead of a login: " + packet_text(packet);
        return;
    }
    if (has_type(packet, esesm::PacketType::goodbye)) return take_goodbye(packet);
    ++packets_;
    if (request_ == esesm::PacketType::unsequenced_data) return take_refresh(packet);
    const auto again = read_sequenced(packet);
    if (!again) {
        problem_ = "among messages sent again: " + recovery_text(packet);
        return;
    }
    messages.push_back({again->sequence, kept(again->message)});
}

void Recovery::take_refresh(ByteView packet) {
    const ByteView payload = payload_of(packet);
    const bool of_its_kind = has_type(packet, esesm::PacketType::unsequenced_data) && !refresh_ended_;
    snapshot.bytes += packet.size();
    if (of_its_kind && is_refresh_message(payload)) {
        snapshot.as_of = get(payload, refresh::as_of);
        snapshot.messages.push_back(kept(payload.subspan(refresh::header_size)));
    } else if (of_its_kind && is_refresh_end(payload) &&
               get(payload, layout::refresh_end::refresh_type) == refresh_type_) {
        refresh_ended_ = true;
    } else {
        problem_ = "in a refresh: " + recovery_text(packet);
    }
}

// A goodbye with any other text is a refusal.
void Recovery::take_goodbye(ByteView packet) {
    const bool of_state = request_ == esesm::PacketType::unsequenced_data;
    const std::string expected = of_state ? "goodbye 'A' refresh complete" : "goodbye 'A' retransmission complete";
    complete_ = packet_text(packet) == expected && refresh_ended_ == of_state;
    if (!complete_) problem_ = "a reply that ends with: " + packet_text(packet);
}

}  // namespace kavo::client
