// What the venue and kavo themselves said about a run, as far as it explains what would else be a contradiction.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "kavo/journal/journal.h"

namespace kavo::companion {

struct BenchLog {
    // Datagrams by the number of their first message.
    std::map<std::uint64_t, std::uint64_t> dropped;  // and how many messages they held
    std::map<std::uint64_t, std::uint64_t> doubled;  // and how often
    std::map<std::uint64_t, std::uint64_t> held;

    // Lines of the commentary, counted.
    std::uint64_t logins = 0;
    std::uint64_t replays = 0;
    std::uint64_t replayed = 0;
    std::uint64_t partial_fills = 0;
    std::uint64_t lost_races = 0;

    // The final report by its labels, "sent" to "reordered" of its faults included. Nothing when the venue did not come
    // to it; what it kept back in its buffers is lost then.
    std::optional<std::map<std::string, std::uint64_t>> report;

    // Why something may be missing, in words; empty when nothing may.
    std::string venue_log_incomplete;
    std::string wire_incomplete;
    std::string orders_incomplete;
    std::string books_incomplete;
    std::string feed_lost_here;  // the kernel threw away datagrams of kavo's own
    std::string relay_meddled;   // the relay was told to do something to somebody
};

BenchLog read_bench_log(const Journal& journal);

}  // namespace kavo::companion
