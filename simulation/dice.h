// The draws behind a simulated day. One seed, one day, from every compiler: the generator's bits are fixed by the
// standard, and everything else is computed here. Whoever draws twice does so in two statements, because the order
// within one is the compiler's choice.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <random>
#include <vector>

namespace kavo::simulation {

class Dice {
public:
    explicit Dice(std::uint64_t seed) : random_(seed) {}

    std::uint64_t bits() { return random_(); }
    // Below `bound`, which is not 0. The slight bias of the remainder does not matter here.
    std::uint64_t below(std::uint64_t bound) { return random_() % bound; }
    // Both ends included.
    std::uint64_t between(std::uint64_t least, std::uint64_t most) { return least + below(most - least + 1); }
    bool one_in(std::uint64_t n) { return below(n) == 0; }

    template <typename T>
    T pick(std::initializer_list<T> choices) {
        return *(choices.begin() + below(choices.size()));
    }
    template <typename T>
    const T& pick(const std::vector<T>& choices) {
        return choices[static_cast<std::size_t>(below(choices.size()))];
    }

private:
    std::mt19937_64 random_;
};

}  // namespace kavo::simulation
