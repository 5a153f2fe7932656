// A receiver on the retransmission service: a connection of its own for every request.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "client/requests.h"
#include "client/wire_client.h"
#include "common/bytes.h"

namespace kavo::client {

// A login as the service wants it: for the feed's protocol, and from no place in a stream.
Login receiver_login(std::string_view username = "recv");

// A packet from the service to a receiver:
//   login accepted, engine 1, highest 12         goodbye 'A' retransmission complete
//   7: add 1 #1004 B 300@189.95                  (retransmitted: its number, then the message)
//   as of 12: status 1                           (refresh: the message, and up to which number the state goes)
//   end of 'O'
std::string recovery_text(ByteView packet);

class RecoveryClient {
public:
    // Connects to 127.0.0.1; throws when nobody listens. Sends nothing by itself.
    explicit RecoveryClient(std::uint16_t port);

    void log_in(const Login& login = receiver_login()) { wire.log_in(login); }
    void request(std::uint64_t first, std::uint64_t last);
    void request_refresh(char type);

    // The next packet as a line of text: "closed" and "silence" for none.
    std::string next();
    // The next `count` lines, joined by " | ".
    std::string next(std::size_t count);
    // All lines up to the end of the connection, joined by " | ".
    std::string rest();

    WireClient wire;
};

Bytes retransmission_payload(std::uint64_t first, std::uint64_t last);

// Whole conversations, from the connection to the goodbye. Each throws when it ends in any other way.
struct NumberedMessage {
    std::uint64_t sequence = 0;
    Bytes message;
};
std::vector<NumberedMessage> fetch_range(std::uint64_t first, std::uint64_t last, std::uint16_t port);

struct Snapshot {
    std::uint64_t as_of = 0;
    std::vector<Bytes> messages;
    std::size_t bytes = 0;  // of all packets between the login and the goodbye
};
Snapshot fetch_snapshot(char type, std::uint16_t port);

}  // namespace kavo::client
