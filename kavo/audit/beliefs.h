// client.jsonl: what a client believed, as it came to believe it. The page docs/beliefs.md tells whoever writes it how.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kavo/journal/journal.h"

namespace kavo::companion {

// Where a belief stands. `user` is empty when the line names none.
struct Said {
    std::size_t line = 0;    // from 1
    std::uint64_t t_ns = 0;  // 0 when the line tells no time
    std::string user;
    unsigned life = 0;  // how often this user's client had said that it begins anew
};

struct OrderBelief {
    Said said;
    std::string id;
    std::string state;
    std::optional<std::uint64_t> leaves, executed;
    std::optional<std::uint64_t> sequence;  // the last number of the user's stream that the client had applied
};

struct FillBelief {
    Said said;
    std::string id;
    std::uint64_t quantity = 0;
    std::uint64_t price = 0;  // millionths
    std::optional<std::uint64_t> execution;
};

struct BelievedLevel {
    std::uint64_t price = 0;  // millionths
    std::uint64_t quantity = 0;
};
struct BookBelief {
    Said said;
    std::string symbol;
    std::optional<std::uint64_t> sequence;  // of the feed; nothing when the client does not know it
    // A side that the line leaves out is nothing.
    std::optional<std::vector<BelievedLevel>> bids, asks;
    std::optional<std::uint64_t> depth;  // levels a side, when the client says that it gives no more
    bool stale = false;                  // it knows that it does not know
};

struct Beliefs {
    std::vector<OrderBelief> orders;
    std::vector<FillBelief> fills;
    std::vector<BookBelief> books;
    std::vector<std::string> defects;   // lines that are none, in words
    std::vector<std::string> unknowns;  // events that nobody here knows, in words
    bool tells_beginnings = false;      // a line says that a client begins anew
    std::uint64_t lines = 0;            // that hold a belief
};

// Any bytes at all are read without complaint but in `defects`. Half a line at the end is what a killed client leaves,
// and no defect.
Beliefs read_beliefs(std::string_view text);
// Of the run's folder; nothing when there is no such file.
std::optional<Beliefs> read_beliefs(const RunFolder& folder);

}  // namespace kavo::companion
