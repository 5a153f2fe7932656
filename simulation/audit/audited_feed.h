// The feed under audit: what must leave is the model's to say; this holds it against the tape.
#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

#include "audit/tape_reader.h"
#include "model/feed.h"
#include "plan.h"

namespace kavo::simulation {

class AuditedFeed {
public:
    //   history  all messages of the day, the first one in front, as they were published
    AuditedFeed(TapeReader& tape, const std::vector<Bytes>& history, const Plan& plan);

    // The messages, in the order in which they must have been published.
    //   stamped_ns   the moment at which the next message must have been stamped
    //   publish      takes the next message, which must be this one
    std::uint64_t stamped_ns();
    void publish(const Bytes& message);
    std::uint64_t last_sequence() const { return published_; }
    std::uint64_t messages_of_the_day() const { return history_.size(); }

    // Takes the datagrams that left because the next message did not fit, wherever they come.
    void take_overflows();
    // Here the feed must send what it holds.
    void expect_flush();
    void expect_start();
    void run_heartbeat();

    model::Feed model;

private:
    const Bytes& message(std::uint64_t sequence) const { return history_.at(sequence - 1); }
    void tell_model();
    bool tell_ahead();
    void expect(const model::Feed::Departures& departures);
    void expect_next();

    TapeReader& tape_;
    const std::vector<Bytes>& history_;
    std::uint64_t published_ = 0;                      // the latest message that is known to have been published
    std::deque<model::Feed::Departure> due_;           // and not yet found on the tape
    std::optional<std::uint64_t> before_overflow_ns_;  // the time at which the message that did not fit was stamped
};

}  // namespace kavo::simulation
