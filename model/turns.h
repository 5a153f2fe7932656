// Turns as they should be handed out: one for everybody in a round, which the next pass goes on with where the time of
// this one is up.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace kavo::model {

class Turns {
public:
    explicit Turns(std::uint64_t budget_ms) : budget_ns_(budget_ms * ns_in_a_ms) {}

    void begin(std::uint64_t now_ms, std::size_t claimants) {
        pass_end_ns_ = now_ms * ns_in_a_ms + budget_ns_;
        share_ns_ = budget_ns_ / std::max<std::size_t>(claimants, 1);
    }
    bool owes(std::uint64_t turn) const { return turn < round_; }
    bool time_is_up(std::uint64_t now_ms) const { return now_ms * ns_in_a_ms >= pass_end_ns_; }
    // The end of a turn that begins now.
    std::uint64_t give(std::uint64_t& turn, std::uint64_t now_ms) {
        turn = round_;
        return now_ms * ns_in_a_ms + share_ns_;
    }
    void end_round() { ++round_; }

    static constexpr std::uint64_t ns_in_a_ms = 1'000'000;

private:
    std::uint64_t budget_ns_;
    std::uint64_t round_ = 1;
    std::uint64_t share_ns_ = 0;
    std::uint64_t pass_end_ns_ = 0;
};

}  // namespace kavo::model
