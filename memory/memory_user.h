// A user of a venue in memory: a session, and the connection under it. After every break it comes back and asks for
// what it has missed.
//
//     kavo::MemoryUser alice(venue, kavo::client::login("alice", 1));
//     alice.session.send(kavo::client::buy("b1").shares(100).at("189.95"));
//     for (int i = 0; i < 200; ++i) {
//         alice.exchange();
//         while (const auto arrival = alice.session.next()) ...;
//         venue.advance(5ms);
//     }
#pragma once

#include <optional>

#include "client/session.h"
#include "memory/memory_venue.h"

namespace kavo {

class MemoryUser {
public:
    MemoryUser(MemoryVenue& venue, client::Login login) : session(std::move(login)), venue_(venue) {}

    client::Session session;

    // Hands over what the session says, and gives it what the venue has said. Connects and logs in where there is no
    // connection, and ends one that is of no more use. To be called between any two steps of the venue.
    void exchange();
    // Goes away without a word, as a program does that crashes; the next exchange brings it back.
    void break_off();
    bool connected() const { return connection_.has_value(); }

private:
    void connect();

    MemoryVenue& venue_;
    std::optional<MemoryConnection> connection_;
};

}  // namespace kavo
