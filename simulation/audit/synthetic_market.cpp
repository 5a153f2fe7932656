// The synthetic market's own doings. What it decides by chance is taken from the feed; that it stays within its rules
// is what is audited.
#include <algorithm>

#include "audit/audited_orders.h"
#include "audit/finding.h"
#include "model/literal_fields.h"

namespace kavo::simulation {

namespace {

constexpr std::uint8_t add_order = 0x14;
constexpr std::uint8_t delete_order = 0x17;
constexpr std::uint8_t order_executed = 0x18;

constexpr std::uint64_t seeding_quotes = 40;
constexpr std::uint64_t fewest_quotes = 3;  // of a product in a tick, if only for a moment
constexpr std::uint64_t most_quotes = 5;
constexpr unsigned most_withdrawals = 4;
constexpr std::uint32_t largest_quote = 800;

}  // namespace

void AuditedOrders::start_day() {
    request_ns_ = witness_.now_ns();
    feed_.publish(model::system_state(feed_.stamped_ns(), plan_.engine.session));
    const std::uint32_t products = books_.products();
    for (std::uint32_t id = 1; id <= products; ++id) {
        feed_.publish(model::series_definition(feed_.stamped_ns(), product(id)));
    }
    for (std::uint32_t id = 1; id <= products; ++id) {
        feed_.publish(model::series_open(feed_.stamped_ns(), product(id)));
    }
    for (std::uint32_t id = 1; id <= products; ++id) {
        feed_.publish(model::series_status(feed_.stamped_ns(), product(id)));
    }
    for (std::uint32_t id = 1; id <= products; ++id) {
        const std::uint64_t first = least_order_id_;
        most_order_id_ = first + seeding_quotes;
        take_changes(id);
        least_order_id_ = first + seeding_quotes;
    }
    expect_uncrossed();
    feed_.expect_flush();
}

void AuditedOrders::tick() {
    request_ns_ = witness_.now_ns();
    for (std::uint32_t id = 1; id <= books_.products(); ++id) {
        const std::uint64_t first = least_order_id_;
        most_order_id_ += most_quotes;
        take_changes(id);
        least_order_id_ = std::max(least_order_id_, first + fewest_quotes);
    }
    expect_uncrossed();
    feed_.expect_flush();
}

// Everything that happens to one product: withdrawals first, then quotes and whom they hit.
void AuditedOrders::take_changes(std::uint32_t product_id) {
    unsigned withdrawals = 0;
    bool quoting = false;
    while (witness_.next_is(What::book_truth) || witness_.next_is(What::order_truth) ||
           witness_.next_is(What::commentary, "bench: partial fill")) {
        const Bytes& message = feed_.peek();
        if (model::get32(message, 5) != product_id) return;
        if (message[0] == delete_order) {
            if (quoting || ++withdrawals > most_withdrawals) throw Finding("a withdrawal out of its turn");
            take_withdrawal(product_id);
            continue;
        }
        quoting = true;
        if (message[0] == add_order) {
            take_quote(product_id);
        } else if (message[0] == order_executed) {
            take_trade(product_id);
        } else {
            throw Finding("the synthetic market neither quotes nor trades nor withdraws");
        }
    }
}

void AuditedOrders::take_quote(std::uint32_t product_id) {
    const Bytes& message = feed_.peek();
    model::Order quote;
    quote.id = model::get(message, 9, 8);
    quote.product_id = product_id;
    quote.buy = message[17] == 'B';
    quote.price = static_cast<std::uint32_t>(model::get(message, 18, 8) / 100);
    quote.leaves = model::get32(message, 26);
    if (quote.id < least_order_id_ || quote.id >= most_order_id_) throw Finding("a quote with an order id out of turn");
    if (quote.leaves > largest_quote) throw Finding("a quote of more than 800 shares");
    least_order_id_ = quote.id + 1;
    feed_.publish(model::add_order(feed_.stamped_ns(), quote));
    books_.add({quote.id, product_id, quote.buy, quote.price, quote.leaves});
    expect_change_line(product_id);
}

void AuditedOrders::take_withdrawal(std::uint32_t product_id) {
    model::Order quote;
    quote.id = model::get(feed_.peek(), 9, 8);
    quote.product_id = product_id;
    if (orders_.contains(quote.id)) throw Finding("the synthetic market withdraws a client's order");
    feed_.publish(model::delete_order(feed_.stamped_ns(), quote));
    books_.remove(quote.id);
    expect_change_line(product_id);
}

// How much the other side wanted is not told, but a fill that is cut by the fault is announced.
void AuditedOrders::take_trade(std::uint32_t product_id) {
    const Bytes& message = feed_.peek();
    const std::uint64_t id = model::get(message, 9, 8);
    const BookOrder* maker = books_.find(id);
    if (maker == nullptr) throw Finding("a trade of order #" + std::to_string(id) + ", which rests nowhere");
    const BookOrder* best = books_.best(product_id, maker->buy);
    if (best->id != id)
        throw Finding("a trade of order #" + std::to_string(id) + " before #" + std::to_string(best->id));
    const bool cut = witness_.next_is(What::commentary, "bench: partial fill");
    fill_resting(id, cut ? maker->quantity : model::get32(message, 33), true);
}

void AuditedOrders::take_order_id(std::uint64_t id) {
    if (id < least_order_id_ || id > most_order_id_) {
        throw Finding("order id " + std::to_string(id) + ", which should be " + std::to_string(least_order_id_) +
                      " to " + std::to_string(most_order_id_));
    }
    least_order_id_ = most_order_id_ = id + 1;
}

}  // namespace kavo::simulation
