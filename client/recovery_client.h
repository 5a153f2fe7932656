// A receiver on the retransmission service, over a TCP connection of its own for every request.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "client/recovery.h"
#include "client/wire_client.h"

namespace kavo::client {

// One that says what it is told, step by step, and shows what it hears.
class RecoveryClient {
public:
    // Connects to 127.0.0.1; throws when nobody listens. Sends nothing by itself.
    explicit RecoveryClient(std::uint16_t port);

    void log_in(const Login& login = receiver_login()) { wire.log_in(login); }
    void request(std::uint64_t first, std::uint64_t last);
    void request_refresh(char type);

    // The next packet as a line of text, see recovery_text: "closed" and "silence" for none.
    std::string next();
    // The next `count` lines, joined by " | ".
    std::string next(std::size_t count);
    // All lines up to the end of the connection, joined by " | ".
    std::string rest();

    WireClient wire;
};

// Whole conversations, from the connection to the goodbye. Each throws when it ends in any other way.
std::vector<NumberedMessage> fetch_range(std::uint64_t first, std::uint64_t last, std::uint16_t port);
Snapshot fetch_snapshot(char type, std::uint16_t port);

}  // namespace kavo::client
