// Where a client stands in its user's stream, as far as the wire can tell: what it was given, what it must have read
// of it, and what it may ask for next.
#pragma once

#include <cstdint>
#include <deque>
#include <set>

#include "kavo/audit/client_side.h"

namespace kavo::companion {

class StreamPosition {
public:
    // An accepted login: from here on everything behind the number that it asked for is expected.
    void let_in(std::uint64_t asked, std::uint64_t highest);
    // A message was given. True when one before it is missing.
    bool given(const ClientEvent& event);
    // The stream may be another one from now on.
    void forget();

    // False before a first login has been accepted, and after forget(): then any number may be asked for.
    bool known() const { return known_; }
    // The lowest number that has not been given: what a client expects that keeps messages from behind a hole.
    std::uint64_t next() const { return next_; }
    // Behind the highest number given.
    std::uint64_t behind_all() const { return highest_ + 1 > next_ ? highest_ + 1 : next_; }
    // What a client has at least come to expect that takes messages in their order alone, and reads no faster than it
    // must. Of a connection that is still open, or was reset, the last second may never have been read. One that ended
    // in good order was read to its end: whoever closes with something unread resets it.
    std::uint64_t least_next(std::uint64_t now_ns);
    // The connection is gone, and with it what was not read in time.
    void closed(const Conversation& conversation, std::uint64_t at_ns);

private:
    struct Step {
        std::uint64_t sure_ns = 0;  // by then it has been read, if the connection stood for so long
        std::uint64_t next = 0;
        const Conversation* conversation = nullptr;
    };
    void skip_to(std::uint64_t number);

    bool known_ = false;
    std::uint64_t next_ = 0;
    std::uint64_t highest_ = 0;
    std::uint64_t in_order_ = 0;     // what is expected by whoever takes messages in their order alone
    std::uint64_t least_ = 0;        // surely expected
    std::uint64_t replay_end_ = 0;   // of a replay of which nothing has come yet; 0 for none
    std::set<std::uint64_t> early_;  // given, from behind a hole
    std::deque<Step> unsure_;        // given, and perhaps not read
    std::set<const Conversation*> closed_;
};

}  // namespace kavo::companion
