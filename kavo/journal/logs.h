// The two logs of a run, read back line by line: what the venue said, and what kavo noted.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "kavo/journal/journal.h"

namespace kavo::companion {

// venue.log: "SECONDS.NANOSECONDS text" each. A text that held a line end was said in two lines.
//   unread  how many lines are none of these
std::vector<VenueLine> read_venue_log(std::string_view content, std::size_t& unread);

// kavo.jsonl, see run_log.h.
std::vector<Note> read_notes(std::string_view content, std::size_t& unread);

}  // namespace kavo::companion
