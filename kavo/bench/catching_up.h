// What the recording of a feed lacks is asked for before the venue ends: what the bench has dropped, or still holds
// back.
#pragma once

#include <cstdint>
#include <string>

#include "kavo/basics/loop.h"
#include "kavo/basics/number_ranges.h"

namespace kavo::companion {

// Has the recovery service send again every number that was not received, to the last one that it has. Returns when all
// is there, or when the service does not give it: what it took is two seconds at most.
//   user  under whose name it is asked
//   port  of the service on 127.0.0.1, in front of the relay, so that the answer is on the record
void fetch_missing(Loop& loop, const NumberRanges& received, const std::string& user, std::uint16_t port);

// The requests that this takes: what lies between two holes is asked for again when it is little, since each request is
// a connection. The last has no end.
std::vector<SequenceRange> requests_for_missing(const NumberRanges& received);

}  // namespace kavo::companion
