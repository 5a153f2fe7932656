#include "model/feed.h"

#include <utility>

#include "model/packets.h"
#include "model/wire.h"

namespace kavo::model {

namespace {

constexpr std::size_t most_bytes = 1400;  // of a datagram
constexpr std::uint64_t heartbeat_after_ms = 1000;
constexpr std::uint64_t ns_in_a_second = 1'000'000'000;

constexpr std::uint8_t heartbeat = 0;
constexpr std::uint8_t application_data = 3;

}  // namespace

Bytes Feed::packet(std::uint64_t number, std::uint8_t type, const Bytes& message) const {
    Bytes bytes;
    append_number(bytes, number, 8);
    append_number(bytes, 12 + message.size(), 2);
    bytes.push_back(type);
    bytes.push_back(session_);
    append(bytes, message);
    return bytes;
}

std::vector<Bytes> Feed::announced(const Bytes& message, std::uint64_t stamped_ns) {
    const std::uint64_t second = stamped_ns / ns_in_a_second;
    if (std::exchange(announced_second_, second) == second) return {message};
    return {system_time(stamped_ns), message};
}

Feed::Departures Feed::publish(const Bytes& message) {
    held_.push_back(message);
    const std::uint64_t number = last_number();
    forget_all_but(limits_.feed_messages);
    const Bytes bytes = packet(number, application_data, message);
    Departures departures;
    if (filling_.size() + bytes.size() > most_bytes) departures = flush();
    if (bytes.size() > most_bytes) return departures;
    if (messages_++ == 0) first_ = number;
    append(filling_, bytes);
    return departures;
}

Feed::Departures Feed::flush() {
    if (messages_ == 0) return {};
    ++datagrams_;
    return leave(std::exchange(filling_, {}), "seq " + std::to_string(first_), std::exchange(messages_, 0));
}

// It is lost; or it is held back, in the place of one that is held back already; or it is sent, once or twice, and
// whatever was held back behind it. Whether it would be sent twice is decided before it is held back.
Feed::Departures Feed::leave(const Bytes& datagram, const std::string& first, std::size_t messages) {
    const bool in_burst = datagrams_ >= burst_start && datagrams_ - burst_start < burst_count;
    if (befalls(drop, in_burst)) {
        return {tell(
            drop, first + " (packet " + std::to_string(datagrams_) + ", " + std::to_string(messages) + " message(s))")};
    }
    const bool twice = befalls(duplicate);
    if (befalls(reorder)) {
        held_back_ = datagram;
        return {tell(reorder, first + " (held behind the next packet)")};
    }
    Departures departures{{datagram, {}}};
    if (twice) {
        departures.push_back({datagram, {}});
        departures.push_back(tell(duplicate, first));
    }
    if (!held_back_.empty()) departures.push_back({std::exchange(held_back_, {}), {}});
    return departures;
}

Feed::Departure Feed::tell(Kind kind, const std::string& which) {
    Fault& fault = faults.at(kind);
    ++fault.befallen;
    return {{}, "kavo_me fault: " + std::string(fault.outcome) + " " + which};
}

Feed::Departures Feed::heartbeat_when_idle(std::uint64_t now_ms) {
    if (now_ms < last_left_ms_ + heartbeat_after_ms) return {};
    Departures departures = flush();
    departures.push_back({bare_packet(last_number(), heartbeat), {}});
    return departures;
}

void Feed::forget_all_but(std::size_t messages) {
    for (; held_.size() > messages; ++oldest_) held_.pop_front();
}

void Feed::command(std::string_view word, std::uint32_t number) {
    for (Fault& fault : faults) {
        if (word == fault.word) fault.script.next = number;
        if (word == std::string(fault.word) + "_every") fault.script.every = number;
    }
}

std::string Feed::fault_summary() const {
    std::string text = "kavo_me faults: sent " + std::to_string(datagrams_ - faults[drop].befallen);
    for (const Fault& fault : faults) {
        text += " " + std::string(fault.outcome) + " " + std::to_string(fault.befallen);
    }
    return text;
}

}  // namespace kavo::model
