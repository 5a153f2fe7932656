// What the clients asked the recovery service for, and what they were given.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "kavo/basics/number_ranges.h"
#include "kavo/journal/journal.h"

namespace kavo::companion {

// One conversation with the service, of one user.
struct RecoveryAttempt {
    enum class Asks { nothing, messages, state };

    std::string user;
    Asks asks = Asks::nothing;
    SequenceRange wanted;    // of messages, as asked for: the end may be beyond all numbers
    char refresh_type = 0;   // of a state
    std::uint64_t told = 0;  // the last number used, as the login was answered
    Moment opened;
    Moment asked;         // the first byte of the request; of an attempt that asks for nothing, its beginning
    Moment ended;         // the goodbye, or else the end of the connection
    NumberRanges served;  // messages that the client was given
    std::uint64_t as_of = 0;
    bool complete = false;  // the client was told that this was all
    EndedBy ended_by = EndedBy::nobody;

    bool asks_for_state() const { return asks == Asks::state && refresh_type == 'O'; }
    // Of a receiver that knows nothing yet, or wants to know nothing: the state, or everything from the beginning.
    bool is_beginning() const { return asks_for_state() || (asks == Asks::messages && wanted.first <= 1); }
    bool brought_state() const { return asks_for_state() && complete; }
    // The last number that this attempt could have been given, as far as the service told.
    std::uint64_t last_possible() const;
};

// In the order in which they asked. Those of the house are left out; a connection that was broken before it could say
// whose it was belongs to the only user there is, or to nobody.
std::vector<RecoveryAttempt> recovery_attempts(const Journal& journal);

// "asked for 17 to 19", "asked for everything from 17 on", "asked for a refresh".
std::string text_of(const RecoveryAttempt& attempt);

}  // namespace kavo::companion
