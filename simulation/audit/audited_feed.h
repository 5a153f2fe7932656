// The feed under audit: every message by its number, the datagrams that carry them, the faults that were due, and the
// heartbeats.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "audit/tape_reader.h"
#include "model/fault_script.h"
#include "plan.h"

namespace kavo::simulation {

class AuditedFeed {
public:
    //   history  all messages of the day, the first one in front, as the recovery service gave them out at its end
    AuditedFeed(TapeReader& tape, const std::vector<Bytes>& history, const Plan& plan);

    // The messages, in the order in which they must have been published. A message is announced by System Time when it
    // was stamped in another second than the one announced last.
    //   stamped_ns   the moment at which the next message must have been stamped
    //   peek         the next message, System Time passed over
    //   publish      takes the next message, which must be this one
    std::uint64_t stamped_ns();
    const Bytes& peek() const;
    void publish(const Bytes& message);
    std::uint64_t last_sequence() const { return published_; }
    const Bytes& message(std::uint64_t sequence) const { return history_.at(sequence - 1); }
    std::uint64_t messages_of_the_day() const { return history_.size(); }

    // Takes the datagrams that left because the next message did not fit, wherever they come.
    void take_overflows();
    // Here the feed must send what it holds.
    void expect_flush();
    void expect_start();
    void run_heartbeat();

    model::FaultScript drop;
    model::FaultScript duplicate;
    model::FaultScript reorder;

    // As the venue reports them.
    std::uint64_t packets = 0;
    std::uint64_t dropped = 0;
    std::uint64_t duplicated = 0;
    std::uint64_t reordered = 0;
    std::uint64_t retransmissions = 0;
    std::uint64_t refreshes = 0;
    std::string fault_summary() const;

private:
    std::uint64_t most_that_fit() const;
    void take_flush(std::uint64_t count);
    Bytes datagram_of(std::uint64_t first, std::uint64_t count) const;
    void expect_datagram(const Bytes& datagram);
    void expect_fault(const std::string& line);

    TapeReader& tape_;
    const std::vector<Bytes>& history_;
    std::uint8_t session_;
    std::uint64_t burst_start_;
    std::uint32_t burst_count_;

    std::uint64_t published_ = 0;  // the latest message that is known to have been published
    std::uint64_t flushed_ = 0;    // the latest message of the datagrams so far
    std::uint64_t announced_second_ = 0;
    std::uint64_t last_flush_ms_ = 0;
    std::optional<std::uint64_t> before_overflow_ns_;  // the time at which the message that did not fit was stamped
    Bytes held_;
};

}  // namespace kavo::simulation
