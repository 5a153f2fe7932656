// Holds everything that left the venue against everything else that left it, and against what went in: the tape of a
// day, from the first entry to the last. It knows the rules of the venue, and nothing of the venue's own state.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "audit/audited_recovery.h"
#include "audit/audited_sessions.h"

namespace kavo::simulation {

class Auditor {
public:
    Auditor(const Tape& tape, const std::vector<Bytes>& history, const Plan& plan);

    // Throws the first finding.
    void audit();
    // Where on the tape it was made.
    std::size_t position() const { return tape_.position(); }
    std::uint64_t passes() const { return passes_; }

    // What each user must have been told in the end, by its numbers.
    const std::map<std::string, model::Stream>& streams() const { return sessions_.streams(); }

    // What must have been counted in all: by the bench, then by the feed.
    std::vector<model::Bench::Counter> counters() const;

private:
    void start_day();
    void take(const Entry& entry);
    void begin(Step step);
    void take_commands();
    void carry_out(const Entry& command);
    void carry_out(std::string_view word, std::uint32_t number);
    void mark(std::string_view label);
    void tick();
    void report_bench();
    void report_feed();
    void check_snapshots();
    void end_day();
    std::string next_sequence() const { return std::to_string(feed_.last_sequence() + 1); }

    const Plan& plan_;
    TapeReader tape_;
    AuditedFeed feed_;
    Witness witness_;
    AuditedOrders orders_;
    model::Bench& bench_;
    AuditedSessions sessions_;
    AuditedRecovery recovery_;

    std::int32_t tick_interval_ms_;
    std::uint64_t pass_ms_ = 0;
    std::uint64_t passes_ = 0;
    std::uint64_t last_tick_ms_ = 0;
    std::uint64_t last_bench_report_ms_ = 0;
    std::uint64_t last_feed_report_ms_ = 0;
    std::uint64_t last_snapshot_ms_ = 0;
};

}  // namespace kavo::simulation
