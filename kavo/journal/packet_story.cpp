#include "kavo/journal/packet_story.h"

#include "client/packets.h"
#include "client/recovery.h"
#include "client/responses.h"
#include "client/transcript.h"
#include "feed/recovery_layout.h"
#include "kavo/journal/reasons.h"

namespace kavo::companion {

namespace {

using esesm::PacketType;

std::string amount(std::uint64_t quantity, WirePrice price) {
    return std::to_string(quantity) + "@" + (price == 0 ? "market" : client::price_text(price));
}

void tell_request(ByteView message, StoryEntry& entry) {
    if (const auto m = meo::read_new_order(message)) {
        entry.order = m->client_order_id.str();
        entry.what = "N1 " + entry.order + (m->flags.sell() ? " sell " : " buy ") + amount(m->quantity, m->price) +
                     " tif " + static_cast<char>(m->tif) + " type " + static_cast<char>(m->order_type) + " product " +
                     std::to_string(m->product_id) + (m->flags.post_only() ? " post-only" : "");
    } else if (const auto replace = meo::read_replace(message)) {
        entry.order = replace->client_order_id.str();
        entry.original = replace->orig_client_order_id.str();
        entry.what = "M1 " + entry.order + " for " + entry.original + " " + amount(replace->quantity, replace->price) +
                     " tif " + static_cast<char>(replace->tif);
    } else if (const auto cancel = meo::read_cancel(message)) {
        entry.original = cancel->orig_client_order_id.str();
        entry.what = "CO " + cancel->client_order_id.str() + " of " + entry.original;
    } else {
        entry.what = "a message of " + std::to_string(message.size()) + " bytes that is no request";
    }
}

template <typename Code>
void reject(std::string_view type, Code code, StoryEntry& entry) {
    entry.rejected = type != "XN" && code != Code{' '};
    entry.why = reason_in_words(type, static_cast<char>(code));
}

// What a response is about, and why it refuses. Its words are transcript.h's.
void tell_response(ByteView message, StoryEntry& entry) {
    if (const auto m = client::read_new_order_response(message)) {
        entry.order = m->client_order_id;
        entry.order_id = m->order_id;
        reject("NR", m->reason, entry);
    } else if (const auto accepted = client::read_order_accepted(message)) {
        entry.order = accepted->client_order_id;
        entry.order_id = accepted->order_id;
    } else if (const auto resting = client::read_order_resting(message)) {
        entry.order = resting->client_order_id;
        entry.order_id = resting->order_id;
    } else if (const auto fill = client::read_execution(message)) {
        entry.order = fill->client_order_id;
    } else if (const auto cancelled = client::read_order_cancelled(message)) {
        entry.order = cancelled->client_order_id;
        entry.order_id = cancelled->order_id;
        reject("XN", cancelled->reason, entry);
    } else if (const auto answer = client::read_replace_response(message)) {
        entry.order = answer->client_order_id;
        entry.original = answer->orig_client_order_id;
        entry.order_id = answer->order_id;
        reject("MR", answer->reason, entry);
    } else if (const auto replaced = client::read_replace_notification(message)) {
        entry.order = replaced->client_order_id;
        entry.original = replaced->orig_client_order_id;
        entry.order_id = replaced->order_id;
    } else if (const auto refusal = client::read_cancel_response(message)) {
        entry.original = refusal->orig_client_order_id;
        entry.order_id = refusal->order_id;
        reject("CR", refusal->reason, entry);
    }
}

void tell_recovery_request(ByteView packet, StoryEntry& entry) {
    namespace again = layout::retransmission_request;
    namespace refresh = layout::refresh_request;
    const ByteView payload = client::payload_of(packet);
    if (client::has_type(packet, PacketType::retransmission_request) && payload.size() >= again::min_size) {
        entry.feed_number = get(payload, again::first);
        entry.what = "asks for messages " + std::to_string(get(payload, again::first)) + " to " +
                     std::to_string(get(payload, again::last));
    } else if (client::has_type(packet, PacketType::unsequenced_data) && payload.size() >= refresh::min_size) {
        entry.what = std::string("asks for a refresh '") + get(payload, refresh::refresh_type) + "'";
    }
}

void tell_client_packet(ByteView packet, Service service, StoryEntry& entry) {
    const ByteView payload = client::payload_of(packet);
    if (client::has_type(packet, PacketType::login_request)) {
        const auto login = esesm::read_login_request(payload);
        if (!login) {
            entry.what = "a login that is cut short";
        } else {
            entry.what = "login " + login->username;
            for (const auto& place : login->entries) {
                entry.what += ", from " + std::to_string(place.requested_sequence);
            }
        }
        return;
    }
    if (client::has_type(packet, PacketType::logout_request)) entry.what = "logout";
    if (client::has_type(packet, PacketType::client_heartbeat)) entry.what = "heartbeat";
    if (client::has_type(packet, PacketType::client_test)) entry.what = "test";
    if (service == Service::recovery) {
        tell_recovery_request(packet, entry);
    } else if (client::has_type(packet, PacketType::unsequenced_data)) {
        tell_request(payload, entry);
    }
    if (!entry.what.empty()) return;
    const char type = get(packet, esesm::layout::packet::type);
    entry.what = std::string("a packet of type '") + type + "' with " + std::to_string(payload.size()) + " bytes";
}

void tell_venue_packet(ByteView packet, Service service, StoryEntry& entry) {
    const bool is_recovery = service == Service::recovery;
    entry.what = is_recovery ? client::recovery_text(packet) : client::packet_text(packet);
    if (const auto response = client::read_login_response(packet)) {
        entry.rejected = response->login_status != esesm::LoginStatus::successful;
        if (entry.rejected) entry.why = esesm::login_status_text(response->login_status);
    }
    const auto goodbye = client::read_goodbye(packet);
    if (goodbye && goodbye->reason != esesm::GoodbyeReason::done) {
        entry.rejected = true;
        entry.why = goodbye->text;
    }
    const auto data = client::read_sequenced(packet);
    if (!data) return;
    if (is_recovery) {
        entry.feed_number = data->sequence;
    } else {
        entry.stream_number = data->sequence;
        tell_response(data->message, entry);
    }
}

}  // namespace

StoryEntry story_of(const WirePacket& packet, Service service) {
    StoryEntry entry;
    entry.at = packet.at;
    entry.by_user = packet.by_client;
    if (packet.by_client) {
        tell_client_packet(packet.bytes, service, entry);
    } else {
        tell_venue_packet(packet.bytes, service, entry);
    }
    return entry;
}

bool is_commonplace(const WirePacket& packet, Service service) {
    if (client::has_type(packet.bytes, PacketType::client_heartbeat)) return true;
    if (client::has_type(packet.bytes, PacketType::server_heartbeat)) return true;
    if (service == Service::orders || packet.by_client) return false;
    return client::has_type(packet.bytes, PacketType::sequenced_data) ||
           client::has_type(packet.bytes, PacketType::unsequenced_data);
}

}  // namespace kavo::companion
