#include "audit/audited_orders.h"

#include <utility>

#include "audit/finding.h"

namespace kavo::simulation {

namespace {

model::Settings settings_of(const Plan& plan) {
    return {.symbols = plan.symbols,
            .session = plan.engine.session,
            .acod = plan.engine.acod,
            .max_order_size = plan.engine.max_order_size,
            .seed = plan.market_seed,
            .step_bps = plan.engine.step_bps,
            .touch_hit = plan.engine.touch_hit,
            .limits = plan.limits};
}

// Whether orders rest that should have traded with each other.
bool crossed(const model::Product& product) {
    return !product.bids.empty() && !product.asks.empty() && product.asks.begin()->first != 0 &&
           product.bids.begin()->first >= product.asks.begin()->first;
}

}  // namespace

AuditedOrders::AuditedOrders(Witness& witness, AuditedFeed& feed, const Plan& plan)
    : venue(settings_of(plan), world_on_tape()), witness_(witness), feed_(feed) {
    venue.bench = plan.bench;
}

model::World AuditedOrders::world_on_tape() {
    const auto expect = [this](What what) {
        return [this, what](const std::string& line) { witness_.expect_line(what, line); };
    };
    return {.steady_ms = [this] { return witness_.now_ms(); },
            .wall_ns = [this] { return witness_.now_ns(); },
            .stamp_ns = [this] { return feed_.stamped_ns(); },
            .publish =
                [this](const Bytes& message) {
                    feed_.publish(message);
                    return feed_.last_sequence();
                },
            .order_truth = expect(What::order_truth),
            .book_truth = expect(What::book_truth),
            .commentary = expect(What::commentary)};
}

void AuditedOrders::start_day() {
    venue.start_of_day();
    expect_uncrossed();
    feed_.expect_flush();
}

void AuditedOrders::tick() {
    venue.tick();
    expect_uncrossed();
    if (!venue.paused) feed_.expect_flush();
}

bool AuditedOrders::handle(int client, const Bytes& message, model::Answers& answers) {
    auto expected = venue.handle(client, message);
    if (!expected) return false;
    answers = std::move(*expected);
    expect_uncrossed();
    return true;
}

// Whatever could trade has traded. Only behind an offer at price 0, with which nobody trades, may orders have come to
// rest that look crossed once it is gone.
void AuditedOrders::expect_uncrossed() {
    for (const model::Product& product : venue.books.products) {
        if (!product.asks.empty() && product.asks.begin()->first == 0) {
            barred_.insert(product.product_id);
        } else if (!crossed(product)) {
            barred_.erase(product.product_id);
        } else if (!barred_.contains(product.product_id)) {
            throw Finding("orders rest crossed in " + product.name);
        }
    }
}

}  // namespace kavo::simulation
