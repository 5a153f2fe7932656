// Where the client connects, and what it is to do there.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "faults.h"

namespace trading {

struct Address {
    std::string host;
    std::uint16_t port = 0;
};

struct Settings {
    Address orders{"127.0.0.1", 28700};
    Address feed{"233.54.28.111", 25377};
    Address recovery{"127.0.0.1", 25379};
    std::string interface_address = "127.0.0.1";  // on which the group is joined
    std::string beliefs;                          // path of a file; empty for none
    std::vector<std::string> symbols;             // that are traded and told; empty for all

    std::string user = "c01";
    std::uint64_t trading_ms = 3'000;
    unsigned orders_at_most = 60;
    bool refresh_only = false;  // gaps of the feed are filled with snapshots, and never with single messages
    Fault fault = Fault::none;

    bool trades(const std::string& symbol) const;
};

// From the environment and the command line; nothing when that asked for a list, which has been printed then. Throws
// std::invalid_argument for what cannot be meant.
std::optional<Settings> read_settings(int count, char** words);

}  // namespace trading
