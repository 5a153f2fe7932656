// Application messages on their way to the users: numbered, stored for replay, and sent.
#include "session/order_entry.h"

namespace kavo {

void OrderEntry::deliver_engine_output() {
    // The two lists change places, so that neither gives its memory back.
    delivered_.clear();
    engine_.cancel_unsolicited();
    delivered_.swap(engine_.outbox);
    const std::uint64_t now_ms = clock_.steady_ms();
    for (const OutboundMessage& message : delivered_) route(message, now_ms);
    feed_.flush();
}

void OrderEntry::route(const OutboundMessage& message, std::uint64_t now_ms) {
    if (message.client < 0 || static_cast<std::size_t>(message.client) >= clients_.size()) return;
    MeoClient& addressee = client(message.client);
    if (addressee.open() && addressee.logged_in) return deliver(addressee, message, now_ms, false);
    // The user is away: the message waits for the next login. Nothing is trimmed here; the next live message does that.
    if (message.sequenced && addressee.stream != nullptr) store(*addressee.stream, message.message.bytes());
}

void OrderEntry::deliver(MeoClient& client, const OutboundMessages& messages) {
    const std::uint64_t now_ms = clock_.steady_ms();
    for (std::size_t i = 0; i < messages.size(); ++i) {
        const bool last = i + 1 == messages.size();
        deliver(client, messages[i], now_ms, !last || client.asks_more);
    }
}

// During a lapse a sequenced message only takes its number and its place in the stream; an unsequenced one is lost.
// During a replay it waits behind it.
void OrderEntry::deliver(MeoClient& client, const OutboundMessage& message, std::uint64_t now_ms, bool more_follows) {
    ByteView packet;
    Bytes unsequenced;
    if (message.sequenced) {
        packet = store(*client.stream, message.message.bytes());
        client.stream->stored.trim(stream_limit);
    } else {
        unsequenced = esesm::build_packet(esesm::PacketType::unsequenced_data, message.message.bytes());
        packet = unsequenced;
    }
    if (bench_.in_lapse(now_ms)) return;
    if (message.sequenced && client.is_replayed_to()) {
        return client.owed->replay.follow(client.stream->next_sequence() - 1);
    }
    send(client, packet, now_ms, more_follows);
}

// Numbers the message and keeps it as the packet in which it is sent, now and in every replay.
ByteView OrderEntry::store(SessionStream& stream, ByteView message) {
    const std::uint64_t sequence = stream.next_sequence();
    const MutableBytes packet = stream.stored.append(esesm::sequenced_size(message.size()));
    esesm::build_sequenced(packet, sequence, message);
    return packet;
}

}  // namespace kavo
