// Orders by hand: logs in, takes commands one a line, and shows what is sent and what comes back.
#pragma once

#include <cstdint>
#include <string>

namespace kavo::companion {

struct TradeWishes {
    std::uint16_t port = 28700;  // of order entry on 127.0.0.1
    std::string user = "demo";
    std::string mpid = "TEST";
    std::string computer = "desk1";
    std::uint64_t from = 0;    // where the stream begins: 1 for all of it, 0 for its present end
    std::string symbol = "1";  // that an order is for when it names none: a number of the feed, or a name
    bool json = false;
};

// The commands, for the help.
extern const char* const trade_commands;

// Returns after a logout. Throws Problem when nobody listens, when the user is not let in, and when the venue closes
// the connection.
void trade_by_hand(const TradeWishes& wishes);

}  // namespace kavo::companion
