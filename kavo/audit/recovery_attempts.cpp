#include "kavo/audit/recovery_attempts.h"

#include <algorithm>
#include <set>

#include "client/packets.h"
#include "feed/recovery_layout.h"
#include "session/esesm.h"

namespace kavo::companion {

namespace {

using Asks = RecoveryAttempt::Asks;

// Whatever stands behind the first request is not looked at by the service, so not here either.
void take_request(const WirePacket& packet, RecoveryAttempt& attempt) {
    if (attempt.asks != Asks::nothing || packet.bytes.size() < esesm::layout::packet::header_size) return;
    const ByteView payload = client::payload_of(packet.bytes);
    if (client::has_type(packet.bytes, esesm::PacketType::retransmission_request)) {
        namespace at = layout::retransmission_request;
        if (payload.size() < at::min_size) return;
        attempt.asks = Asks::messages;
        attempt.wanted = {get(payload, at::first), get(payload, at::last)};
        attempt.asked = packet.begun;
    } else if (client::has_type(packet.bytes, esesm::PacketType::unsequenced_data)) {
        namespace at = layout::refresh_request;
        if (payload.size() < at::min_size || get(payload, at::request) != 'R') return;
        attempt.asks = Asks::state;
        attempt.refresh_type = get(payload, at::refresh_type);
        attempt.asked = packet.begun;
    }
}

void take_reply(const WirePacket& packet, RecoveryAttempt& attempt, bool& accepted) {
    if (const auto entry = client::read_login_response(packet.bytes)) {
        if (entry->login_status != esesm::LoginStatus::successful) return;
        accepted = true;
        attempt.told = entry->highest_sequence;
    } else if (const auto message = client::read_sequenced(packet.bytes)) {
        attempt.served.add({message->sequence, message->sequence});
    } else if (const auto goodbye = client::read_goodbye(packet.bytes)) {
        attempt.complete = accepted && attempt.asks != Asks::nothing && goodbye->reason == esesm::GoodbyeReason::done;
        attempt.ended = packet.at;
    } else if (client::has_type(packet.bytes, esesm::PacketType::unsequenced_data)) {
        namespace at = layout::refresh_message;
        const ByteView payload = client::payload_of(packet.bytes);
        if (payload.size() >= at::header_size && get(payload, at::reply) == 'r') {
            attempt.as_of = get(payload, at::as_of);
        }
    }
}

RecoveryAttempt attempt_of(const Conversation& conversation) {
    RecoveryAttempt attempt;
    attempt.user = conversation.user;
    attempt.opened = attempt.asked = conversation.opened;
    attempt.ended = conversation.closed;
    attempt.ended_by = conversation.ended_by;
    bool accepted = false;
    for (const WirePacket& packet : conversation.with_client) {
        if (packet.by_client)
            take_request(packet, attempt);
        else
            take_reply(packet, attempt, accepted);
    }
    if (attempt.ended.ns == 0 && !conversation.with_client.empty()) attempt.ended = conversation.with_client.back().at;
    attempt.ended.ns = std::max(attempt.ended.ns, attempt.asked.ns);
    return attempt;
}

}  // namespace

std::uint64_t RecoveryAttempt::last_possible() const {
    if (told == 0 && served.empty()) return wanted.last;  // it was not answered at all
    return std::min(wanted.last, std::max(told, served.last()));
}

std::vector<RecoveryAttempt> recovery_attempts(const Journal& journal) {
    std::vector<RecoveryAttempt> attempts;
    std::set<std::string> users;
    for (const Conversation& conversation : journal.conversations) {
        if (conversation.service != Service::recovery || conversation.user == journal.facts.house) continue;
        attempts.push_back(attempt_of(conversation));
        if (!conversation.user.empty()) users.insert(conversation.user);
    }
    if (users.size() == 1) {
        for (RecoveryAttempt& attempt : attempts) attempt.user = *users.begin();
    }
    std::stable_sort(attempts.begin(), attempts.end(), [](const RecoveryAttempt& one, const RecoveryAttempt& other) {
        return one.asked.ns < other.asked.ns;
    });
    return attempts;
}

std::string text_of(const RecoveryAttempt& attempt) {
    switch (attempt.asks) {
        case Asks::nothing: return "asked for nothing";
        case Asks::state: return "asked for a refresh";
        case Asks::messages: break;
    }
    const bool open_end = attempt.wanted.last > attempt.told && attempt.wanted.last > (1ULL << 62);
    if (open_end) return "asked for everything from " + std::to_string(attempt.wanted.first) + " on";
    return "asked for " + text_of(attempt.wanted);
}

}  // namespace kavo::companion
