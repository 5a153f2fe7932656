// The numbered stream of each user as the venue sent it, over all its connections, held against its own rules.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "kavo/audit/bench_log.h"
#include "kavo/audit/bench_rules.h"

namespace kavo::companion {

struct SentMessage {
    ByteView message;
    Moment at;
    std::size_t conversation = 0;
};

struct SentStream {
    std::map<std::uint64_t, SentMessage> messages;  // by number, as first sent
    // Up to here everything is known; behind it, messages may have been numbered that nobody was sent.
    std::uint64_t known_up_to() const;
};

// What a user asked the venue for.
struct UserRequest {
    std::string user;
    ByteView message;
    Moment at;
};

struct BenchStreams {
    std::map<std::string, SentStream> users;
    std::vector<UserRequest> requests;  // all that reached the venue, in the order of the recording
    // Somebody logged in under a second name on one connection, and took its orders along.
    bool orders_moved = false;
};

BenchStreams audit_streams(const Journal& journal, const BenchLog& log, Verdict& verdict, BenchFindings& findings);

}  // namespace kavo::companion
