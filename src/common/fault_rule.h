// The rule behind every scripted fault: every N, next K.
#pragma once

#include <cstdint>

namespace kavo {

// Fires on each multiple of `every` (0 is never), on an event that is due anyway, and on each of the `next` events.
// Whatever made it fire uses up one of `next`.
//   count  how many eligible events there were, this one included
inline bool fault_fires(std::uint64_t count, std::uint32_t every, std::uint32_t& next, bool due = false) {
    const bool periodic = every != 0 && count % every == 0;
    if (!periodic && !due && next == 0) return false;
    if (next != 0) --next;
    return true;
}

}  // namespace kavo
