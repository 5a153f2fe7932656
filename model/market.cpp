// The start of day and the synthetic market. The order of the draws is part of the behaviour: one seed is one market,
// so each draw below stands in a statement of its own.
#include <cmath>
#include <cstdlib>

#include "model/venue.h"

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

void Venue::start_of_day() {
    now_ns_ = world_.wall_ns();
    publish(system_state(world_.stamp_ns(), settings_.session));
    for (const Product& product : books.products) publish(series_definition(world_.stamp_ns(), product));
    for (const Product& product : books.products) publish(series_open(world_.stamp_ns(), product));
    for (const Product& product : books.products) publish(series_status(world_.stamp_ns(), product));
    for (const Product& product : books.products) {
        for (int i = 0; i < seeding_quotes; ++i) {
            place_quote(product.product_id, mid_price(product.reference), Direction::random);
        }
    }
}

void Venue::tick() {
    if (paused) return;
    now_ns_ = world_.wall_ns();
    for (Product& product : books.products) tick(product);
    draws_.forget_kept_deviate();
}

void Venue::tick(Product& product) {
    const double z = draws_.normal();
    product.reference = product.reference * (1.0 + z * 0.0001 * settings_.step_bps);
    const std::int64_t mid = mid_price(product.reference);

    const std::uint32_t id = product.product_id;
    const int attempts = withdrawal_attempts(synthetic_orders(id).size());
    for (int i = 0; i < attempts; ++i) try_withdrawal(id, mid);
    for (int i = 0; i < quotes_in_a_tick; ++i) place_quote(id, mid, Direction::random);
    if (product.bids.size() < thin_side_levels) place_quote(id, mid, Direction::buy);
    if (product.asks.size() < thin_side_levels) place_quote(id, mid, Direction::sell);
    if (settings_.touch_hit > draws_.uniform()) hit_touch(id);
}

std::vector<std::uint64_t> Venue::synthetic_orders(std::uint32_t product_id) const {
    std::vector<std::uint64_t> ids;
    for (const auto& [id, order] : books.resting) {
        if (order.product_id == product_id && order.owner < 0) ids.push_back(id);
    }
    return ids;
}

void Venue::try_withdrawal(std::uint32_t product_id, std::int64_t mid) {
    const std::vector<std::uint64_t> ids = synthetic_orders(product_id);
    if (ids.empty()) return;
    const std::uint64_t id = ids.at(draws_.below(ids.size()));
    if (is_stale(books.resting.at(id), mid) || draws_.uniform() < 0.5) withdraw(id);
}

void Venue::place_quote(std::uint32_t product_id, std::int64_t mid, Direction direction) {
    Order quote;
    quote.product_id = product_id;
    quote.buy = direction == Direction::random ? draws_.uniform() < 0.5 : direction == Direction::buy;
    const auto k = static_cast<std::int64_t>(draws_.below(10));
    const std::int64_t price = quote.buy ? (mid - 50 - 100 * k) / 100 * 100 : (mid + 100 * k + 50) / 100 * 100;
    quote.price = static_cast<std::uint32_t>(price);
    quote.leaves = static_cast<std::uint32_t>(draws_.three_bits() + 1) * 100;
    quote.id = next_order_id_++;
    quote.mpid = "SYNT";
    quote.order_flags = synthetic_flags;
    Answers nobody_to_tell;
    if (reaches_touch(quote)) match(quote, nobody_to_tell);
    if (quote.leaves != 0) come_to_rest(quote);
}

// The hit takes no order id, and what it does not fill is dropped without a word.
void Venue::hit_touch(std::uint32_t product_id) {
    Order order;
    order.product_id = product_id;
    order.buy = draws_.uniform() < 0.5;
    order.leaves = static_cast<std::uint32_t>((draws_.below(6) + 1) * 100);
    Answers nobody_to_tell;
    match(order, nobody_to_tell);
}

}  // namespace kavo::model
