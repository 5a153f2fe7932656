#include "kavo/journal/conversations.h"

#include <algorithm>
#include <iterator>

#include "client/packets.h"

namespace kavo::companion {

namespace {

// The first login that can be read names the user, even if it was rejected.
std::string user_of(const std::vector<WirePacket>& packets) {
    for (const WirePacket& packet : packets) {
        if (!packet.by_client || !client::has_type(packet.bytes, esesm::PacketType::login_request)) continue;
        const auto login = esesm::read_login_request(client::payload_of(packet.bytes));
        if (login) return login->username;
    }
    return {};
}

// Packets of both directions in the order in which they passed.
std::vector<WirePacket> merged(const std::vector<WirePacket>& from_client, const std::vector<WirePacket>& to_client) {
    std::vector<WirePacket> all;
    all.reserve(from_client.size() + to_client.size());
    std::merge(from_client.begin(), from_client.end(), to_client.begin(), to_client.end(), std::back_inserter(all),
               [](const WirePacket& left, const WirePacket& right) { return left.at.packet < right.at.packet; });
    return all;
}

}  // namespace

bool Conversations::find_ends(const Segment& segment, Ends& ends) const {
    const auto matches = [&](std::uint16_t server, Service service, bool front) {
        if (server == 0 || (segment.to != server && segment.from != server)) return false;
        const bool by_client = segment.to == server;
        ends = {service, front, by_client, by_client ? segment.from : segment.to};
        return true;
    };
    return matches(facts_.orders_port, Service::orders, true) ||
           matches(facts_.orders_behind_port, Service::orders, false) ||
           matches(facts_.recovery_port, Service::recovery, true) ||
           matches(facts_.recovery_behind_port, Service::recovery, false);
}

// The two halves of a connection begin in any order. A half that there is already belongs to an earlier connection from
// the same port.
Conversations::Connection& Conversations::open(const Ends& ends) {
    Connection*& latest = latest_[{ends.service, ends.client}];
    if (latest == nullptr || (ends.front ? latest->front : latest->behind).opened) {
        latest = &connections_.emplace_back();
        latest->service = ends.service;
    }
    return *latest;
}

void Conversations::take(const Segment& segment) {
    Ends ends;
    if (!find_ends(segment, ends)) return;
    if (segment.opens) {
        Connection& connection = open(ends);
        Half& half = ends.front ? connection.front : connection.behind;
        half.opened = true;
        half.at = segment.at;
    }
    const auto found = latest_.find({ends.service, ends.client});
    if (found == latest_.end()) {
        if (!segment.bytes.empty()) ++holes_;  // its beginning is not in the recording
        return;
    }
    Half& half = ends.front ? found->second->front : found->second->behind;
    append(ends.by_client ? half.from_client : half.from_server, segment);
    if (segment.closes || segment.resets) half.closings.push_back({segment.at, ends.by_client, segment.resets});
}

void Conversations::append(Stream& stream, const Segment& segment) {
    if (segment.opens || segment.answers) {
        stream.next = segment.sequence + 1;
        stream.numbered = true;
        return;
    }
    if (segment.bytes.empty() || stream.broken) return;
    if (!stream.numbered || segment.sequence != stream.next) {
        stream.broken = true;
        ++holes_;
        return;
    }
    stream.next += static_cast<std::uint32_t>(segment.bytes.size());
    stream.pieces.push_back({stream.bytes.size(), segment.at});
    stream.bytes.insert(stream.bytes.end(), segment.bytes.begin(), segment.bytes.end());
}

// Behind a packet of length 0 the venue throws away what has arrived, and begins afresh with what arrives next: with
// the next piece, as far as a recording can tell.
void Conversations::cut(const Stream& stream, const Bytes& bytes, bool by_client, Conversation& conversation,
                        std::vector<WirePacket>& packets, ByteView& rest) {
    const ByteView all(bytes);
    std::size_t at = 0;
    std::size_t piece = 0;
    const auto moment_of = [&](std::size_t byte) {
        while (piece + 1 < stream.pieces.size() && stream.pieces[piece + 1].at <= byte) ++piece;
        return stream.pieces[piece].moment;
    };
    while (at < all.size()) {
        const Moment begun = moment_of(at);
        const auto packet = client::first_packet(all.subspan(at));
        if (packet) {
            at += packet->size();
            packets.push_back({begun, moment_of(at - 1), by_client, *packet});
            continue;
        }
        if (all.size() - at < 2 || all[at] != 0 || all[at + 1] != 0) break;
        conversation.reframed = true;
        at = piece + 1 < stream.pieces.size() ? stream.pieces[piece + 1].at : all.size();
    }
    rest = all.subspan(at);
}

// Whoever was the first to say that it is over. What the relay does by itself shows on a side that nobody else has
// ended.
void Conversations::end(const Connection& connection, Conversation& conversation) {
    const Closing* first = nullptr;
    const auto consider = [&](const Half& half, EndedBy client, EndedBy server) {
        for (const Closing& closing : half.closings) {
            if (first != nullptr && first->at.packet <= closing.at.packet) continue;
            first = &closing;
            conversation.ended_by = closing.by_client ? client : server;
        }
    };
    consider(connection.front, EndedBy::client, EndedBy::relay);
    consider(connection.behind, EndedBy::relay, EndedBy::venue);
    if (connection.front.closings.empty()) return;
    conversation.closed = connection.front.closings.front().at;
    for (const Closing& closing : connection.front.closings) conversation.reset |= closing.reset;
}

std::deque<Conversation> Conversations::finish(std::deque<Bytes>& bytes, std::size_t& holes) {
    std::deque<Conversation> finished;
    const auto packets_of = [&](Half& half, Conversation& conversation, ByteView& from_client, ByteView& to_client) {
        std::vector<WirePacket> up, down;
        const Bytes& said = bytes.emplace_back(std::move(half.from_client.bytes));
        cut(half.from_client, said, true, conversation, up, from_client);
        const Bytes& heard = bytes.emplace_back(std::move(half.from_server.bytes));
        cut(half.from_server, heard, false, conversation, down, to_client);
        return merged(up, down);
    };
    for (Connection& connection : connections_) {
        Conversation& conversation = finished.emplace_back();
        conversation.number = finished.size();
        conversation.service = connection.service;
        conversation.opened = connection.front.opened ? connection.front.at : connection.behind.at;
        end(connection, conversation);
        conversation.with_client =
            packets_of(connection.front, conversation, conversation.rest_of_client, conversation.rest_to_client);
        conversation.with_venue =
            packets_of(connection.behind, conversation, conversation.rest_of_relay, conversation.rest_of_venue);
        conversation.user = user_of(conversation.with_client);
    }
    holes = holes_;
    return finished;
}

}  // namespace kavo::companion
