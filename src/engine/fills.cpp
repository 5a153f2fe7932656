// What happens to a resting order: it trades, or is reduced without a trade, comes onto the book, leaves it, and ends.
#include <algorithm>
#include <cstdio>
#include <optional>

#include "common/fault_rule.h"
#include "engine/engine.h"

namespace kavo {

// Trades `quantity` shares of a resting order, as maker, at its price, and gives the number of the match.
//   quantity  shares, 1..order.leaves; cut for the maker alone when the partial-fill fault fires
// Publishes one execution, queues the owner's report in `outbox`, writes one truth line. The order may be gone on
// return: keep its id across this call, never a reference to it.
std::uint64_t Engine::fill_resting(Order& order, std::uint32_t quantity, std::uint64_t now_ns, PartialFills faults) {
    quantity = cut_by_fault(order, quantity, faults);
    const Trade trade{now_ns, next_match_number_++, order.price, quantity, meo::Liquidity::added};
    Product& product = product_of(order);
    publish_executed(order, trade);
    product.last = trade.price;
    product.volume += quantity;
    if (order.has_owner()) {
        report_fill(order, trade, order.leaves - quantity, outbox);
        if (quantity == order.leaves) record_close(order.client_order_id);
    }
    if (quantity < order.leaves) {
        product.side(order.buy).reduce(order, quantity);
        write_book_truth(product);
    } else {
        end_resting(order);
    }
    return trade.match_number;
}

// The partial-fill fault hits what would empty a client's order. Only the resting side is cut: the incoming order is
// told the full quantity, and that contradiction is the fault.
std::uint32_t Engine::cut_by_fault(const Order& order, std::uint32_t quantity, PartialFills faults) {
    const bool candidate =
        order.has_owner() && quantity > 1 && faults == PartialFills::allowed && quantity == order.leaves;
    if (!candidate) return quantity;
    if (!fault_fires(++bench_.counters.partial_candidates, bench_.partial_fill_every, bench_.partial_next)) {
        return quantity;
    }
    const std::uint32_t round_lots = order.leaves / 200 * 100;
    const std::uint32_t cut = round_lots != 0 ? round_lots : order.leaves / 2;
    ++bench_.counters.partials;
    std::fprintf(stderr, "bench: partial fill of %s: %u of %u\n", order.client_order_id.str().c_str(), cut,
                 order.leaves);
    return cut;
}

// Tells the owner of either side of a trade, counts it and writes it down. The price in the truth log is the order's
// own, deliberately: 0 for a market order.
//   leaves  of this order, after the trade
void Engine::report_fill(Order& order, const Trade& trade, std::uint32_t leaves, OutboundMessages& reports) {
    const Product& product = product_of(order);
    reports.push_back({order.owner, build(meo::Execution{.timestamp = trade.now_ns,
                                                         .mpid = order.mpid,
                                                         .product_id = product.id,
                                                         .client_order_id = order.client_order_id,
                                                         .match_number = trade.match_number,
                                                         .execution_id = next_execution_id_++,
                                                         .price = trade.price,
                                                         .quantity = trade.quantity,
                                                         .buy = order.buy,
                                                         .liquidity = trade.liquidity,
                                                         .listing_market = product.listing_market})});
    ++bench_.counters.fills;
    order.executed += trade.quantity;
    OrderEvent event = event_of("fill", order, trade.now_ns);
    event.leaves = leaves;
    event.last_quantity = trade.quantity;
    write_order_truth(event);
}

// Takes a resting order away without a trade. Says nothing to its owner.
void Engine::withdraw_resting(Order& order) {
    publish_deleted(order);
    end_resting(order);
}

// Onto the book, behind every order at its price. An order that was replaced and comes back keeps its id.
void Engine::rest(Order& order) {
    product_of(order).side(order.buy).add(order);
    ++resting_orders_;
    if (!order.has_owner()) product_of(order).synthetic.push_back(&order);
}

// Off the book, but still alive.
void Engine::take_off_book(Order& order) {
    Product& product = product_of(order);
    product.side(order.buy).remove(order);
    --resting_orders_;
    if (order.has_owner()) return;
    std::vector<Order*>& synthetic = product.synthetic;
    synthetic.erase(std::ranges::lower_bound(synthetic, order.id, {}, &Order::id));
}

void Engine::end_resting(Order& order) {
    Product& product = product_of(order);
    take_off_book(order);
    end(order);
    write_book_truth(product);
}

// The record of an order that is not on the book goes back to the pool, and its client order id is free again.
void Engine::end(Order& order) {
    if (order.has_owner()) {
        live_ids_.remove(order);
        open_orders_.remove(order);
    }
    orders_.give_back(order);
}

void Engine::record_close(const meo::ClientOrderId& id) {
    closed_ids_.close(id, clock_.steady_ms());
}

bool Engine::closed_lately(const meo::ClientOrderId& id) const {
    const std::optional<std::uint64_t> closed_ms = closed_ids_.closed_at_ms(id);
    return closed_ms && elapsed_ms(clock_.steady_ms(), *closed_ms) < late_limit_ms;
}

}  // namespace kavo
