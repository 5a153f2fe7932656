// What a receiver says to the service behind the feed, and what it hears. A connection is good for one request: some
// messages again, or a snapshot of the present state. Bytes alone, no socket.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "client/requests.h"
#include "common/bytes.h"
#include "feed/recovery_layout.h"
#include "session/esesm.h"

namespace kavo::client {

// A login as the service wants it: for the feed's protocol, and from no place in a stream.
Login receiver_login(std::string_view username = "recv");

// Payloads of the two requests.
Bytes retransmission_payload(std::uint64_t first, std::uint64_t last);
Bytes refresh_payload(char type);

// A packet from the service to a receiver:
//   login accepted, engine 1, highest 12         goodbye 'A' retransmission complete
//   7: add 1 #1004 B 300@189.95                  (retransmitted: its number, then the message)
//   as of 12: status 1                           (refresh: the message, and up to which number the state goes)
//   end of 'O'
std::string recovery_text(ByteView packet);

// A message of the feed, kept.
struct NumberedMessage {
    std::uint64_t sequence = 0;
    Bytes message;
};

// The state of the feed behind the message with the number `as_of`, as messages that build it.
struct Snapshot {
    std::uint64_t as_of = 0;
    std::vector<Bytes> messages;
    std::size_t bytes = 0;  // of all packets between the login and the goodbye
};

// One conversation with the service, from the login to the goodbye.
class Recovery {
public:
    // Messages `first` to `last`; the service begins with the oldest that it still has, and ends with the newest.
    static Recovery of_messages(std::uint64_t first, std::uint64_t last);
    // A snapshot; the types are those of RefreshType.
    static Recovery of_state(char type);

    // All that is to be sent on a new connection.
    const Bytes& opening() const { return opening_; }
    void receive(ByteView bytes);
    // The connection has ended.
    void disconnected();

    // True when there is nothing more to wait for: the reply is complete, or there is a problem.
    bool over() const { return complete_ || !problem_.empty(); }
    // Why the reply will never be complete; empty for none.
    const std::string& problem() const { return problem_; }

    std::vector<NumberedMessage> messages;
    Snapshot snapshot;

private:
    Recovery(esesm::PacketType type, ByteView request);
    void take(ByteView packet);
    void take_refresh(ByteView packet);
    void take_goodbye(ByteView packet);

    esesm::PacketType request_;
    char refresh_type_ = 0;
    Bytes opening_;
    esesm::ReceiveBuffer received_;
    std::size_t packets_ = 0;  // of the reply
    bool logged_in_ = false;
    bool refresh_ended_ = false;
    bool complete_ = false;
    std::string problem_;
};

}  // namespace kavo::client
