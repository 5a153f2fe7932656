#include "engine/synthetic_market.h"

#include <cmath>

namespace kavo {

namespace {

constexpr std::uint64_t quote_depth_cents = 10;
constexpr std::size_t fewest_levels = 4;
constexpr double stale_distance_cents = 12.0;

// The middle of the market, a whole number of cents in ten-thousandths. Absurd references wrap instead of overflowing.
std::int64_t mid_of(const Product& product) {
    const auto cents = static_cast<std::uint64_t>(std::llround(product.reference * 100.0));
    return static_cast<std::int64_t>(cents * price_cent);
}

// A buy rests one to ten cents below the middle, a sell zero to nine above it: lopsided on purpose, so that the
// market's own spread is never below a cent.
Price quote_price(std::int64_t mid, bool buy, std::uint64_t cents) {
    const auto middle = static_cast<std::uint64_t>(mid);
    constexpr Price half_cent = price_cent / 2;
    const std::uint64_t raw = buy ? middle - half_cent - price_cent * cents : middle + price_cent * cents + half_cent;
    constexpr std::int64_t cent = price_cent;
    return static_cast<Price>(static_cast<std::int64_t>(raw) / cent * cent);
}

}  // namespace

void SyntheticMarket::move_reference(Product& product, NormalDraws& normal) const {
    product.reference = product.reference * (1 + normal.next() * 0.0001 * step_bps_);
}

// The fuller the book, the more is withdrawn.
unsigned SyntheticMarket::withdrawals(const Product& product) {
    if (product.synthetic.size() < 61) return 2;
    return product.synthetic.size() < 91 ? 3 : 4;
}

Order* SyntheticMarket::withdrawal(const Product& product) {
    if (product.synthetic.empty()) return nullptr;
    Order* const order = product.synthetic[draw_below(generator_, product.synthetic.size())];
    const double distance = std::abs(static_cast<double>(order->price) - static_cast<double>(mid_of(product)));
    return distance / price_cent > stale_distance_cents || draw_uniform(generator_) < 0.5 ? order : nullptr;
}

SyntheticMarket::Intent SyntheticMarket::quote(const Product& product, QuoteSide wanted) {
    const bool buy = wanted == QuoteSide::random ? draw_uniform(generator_) < 0.5 : wanted == QuoteSide::buy;
    const Price price = quote_price(mid_of(product), buy, draw_below(generator_, quote_depth_cents));
    const auto quantity = static_cast<std::uint32_t>(draw_three_bits(generator_) + 1) * 100;
    return {buy, price, quantity};
}

bool SyntheticMarket::is_thin(const BookSide& side) {
    return side.levels().size() < fewest_levels;
}

std::optional<SyntheticMarket::Intent> SyntheticMarket::hit() {
    if (!(touch_hit_ > draw_uniform(generator_))) return std::nullopt;
    const bool buy = draw_uniform(generator_) < 0.5;
    return Intent{buy, 0, static_cast<std::uint32_t>(draw_below(generator_, 6) + 1) * 100};
}

}  // namespace kavo
