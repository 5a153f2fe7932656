// The feed: every message gets the next number and is kept, and leaves in a datagram that a fault may befall on its way
// out. Whoever watches a feed tells this one what happens, and is told what must leave.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "model/fault_script.h"
#include "model/records.h"

namespace kavo::model {

class Feed {
public:
    explicit Feed(std::uint8_t session, const Limits& limits = {}) : session_(session), limits_(limits) {}

    // What can be seen of the feed: a datagram leaves, or a line is said about one that a fault befalls. Either is
    // empty where the other is not.
    struct Departure {
        Bytes datagram;
        std::string said;
    };
    using Departures = std::vector<Departure>;

    Departures start() const { return {{bare_packet(0, 1), {}}}; }
    // What is in the present datagram leaves before a message that does not fit any more; one that fits into none is
    // only kept.
    Departures publish(const Bytes& message);
    Departures flush();
    // When nothing has left for a second: whatever is in the datagram, then the heartbeat.
    Departures heartbeat_when_idle(std::uint64_t now_ms);
    // All that was due has left, or was kept back by a fault.
    void left(std::uint64_t now_ms) { last_left_ms_ = now_ms; }

    // The messages as which one is published that was stamped at this moment: behind the System Time when that lies in
    // another second than the one announced last.
    std::vector<Bytes> announced(const Bytes& message, std::uint64_t stamped_ns);

    // All messages that were published, and those that are kept for whoever has missed them.
    std::uint64_t last_number() const { return oldest_ + held_.size() - 1; }
    std::uint64_t oldest() const { return oldest_; }
    const Bytes& message(std::uint64_t number) const { return held_.at(number - oldest_); }
    void forget_all_but(std::size_t messages);

    // Whatever can befall a datagram: to count the same for all, each goes by the number of the datagram.
    struct Fault {
        std::string_view word;     // of its commands: so often, and with "_every" behind it
        std::string_view outcome;  // in a report
        FaultScript script = {};
        std::uint64_t befallen = 0;
    };
    enum Kind : std::size_t { drop, duplicate, reorder };
    std::array<Fault, 3> faults{{{"drop", "dropped"}, {"dup", "duplicated"}, {"reorder", "reordered"}}};
    std::uint64_t burst_start = 0;  // the first datagram of those that are dropped anyway
    std::uint32_t burst_count = 0;

    // Carries out a command; any other changes nothing.
    void command(std::string_view word, std::uint32_t number);
    std::uint64_t datagrams() const { return datagrams_; }
    std::string fault_summary() const;

private:
    bool befalls(Kind kind, bool anyway = false) { return faults.at(kind).script.happens_on(datagrams_, anyway); }
    Departures leave(const Bytes& datagram, const std::string& first, std::size_t messages);
    Departure tell(Kind kind, const std::string& which);
    Bytes packet(std::uint64_t number, std::uint8_t type, const Bytes& message) const;
    Bytes bare_packet(std::uint64_t number, std::uint8_t type) const { return packet(number, type, {}); }

    std::uint8_t session_;
    Limits limits_;
    std::uint64_t announced_second_ = 0;
    std::uint64_t last_left_ms_ = 0;
    std::uint64_t datagrams_ = 0;  // so far, whatever became of them

    std::uint64_t oldest_ = 1;
    std::deque<Bytes> held_;

    Bytes filling_;
    std::uint64_t first_ = 0;  // message of that datagram
    std::size_t messages_ = 0;
    Bytes held_back_;  // behind the next datagram that is sent
};

}  // namespace kavo::model
