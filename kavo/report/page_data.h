// The parts of a run that the page draws, as JSON. Times are milliseconds since the start of the run. All of it is
// bounded, so that the page of a long run opens as quickly as that of a short one.
#pragma once

#include <cmath>
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

    // To the microsecond: no page shows more.
    double ms(std::uint64_t ns) const {
        return std::round(static_cast<double>(static_cast<std::int64_t>(ns - journal.facts.started_ns)) / 1e3) / 1e3;
    }
};

// What the page does not show, in sentences that say where it is.
using LeftOut = std::vector<std::string>;

// The text made printable, and no longer than a line or three.
std::string short_text(std::string_view text);
std::string short_sentence(std::string_view sentence);  // its texts are printable already

// [[time, highest number of the feed], ...]: no more points than anybody can tell apart.
Json feed_points(const Picture& picture);
// [[from, to, "lost" | "late" | "unexplained", text, how many], ...]: when there are too many to be told apart, those
// of one kind that lie close together are one.
Json gap_spans(const Picture& picture);
// {lane: [[time, [text, ...], how many], ...]}, lanes being faults, sessions, marks, beliefs, findings. What lies too
// close together to be told apart is one, with the texts of the first few.
Json run_events(const Picture& picture);
// Each order with all that was said, known and believed of it, on one clock; those with findings first:
//   {user, id, side, symbol, state, findings: [rule], diverges, cut: events not shown,
//    events: [[time, "client" | "venue" | "truth" | "belief", text, packet or 0, executed or null, rule or ""]]}
// The rule is that of a finding which speaks of this very event; `diverges` when one of them is about a belief.
Json order_lives(const Picture& picture, LeftOut& left_out);
// Each product's book over time:
//   {symbol, columns: [[time, number of the feed, bids, asks]], trades: [[time, price, quantity]], beliefs: [time],
//    findings: [[time, text]]}
// A side is [price, quantity, step, quantity, step, quantity, ...], best first, where a step is the difference to the
// price before. Prices are ten-thousandths.
Json book_histories(const Picture& picture, LeftOut& left_out);
// When so many beliefs about books are wrong that an audit tells the first and the last alone: the time of the last of
// the first. Behind it nobody can tell from the findings which are wrong. Null when all are told.
Json book_findings_told_until(const Picture& picture);

}  // namespace kavo::companion
