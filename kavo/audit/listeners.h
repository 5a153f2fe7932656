// Who listens to the feed, as far as it shows: users of the recovery service, and whoever left beliefs of books. A
// receiver cannot be seen listening, so each is known for as long only as something speaks of it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "kavo/audit/beliefs.h"
#include "kavo/audit/gaps.h"
#include "kavo/audit/recovery_attempts.h"

namespace kavo::companion {

// From one beginning to the next. A receiver that takes a refresh, or asks for everything from number 1, may be another
// process under the same name, so nothing of before is held against it.
struct ListenersLife {
    std::vector<const RecoveryAttempt*> attempts;  // at least one; the first is the beginning
    std::uint64_t begun_ns = 0;
    std::uint64_t ends_ns = 0;  // the next beginning, or the end of all time
    NumberRanges got;           // what it was given by recovery, or need not be given any more
};

// A word of a listener about a book.
struct Sighting {
    std::uint64_t sequence = 0;  // the last number it took itself to know; 0 when it did not say
    bool stale = false;          // and took itself not to know what is behind it
    std::uint64_t told_ns = 0;   // 0 when the line has no time
    std::uint64_t ns = 0;        // not before
    std::size_t line = 0;
    unsigned life = 0;
};

struct Listener {
    std::string user;
    std::vector<ListenersLife> lives;  // none for one that never asked the service for anything
    std::vector<Sighting> sightings;   // in the order of the log
};

std::vector<Listener> listeners_of(const std::vector<RecoveryAttempt>& attempts, const Beliefs& beliefs,
                                   const FeedPicture& feed);

}  // namespace kavo::companion
