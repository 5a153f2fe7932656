// Fair turns. Everyone who has something to do gets one turn in a round; a pass has a budget for all turns together,
// and where it is spent the next pass goes on with the same round, so nobody waits for a place further in front.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "common/clock.h"

namespace kavo {

class Round {
public:
    //   budget_ns  of one pass
    Round(const Clock& clock, std::uint64_t budget_ns) : clock_(clock), budget_ns_(budget_ns) {}

    // A pass begins, in which so many want a turn.
    void begin(std::size_t claimants) {
        pass_end_ns_ = clock_.steady_ns() + budget_ns_;
        turn_ns_ = budget_ns_ / std::max<std::size_t>(claimants, 1);
    }
    // Whoever has had a turn in this round has its number as `turn`; everyone begins with 0.
    bool owes_turn(std::uint32_t turn) const { return turn != number_; }
    // True when nobody else gets a turn in this pass.
    bool spent() const { return clock_.steady_ns() >= pass_end_ns_; }
    // Hands out a turn, and says when it should end: a share of the budget for each who wants one.
    std::uint64_t give_turn(std::uint32_t& turn) {
        turn = number_;
        return clock_.steady_ns() + turn_ns_;
    }
    // Everyone has had a turn.
    void end() { ++number_; }

private:
    const Clock& clock_;
    std::uint64_t budget_ns_;
    std::uint32_t number_ = 1;
    std::uint64_t turn_ns_ = 0;
    std::uint64_t pass_end_ns_ = 0;
};

}  // namespace kavo
