// A moving, two-sided market around each product's reference price, so that a client is never alone. The order of the
// draws is part of the contract: one seed gives one market.
#include <cmath>

#include "engine/engine.h"

namespace kavo {

namespace {

constexpr std::uint64_t quote_depth_cents = 10;
constexpr std::size_t fewest_levels = 4;
constexpr double stale_distance_cents = 12.0;
constexpr std::uint16_t synthetic_flags = 0x0008;

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

// The fuller the book, the more is withdrawn.
unsigned withdrawals_for(std::size_t synthetic_orders) {
    if (synthetic_orders < 61) return 2;
    return synthetic_orders < 91 ? 3 : 4;
}

}  // namespace

void Engine::start_day() {
    publish_definitions();
    const std::uint64_t now_ns = clock_.wall_ns();
    for (Product& product : products_) {
        for (unsigned i = 0; i < seeding_quotes; ++i) place_quote(product, mid_of(product), QuoteSide::random, now_ns);
    }
    feed_.flush();
}

void Engine::tick() {
    if (paused) return;
    const std::uint64_t now_ns = clock_.wall_ns();
    NormalDraws normal(generator_);  // what it keeps reaches the next product, but not the next tick
    for (Product& product : products_) tick(product, normal, now_ns);
    feed_.flush();
}

void Engine::tick(Product& product, NormalDraws& normal, std::uint64_t now_ns) {
    product.reference = product.reference * (1 + normal.next() * 0.0001 * settings_.step_bps);
    const std::int64_t mid = mid_of(product);
    for (unsigned left = withdrawals_for(product.synthetic.size()); left > 0; --left) withdraw_one(product, mid);
    for (int i = 0; i < 3; ++i) place_quote(product, mid, QuoteSide::random, now_ns);
    if (product.bids.levels().size() < fewest_levels) place_quote(product, mid, QuoteSide::buy, now_ns);
    if (product.asks.levels().size() < fewest_levels) place_quote(product, mid, QuoteSide::sell, now_ns);
    if (settings_.touch_hit > draw_uniform(generator_)) hit_touch(product, now_ns);
}

// Far from the middle a quote always goes, near it half of the time.
void Engine::withdraw_one(Product& product, std::int64_t mid) {
    if (product.synthetic.empty()) return;
    Order& order = *product.synthetic[draw_below(generator_, product.synthetic.size())];
    const double distance_cents = std::abs(static_cast<double>(order.price) - static_cast<double>(mid)) / price_cent;
    if (distance_cents > stale_distance_cents || draw_uniform(generator_) < 0.5) withdraw_resting(order);
}

void Engine::place_quote(Product& product, std::int64_t mid, QuoteSide wanted, std::uint64_t now_ns) {
    const bool buy = wanted == QuoteSide::random ? draw_uniform(generator_) < 0.5 : wanted == QuoteSide::buy;
    const Price price = quote_price(mid, buy, draw_below(generator_, quote_depth_cents));
    Order& quote = orders_.take(next_order_id_++);
    quote.product_id = product.id;
    quote.buy = buy;
    quote.price = price;
    quote.leaves = static_cast<std::uint32_t>(draw_three_bits(generator_) + 1) * 100;
    quote.flags = {synthetic_flags};
    quote.mpid = meo::Mpid("SYNT");

    OutboundMessages nobody_to_tell;
    if (product.side(!buy).crossed_by(price)) match(product, quote, now_ns, nobody_to_tell);
    if (quote.leaves == 0) return end(quote);
    rest(quote);
    publish_added(quote);
    write_book_truth(product);
}

// Takes what is best on one side, and the levels behind it if that is not enough; never rests, and has no number.
void Engine::hit_touch(Product& product, std::uint64_t now_ns) {
    Order order;
    order.product_id = product.id;
    order.flags = {synthetic_flags};
    order.buy = draw_uniform(generator_) < 0.5;
    order.leaves = static_cast<std::uint32_t>(draw_below(generator_, 6) + 1) * 100;
    OutboundMessages nobody_to_tell;
    match(product, order, now_ns, nobody_to_tell);
}

}  // namespace kavo
