// The literal venue's start of day and its synthetic market. The order of the draws is part of the behaviour: one seed
// is one market, so each draw below stands in a statement of its own.
#include <cmath>

#include "model/literal_venue.h"

namespace kavo::model {
namespace {

constexpr int seeding_quotes = 40;
constexpr int quotes_in_a_tick = 3;
constexpr std::size_t thin_side_levels = 4;
constexpr std::uint16_t synthetic_flags = 0x0008;

std::int64_t mid_price(double reference) {
    return std::llround(reference * 100.0) * 100;
}

int withdrawal_attempts(std::size_t synthetic_orders) {
    if (synthetic_orders < 61) return 2;
    return synthetic_orders <= 90 ? 3 : 4;
}

// Far from the mid, a quote that has gone below zero included: its price then stands near the top of 32 bits.
bool is_stale(const Order& order, std::int64_t mid) {
    const std::int64_t distance = std::llabs(static_cast<std::int64_t>(order.price) - mid);
    return static_cast<double>(distance) / 100.0 > 12.0;
}

}  // namespace

void LiteralVenue::start_of_day() {
    publish(system_state(wall_ns, session_));
    for (const Product& product : products) publish(series_definition(wall_ns, product));
    for (const Product& product : products) publish(series_open(wall_ns, product));
    for (const Product& product : products) publish(series_status(wall_ns, product));
    for (const Product& product : products) {
        for (int i = 0; i < seeding_quotes; ++i) {
            place_quote(product.product_id, mid_price(product.reference), Direction::random);
        }
    }
}

void LiteralVenue::tick() {
    if (paused) return;
    for (Product& product : products) tick_product(product);
    kept_deviate_.reset();
}

void LiteralVenue::tick_product(Product& product) {
    const double z = draw_normal();
    product.reference = product.reference * (1.0 + z * 0.0001 * step_bps);
    const std::int64_t mid = mid_price(product.reference);

    const int attempts = withdrawal_attempts(synthetic_orders(product).size());
    for (int i = 0; i < attempts; ++i) try_withdrawal(product, mid);
    for (int i = 0; i < quotes_in_a_tick; ++i) place_quote(product.product_id, mid, Direction::random);
    if (product.bids.size() < thin_side_levels) place_quote(product.product_id, mid, Direction::buy);
    if (product.asks.size() < thin_side_levels) place_quote(product.product_id, mid, Direction::sell);
    if (touch_hit > draw_uniform()) hit_touch(product);
}

std::vector<std::uint64_t> LiteralVenue::synthetic_orders(const Product& product) const {
    std::vector<std::uint64_t> ids;
    for (const auto& [id, order] : live_orders) {
        if (order.product_id == product.product_id && order.owner < 0) ids.push_back(id);
    }
    return ids;
}

void LiteralVenue::try_withdrawal(const Product& product, std::int64_t mid) {
    const std::vector<std::uint64_t> ids = synthetic_orders(product);
    if (ids.empty()) return;
    const std::uint64_t id = ids.at(draw_below(ids.size()));
    if (is_stale(live_orders.at(id), mid)) {
        withdraw(id);
        return;
    }
    if (draw_uniform() < 0.5) withdraw(id);
}

// The hit takes no order id, and what it does not fill is dropped without a word.
void LiteralVenue::hit_touch(const Product& product) {
    Order order;
    order.product_id = product.product_id;
    order.buy = draw_uniform() < 0.5;
    order.leaves = static_cast<std::uint32_t>((draw_below(6) + 1) * 100);
    order.order_flags = synthetic_flags;
    match(order, nullptr);
}

void LiteralVenue::place_quote(std::uint32_t product_id, std::int64_t mid, Direction direction) {
    Order quote;
    quote.product_id = product_id;
    quote.buy = direction == Direction::random ? draw_uniform() < 0.5 : direction == Direction::buy;
    const auto k = static_cast<std::int64_t>(draw_below(10));
    const std::int64_t price = quote.buy ? (mid - 50 - 100 * k) / 100 * 100 : (mid + 100 * k + 50) / 100 * 100;
    quote.price = static_cast<std::uint32_t>(price);
    quote.leaves = static_cast<std::uint32_t>((generator_() >> 61) + 1) * 100;
    quote.id = next_order_id++;
    quote.mpid = "SYNT";
    quote.order_flags = synthetic_flags;
    if (reaches_touch(quote)) match(quote, nullptr);
    if (quote.leaves != 0) add_to_book(quote);
}

// A draw so high that it rounds up to one becomes the largest number below one.
double LiteralVenue::draw_uniform() {
    const double value = static_cast<double>(generator_()) * 5.421010862427522e-20;
    return value >= 1.0 ? std::nextafter(1.0, 0.0) : value;
}

// The high half of draw times limit; a draw whose low half falls into the uneven rest is thrown away.
std::uint64_t LiteralVenue::draw_below(std::uint64_t limit) {
    __extension__ using Wide = unsigned __int128;
    const auto uneven_rest = static_cast<std::uint64_t>((static_cast<Wide>(1) << 64) % limit);
    while (true) {
        const Wide product = static_cast<Wide>(generator_()) * limit;
        if (static_cast<std::uint64_t>(product) >= uneven_rest) return static_cast<std::uint64_t>(product >> 64);
    }
}

// A pair of deviates is made at a time: the second point's is returned first, the first point's is kept for the next
// call.
double LiteralVenue::draw_normal() {
    if (kept_deviate_) {
        const double deviate = *kept_deviate_;
        kept_deviate_.reset();
        return deviate;
    }
    while (true) {
        const double x = 2.0 * draw_uniform() - 1.0;
        const double y = 2.0 * draw_uniform() - 1.0;
        const double s = x * x + y * y;
        if (s > 1.0 || s == 0.0) continue;
        const double factor = std::sqrt(-2.0 * std::log(s) / s);
        kept_deviate_ = x * factor;
        return y * factor;
    }
}

}  // namespace kavo::model
