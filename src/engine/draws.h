// The random draws of the synthetic market, the same on every compiler and library: everything is computed here from
// 64-bit draws of the Mersenne Twister MT19937-64 (Matsumoto and Nishimura).
#pragma once

#include <cstdint>
#include <optional>
#include <random>

namespace kavo {

using Generator = std::mt19937_64;  // the standard fixes every bit of it

// Uniform in [0, 1).
double draw_uniform(Generator& generator);

// Uniform in [0, bound), bound > 0, without bias: high half of a 128-bit product (Lemire, "Fast random integer
// generation in an interval").
std::uint64_t draw_below(Generator& generator, std::uint64_t bound);

// Uniform in [0, 8): the top bits of one draw.
std::uint64_t draw_three_bits(Generator& generator);

// Standard normal deviates by the polar method (Marsaglia). Each accepted pair gives two; the second is kept for the
// next request.
class NormalDraws {
public:
    explicit NormalDraws(Generator& generator) : generator_(generator) {}
    double next();

private:
    Generator& generator_;
    std::optional<double> kept_;
};

}  // namespace kavo
