#include "engine/draws.h"

#include <cmath>

namespace kavo {

namespace {

constexpr double two_to_minus_64 = 0x1p-64;
constexpr double largest_below_one = 0x1.fffffffffffffp-1;

}  // namespace

double draw_uniform(Generator& generator) {
    const double uniform = static_cast<double>(generator()) * two_to_minus_64;
    return uniform < 1.0 ? uniform : largest_below_one;  // the topmost draws round up to 1
}

std::uint64_t draw_below(Generator& generator, std::uint64_t bound) {
    __extension__ using Wide = unsigned __int128;
    const std::uint64_t unfair = (0 - bound) % bound;  // 2^64 mod bound
    while (true) {
        const Wide product = static_cast<Wide>(generator()) * bound;
        if (static_cast<std::uint64_t>(product) >= unfair) return static_cast<std::uint64_t>(product >> 64);
    }
}

std::uint64_t draw_three_bits(Generator& generator) {
    return generator() >> 61;
}

double NormalDraws::next() {
    if (kept_) {
        const double deviate = *kept_;
        kept_.reset();
        return deviate;
    }
    double x = 0;
    double y = 0;
    double radius = 0;
    do {
        x = 2.0 * draw_uniform(generator_) - 1.0;
        y = 2.0 * draw_uniform(generator_) - 1.0;
        radius = x * x + y * y;
    } while (radius > 1.0 || radius == 0.0);
    const double factor = std::sqrt(-2.0 * std::log(radius) / radius);
    kept_ = x * factor;
    return y * factor;
}

}  // namespace kavo
