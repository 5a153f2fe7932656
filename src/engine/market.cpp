// The synthetic market's decisions, carried out.
#include "engine/engine.h"

namespace kavo {

namespace {

using QuoteSide = SyntheticMarket::QuoteSide;

constexpr std::uint16_t synthetic_flags = 0x0008;

void take_terms(Order& order, const SyntheticMarket::Intent& intent) {
    order.buy = intent.buy;
    order.price = intent.price;
    order.leaves = intent.quantity;
    order.flags = {synthetic_flags};
    order.mpid = meo::Mpid("SYNT");
}

}  // namespace

void Engine::start_day() {
    books.publish_definitions();
    const std::uint64_t now_ns = clock_.wall_ns();
    for (Product& product : books.products()) {
        for (unsigned i = 0; i < SyntheticMarket::seeding_quotes; ++i) place_quote(product, QuoteSide::random, now_ns);
    }
    books.flush();
    last_tick_ms_ = clock_.steady_ms();
}

// The interval is compared without its sign, deliberately: a negative one is too long to pass.
void Engine::tick_when_due(std::uint64_t now_ms) {
    const auto interval_ms = static_cast<std::uint64_t>(std::int64_t{market.interval_ms});
    if (take_if_due(now_ms, last_tick_ms_, interval_ms)) tick();
}

void Engine::tick() {
    if (market.paused) return;
    const std::uint64_t now_ns = clock_.wall_ns();
    NormalDraws normal = market.begin_tick();
    for (Product& product : books.products()) tick(product, normal, now_ns);
    books.flush();
}

void Engine::tick(Product& product, NormalDraws& normal, std::uint64_t now_ns) {
    market.move_reference(product, normal);
    for (unsigned left = SyntheticMarket::withdrawals(product); left > 0; --left) {
        Order* const quote = market.withdrawal(product);
        if (quote == nullptr) continue;
        books.remove(*quote);
        end(*quote);
    }
    for (unsigned i = 0; i < SyntheticMarket::quotes_a_tick; ++i) place_quote(product, QuoteSide::random, now_ns);
    if (SyntheticMarket::is_thin(product.bids)) place_quote(product, QuoteSide::buy, now_ns);
    if (SyntheticMarket::is_thin(product.asks)) place_quote(product, QuoteSide::sell, now_ns);
    hit_touch(product, now_ns);
}

void Engine::place_quote(Product& product, QuoteSide side, std::uint64_t now_ns) {
    const SyntheticMarket::Intent intent = market.quote(product, side);
    Order& quote = books.create(product.id);
    take_terms(quote, intent);
    OutboundMessages nobody_to_tell;
    if (books.of(quote).side(!quote.buy).crossed_by(quote.price)) match(quote, {now_ns, nobody_to_tell});
    if (quote.leaves == 0) return end(quote);
    books.add(quote);
}

// Never rests, and has no number.
void Engine::hit_touch(Product& product, std::uint64_t now_ns) {
    const auto intent = market.hit();
    if (!intent) return;
    Order order;
    order.product_id = product.id;
    take_terms(order, *intent);
    OutboundMessages nobody_to_tell;
    match(order, {now_ns, nobody_to_tell});
}

}  // namespace kavo
