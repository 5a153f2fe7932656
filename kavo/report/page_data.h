// The parts of a run that the page draws, as JSON. Times are milliseconds since the start of the run.
#pragma once

#include <nlohmann/json.hpp>

#include "kavo/audit/beliefs.h"
#include "kavo/audit/gaps.h"
#include "kavo/report/report.h"

namespace kavo::companion {

using Json = nlohmann::ordered_json;

// A run and what was made of it. Everything is lent.
struct Picture {
    const Report& report;
    const Journal& journal;
    const Beliefs& beliefs;
    const FeedPicture& feed;

    double ms(std::uint64_t ns) const {
        return static_cast<double>(static_cast<std::int64_t>(ns - journal.facts.started_ns)) / 1e6;
    }
};

// [[time, highest number of the feed], ...]: no more points than anybody can tell apart.
Json feed_points(const Picture& picture);
// [{"from", "to", "label"}, ...]
Json gap_spans(const Picture& picture);
// [{"lane": "faults" | "logins" | "marks" | "beliefs" | "findings", "t", "label"}, ...]
Json run_events(const Picture& picture);
// Each order with all that was said, known and believed of it, on one clock; those whose truth and belief part first.
Json order_lives(const Picture& picture);
// Each product's book over time.
Json book_histories(const Picture& picture);

}  // namespace kavo::companion
