#include "kavo/audit/bench_recovery.h"

#include <algorithm>
#include <optional>

#include "client/feed_messages.h"
#include "client/packets.h"
#include "feed/recovery_layout.h"

namespace kavo::companion {

namespace {

constexpr std::uint64_t history_messages = 200'000;  // as many as the venue keeps

struct Range {
    std::uint64_t first = 0;
    std::uint64_t last = 0;
};

// What one connection asked for and was given, on the venue's side of the relay.
struct Exchange {
    std::optional<Range> wanted;
    std::optional<std::uint64_t> highest;  // of the login response
    std::vector<std::uint64_t> given;
    FeedSnapshot snapshot;
    bool refresh_ended = false;
    bool retransmission_ended = false;
    Moment at;
};

void take_from_client(ByteView packet, Exchange& exchange) {
    namespace at = layout::retransmission_request;
    if (!client::has_type(packet, esesm::PacketType::retransmission_request)) return;
    const ByteView payload = client::payload_of(packet);
    if (payload.size() >= at::min_size && !exchange.wanted) {
        exchange.wanted = Range{get(payload, at::first), get(payload, at::last)};
    }
}

void take_refresh(ByteView payload, Exchange& exchange) {
    namespace at = layout::refresh_message;
    namespace end = layout::refresh_end;
    if (payload.size() == end::size && get(payload, end::end) == 'E') {
        exchange.refresh_ended = get(payload, end::refresh_type) == static_cast<char>(RefreshType::all);
        return;
    }
    if (payload.size() <= at::header_size || get(payload, at::reply) != 'r') return;
    exchange.snapshot.as_of = get(payload, at::as_of);
    const ByteView message = payload.subspan(at::header_size);
    if (client::read_add_order(message)) exchange.snapshot.orders.push_back(message);
}

void take_from_venue(ByteView packet, Exchange& exchange) {
    if (const auto response = client::read_login_response(packet)) exchange.highest = response->highest_sequence;
    if (const auto again = client::read_sequenced(packet)) exchange.given.push_back(again->sequence);
    if (client::has_type(packet, esesm::PacketType::unsequenced_data)) {
        take_refresh(client::payload_of(packet), exchange);
    }
    const auto goodbye = client::read_goodbye(packet);
    if (goodbye && goodbye->text == "retransmission complete") exchange.retransmission_ended = true;
}

Exchange exchange_of(const Conversation& conversation) {
    Exchange exchange;
    for (const WirePacket& packet : conversation.with_venue) {
        exchange.at = packet.at;
        if (packet.by_client) {
            take_from_client(packet.bytes, exchange);
        } else {
            take_from_venue(packet.bytes, exchange);
        }
    }
    exchange.snapshot.at = exchange.at;
    return exchange;
}

bool is_recovery(const Conversation& conversation) {
    return conversation.service == Service::recovery && !conversation.reframed;
}

// A range ends at the last message that had been published when it was asked for. That was after the login, so the
// login's number is the least that it may end at. While the history still holds everything, it begins where it was
// asked to.
void audit_range(const Exchange& exchange, const RecordedFeed& feed, BenchFindings& findings) {
    const Range wanted = *exchange.wanted;
    const auto wrong = [&](const std::string& got) {
        findings.contradiction(bench_rule::recovery, {.expected = "messages " + std::to_string(wanted.first) + " to " +
                                                                  std::to_string(wanted.last) + ", as far as published",
                                                      .got = got,
                                                      .where = {.moment = exchange.at, .feed_number = wanted.first}});
    };
    const std::vector<std::uint64_t>& given = exchange.given;
    for (std::size_t i = 0; i < given.size(); ++i) {
        const bool runs_on = i == 0 || given[i] == given[i - 1] + 1;
        if (!runs_on || given[i] < wanted.first || given[i] > wanted.last) {
            return wrong("message " + std::to_string(given[i]) +
                         (i == 0 ? " first" : " behind " + std::to_string(given[i - 1])));
        }
    }
    const std::uint64_t first = std::max<std::uint64_t>(wanted.first, 1);
    const std::uint64_t least_last = std::min(wanted.last, exchange.highest.value_or(0));
    if (first > least_last || feed.last_used > history_messages) return;
    if (given.empty()) return wrong("none of them");
    if (given.front() != first) return wrong("message " + std::to_string(given.front()) + " first");
    if (given.back() < least_last) return wrong("message " + std::to_string(given.back()) + " last");
}

}  // namespace

void add_messages_sent_again(const Journal& journal, std::vector<FeedMessage>& messages) {
    for (const Conversation& conversation : journal.conversations) {
        if (!is_recovery(conversation)) continue;
        for (const WirePacket& packet : conversation.with_venue) {
            if (packet.by_client) continue;
            const auto again = client::read_sequenced(packet.bytes);
            const bool in_range = again && again->sequence != 0 && again->sequence <= largest_number;
            if (in_range) messages.push_back({again->sequence, again->message, packet.at, true});
        }
    }
}

void audit_recovery_service(const Journal& journal, const RecordedFeed& feed, Verdict& verdict,
                            BenchFindings& findings) {
    for (const Conversation& conversation : journal.conversations) {
        const bool of_kavo = conversation.user == journal.facts.house;
        if (conversation.service == Service::recovery && !of_kavo) ++verdict.counts.recoveries;
        if (!is_recovery(conversation)) continue;
        const Exchange exchange = exchange_of(conversation);
        if (exchange.wanted && exchange.retransmission_ended) audit_range(exchange, feed, findings);
    }
}

std::vector<FeedSnapshot> snapshots_of(const Journal& journal) {
    std::vector<FeedSnapshot> snapshots;
    for (const Conversation& conversation : journal.conversations) {
        if (!is_recovery(conversation)) continue;
        Exchange exchange = exchange_of(conversation);
        if (exchange.refresh_ended) snapshots.push_back(std::move(exchange.snapshot));
    }
    std::ranges::stable_sort(snapshots, {}, &FeedSnapshot::as_of);
    return snapshots;
}

}  // namespace kavo::companion
