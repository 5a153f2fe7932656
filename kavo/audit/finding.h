// What an audit finds: which rule does not hold, what was expected, what there was instead, and where to look.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "kavo/basics/status.h"
#include "kavo/journal/journal.h"

namespace kavo::companion {

// One rule. Its name stays: scripts and lists of known findings go by it.
struct Rule {
    std::string_view name;      // "login.next-number"
    std::string_view sentence;  // what a right client does, or a right bench
    std::string_view page;      // docs/protocol_esesm.md#streams-and-replay-on-order-entry
};

enum class Grade {
    remark,        // right in the end, though not as well as it could be; changes no verdict
    finding,       // the client is wrong
    inconclusive,  // cannot be said; `because` tells whose fault that is
    bench,         // the venue contradicts itself, which acquits the client
};

// Where in the run. What is not known is 0 or empty.
struct Where {
    Moment moment = {};
    std::string user = {};
    std::string order = {};           // client order id
    std::uint64_t feed_number = 0;    // of a message of the feed
    std::uint64_t stream_number = 0;  // of a message of the user's stream
};

struct Finding {
    const Rule* rule = nullptr;
    Grade grade = Grade::finding;
    std::string expected = {};
    std::string got = {};     // every event that tells, and "nothing" said as such
    std::string truth = {};   // of the venue, where there is one
    std::string belief = {};  // of the client, where it told
    std::string because = {};
    Where where = {};
};

// How far each wait of the client was from its limit: a right client on a right machine is never near it.
struct Slack {
    const Rule* rule = nullptr;
    double least_ms = 0;  // left before the limit, at worst
    double limit_ms = 0;
};

struct Verdict {
    std::vector<Finding> findings;  // in the order of the run
    std::vector<Slack> slack;
    // What the run was, for the screen and for whoever compares two runs.
    struct Counts {
        std::uint64_t feed_messages = 0, datagrams = 0, book_lines = 0, order_lines = 0;
        std::uint64_t book_lines_not_compared = 0;  // what they would be compared with is not in the recording
        std::uint64_t users = 0, logins = 0, requests = 0, responses = 0, recoveries = 0;
        std::uint64_t gaps_planned = 0, gaps_kernel = 0, gaps_relay = 0, gaps_unrecovered = 0;
        std::uint64_t beliefs = 0;
    } counts;

    // The bench before all, then findings, then what is inconclusive.
    Status status() const;
};

}  // namespace kavo::companion
