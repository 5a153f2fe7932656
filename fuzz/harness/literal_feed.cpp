#include "harness/literal_feed.h"

#include <utility>

namespace kavo::fuzz {

namespace {

constexpr std::size_t most_bytes = 1400;
constexpr char heartbeat = 0;
constexpr char application_data = 3;

void append(Bytes& to, const Bytes& bytes) {
    to.insert(to.end(), bytes.begin(), bytes.end());
}

void append_number(Bytes& to, std::uint64_t value, int width) {
    for (int i = 0; i < width; ++i) to.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

Bytes packet(std::uint64_t number, char type, std::uint8_t session, const Bytes& message) {
    Bytes bytes;
    append_number(bytes, number, 8);
    append_number(bytes, 12 + message.size(), 2);
    bytes.push_back(static_cast<std::uint8_t>(type));
    bytes.push_back(session);
    append(bytes, message);
    return bytes;
}

// Decided for every datagram that comes so far, and using up one of `next` whether or not it was needed.
bool fires(std::uint64_t datagram, std::uint32_t every, std::uint32_t& next, bool in_burst = false) {
    const bool is_multiple = every > 0 && datagram % every == 0;
    const bool pending = next > 0;
    const bool result = is_multiple || in_burst || pending;
    if (result && pending) next = next - 1;
    return result;
}

}  // namespace

void LiteralFeed::publish(const Bytes& message) {
    last_number = last_number + 1;
    counters.messages = counters.messages + 1;
    held_messages[last_number] = message;
    const Bytes bytes = packet(last_number, application_data, session_, message);
    if (filling_.size() + bytes.size() > most_bytes) flush();
    if (bytes.size() <= most_bytes) append(filling_, bytes);
}

void LiteralFeed::flush() {
    if (filling_.empty()) return;
    counters.packets = counters.packets + 1;
    flushed_ms_ = now_ms;
    leave(std::exchange(filling_, {}));
}

void LiteralFeed::leave(const Bytes& datagram) {
    const std::uint64_t number = counters.packets;
    bool in_burst = false;
    for (std::uint64_t i = 0; i < faults.drop_burst_count; ++i) in_burst |= number == faults.drop_burst_start + i;
    if (fires(number, faults.drop_every, faults.drop_next, in_burst)) {
        counters.dropped = counters.dropped + 1;
        return;
    }
    const bool twice = fires(number, faults.dup_every, faults.dup_next);
    if (fires(number, faults.reorder_every, faults.reorder_next)) {
        counters.reordered = counters.reordered + 1;
        held_back_ = datagram;
        return;
    }
    datagrams.push_back(datagram);
    if (twice) {
        counters.duplicated = counters.duplicated + 1;
        datagrams.push_back(datagram);
    }
    if (!held_back_.empty()) datagrams.push_back(std::exchange(held_back_, {}));
}

void LiteralFeed::heartbeat_when_idle() {
    if (now_ms - flushed_ms_ <= 999) return;
    flush();
    datagrams.push_back(packet(last_number, heartbeat, session_, {}));
    flushed_ms_ = now_ms;
}

void LiteralFeed::forget_all_but(std::size_t messages) {
    while (held_messages.size() > messages) held_messages.erase(held_messages.begin());
}

Bytes LiteralFeed::sent_again(std::uint64_t first, std::uint64_t last) const {
    Bytes packets;
    for (const auto& [number, message] : held_messages) {
        if (number < first || number > last) continue;
        append_number(packets, 1 + 8 + 1 + message.size(), 2);
        packets.push_back('s');
        append_number(packets, number, 8);
        packets.push_back(1);
        append(packets, message);
    }
    return packets;
}

}  // namespace kavo::fuzz
