// The account of a run: what the venue writes down about every order on one side, what its clients are told on the
// other. Every entry must meet its counterpart, once, and both carry the same nanosecond.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>

#include "common/bytes.h"

namespace kavo::test {

class Ledger {
public:
    // A message of the stream of a user, as it was received in its turn.
    void told(ByteView message);
    // A line of the order truth.
    void written(const std::string& line);

    // Entries that only one side has, by event and side: "fill told", "new written". Nothing when the sides agree.
    std::map<std::string, std::size_t> unmatched() const;
    // Some of these entries, for a test that fails.
    std::string examples() const;

    // How many the clients were told of, by event.
    std::map<std::string, std::uint64_t> counts;

private:
    void count(const std::string& entry, int side);

    std::unordered_map<std::string, int> balance_;  // more often told than written
};

}  // namespace kavo::test
