// The draws of the synthetic market. One seed is one market, so how each is made of the generator's bits is part of the
// behaviour.
#pragma once

#include <cstdint>
#include <optional>
#include <random>

namespace kavo::model {

class Draws {
public:
    explicit Draws(std::uint64_t seed) : generator_(seed) {}

    double uniform();                          // 0 and more, below 1
    std::uint64_t below(std::uint64_t limit);  // which is not 0
    std::uint64_t three_bits() { return generator_() >> 61; }
    // Deviates are made in pairs, and one of them is kept for the next call, unless it is forgotten.
    double normal();
    void forget_kept_deviate() { kept_deviate_.reset(); }

private:
    std::mt19937_64 generator_;
    std::optional<double> kept_deviate_;
};

}  // namespace kavo::model
