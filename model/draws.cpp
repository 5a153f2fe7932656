#include "model/draws.h"

#include <cmath>

namespace kavo::model {

// A draw so high that it rounds up to one becomes the largest number below one.
double Draws::uniform() {
    const double value = static_cast<double>(generator_()) * 5.421010862427522e-20;
    return value >= 1.0 ? std::nextafter(1.0, 0.0) : value;
}

// The high half of draw times limit; a draw whose low half falls into the uneven rest is thrown away.
std::uint64_t Draws::below(std::uint64_t limit) {
    __extension__ using Wide = unsigned __int128;
    const auto uneven_rest = static_cast<std::uint64_t>((static_cast<Wide>(1) << 64) % limit);
    while (true) {
        const Wide product = static_cast<Wide>(generator_()) * limit;
        if (static_cast<std::uint64_t>(product) >= uneven_rest) return static_cast<std::uint64_t>(product >> 64);
    }
}

// The second point's deviate is returned first, the first point's is kept.
double Draws::normal() {
    if (kept_deviate_) {
        const double deviate = *kept_deviate_;
        kept_deviate_.reset();
        return deviate;
    }
    while (true) {
        const double x = 2.0 * uniform() - 1.0;
        const double y = 2.0 * uniform() - 1.0;
        const double s = x * x + y * y;
        if (s > 1.0 || s == 0.0) continue;
        const double factor = std::sqrt(-2.0 * std::log(s) / s);
        kept_deviate_ = x * factor;
        return y * factor;
    }
}

}  // namespace kavo::model
