// The rule of the scripted faults: every so many occasions, and on the next few.
#pragma once

#include <cstdint>

namespace kavo::model {

struct FaultScript {
    std::uint32_t every = 0;
    std::uint32_t next = 0;
    std::uint64_t occasions = 0;

    // One more occasion: whether the fault happens on it.
    bool happens() { return happens_on(++occasions); }
    // One that happens anyway uses up one of the next all the same.
    bool happens_on(std::uint64_t occasion, bool anyway = false) {
        const bool on_turn = every != 0 && occasion % every == 0;
        const bool asked_for = next > 0;
        if (!on_turn && !anyway && !asked_for) return false;
        if (asked_for) --next;
        return true;
    }
};

}  // namespace kavo::model
