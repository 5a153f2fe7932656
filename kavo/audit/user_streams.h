// What each user was told on order entry, and what it had sent: the ground of whatever it may rightly believe.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "common/bytes.h"
#include "kavo/journal/journal.h"

namespace kavo::companion {

// A message of a user's stream, when the client was first given it.
struct ToldMessage {
    std::uint64_t sequence = 0;
    Moment given;
    // By then the client has read it, however slow it is; 0 when its connection ended before.
    std::uint64_t read_ns = 0;
    ByteView message;
};

struct UserStream {
    std::string user;
    std::vector<ToldMessage> told;               // each number once, ascending
    bool began_again = false;                    // one number stands for two messages: another process of the venue
    std::map<std::string, unsigned> sent;        // how often a new order or a replace was sent under an id
    std::vector<std::uint64_t> from_nothing_ns;  // later logins that asked for everything again
    std::uint64_t closed_ns = 0;                 // the end of its last connection; 0 while one is open
};

// By name. The bench's own user is left out.
std::vector<UserStream> user_streams(const Journal& journal);

}  // namespace kavo::companion
