// Stands in front of one TCP service of the venue: accepts clients, connects to the venue for each, passes on what
// either says, records it, and does to one user's connections what it is told.
//
// A user is known from the first login that a connection's client sends. Faults wait for their user, and stay for its
// later connections until they are taken back; `swallow` and `half` are used up.
#pragma once

#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <string>
#include <vector>

#include "kavo/basics/loop.h"
#include "kavo/basics/run_log.h"
#include "kavo/wire/recording.h"
#include "kavo/wire/relay_connection.h"
#include "kavo/wire/relay_faults.h"

namespace kavo::companion {

class Relay {
public:
    //   listening  a bound and listening socket of 127.0.0.1, which the relay closes at its end
    //   behind     port of the venue on 127.0.0.1
    Relay(Loop& loop, Recording& recording, RunLog& log, int listening, std::uint16_t behind);
    ~Relay();
    Relay(const Relay&) = delete;
    Relay& operator=(const Relay&) = delete;

    // What is done to a user from now on; a reference to be changed, followed by apply().
    RelayFaults& faults(const std::string& user);
    void apply(const std::string& user);
    // Ends every connection that the user has now; how many there were.
    std::size_t break_connections(const std::string& user, Breaking how);

    std::size_t open_connections() const;
    // Called with each whole packet when it has been passed on, for scripts that wait for one. `user` may be empty. All
    // of the above may be called from within it; what a fault is to do to this packet is too late.
    std::function<void(const std::string& user, bool by_client, ByteView packet)> on_packet;

private:
    void accept_clients();
    void accept_again_later();
    void clear_away();
    std::vector<RelayConnection*> connections_of(const std::string& user);

    Loop& loop_;
    RelayParts parts_;
    int listening_;
    std::uint16_t port_ = 0;
    std::uint16_t behind_;
    std::map<std::string, RelayFaults> faults_;  // of every user that was named, or has logged in
    std::list<RelayConnection> connections_;
    Loop::Timer accepting_ = 0;
    Loop::Timer clearing_ = 0;
};

}  // namespace kavo::companion
