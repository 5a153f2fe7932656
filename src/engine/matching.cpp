// Orders meet: the match loop in price-time order, and what each side of a trade is told.
#include <algorithm>
#include <limits>

#include "engine/engine.h"

namespace kavo {

// How far an order goes: to its price, or to any price when it has none.
Price Engine::reach(const Order& order) {
    if (order.price != 0) return order.price;
    return order.buy ? std::numeric_limits<Price>::max() : 0;
}

// An incoming order against the best levels of the other side. Nobody asks whose orders meet: a client may trade with
// itself.
void Engine::match(Order& incoming, Event event) {
    const BookSide& opposite = books.of(incoming).side(!incoming.buy);
    while (incoming.leaves != 0 && opposite.crossed_by(reach(incoming))) {
        Order& maker = *opposite.best()->first;
        const std::uint32_t quantity = std::min(incoming.leaves, maker.leaves);
        Trade trade = fill_resting(maker, quantity, event.now_ns, PartialFills::allowed);
        trade.quantity = quantity;  // whatever the fault has cut the maker to
        incoming.leaves -= quantity;
        if (incoming.has_owner()) report_fill(incoming, trade, meo::Liquidity::removed, event);
    }
}

// Trades `quantity` shares of a resting order, as maker, at its price.
//   quantity  shares, 1..order.leaves; cut for the maker alone when the partial-fill fault fires
// Publishes one execution, queues the owner's report in `outbox`, writes one truth line. The order may be gone on
// return: keep its id across this call, never a reference to it.
Trade Engine::fill_resting(Order& order, std::uint32_t quantity, std::uint64_t now_ns, PartialFills faults) {
    const Trade trade = books.execute(order, cut_by_fault(order, quantity, faults));
    if (order.has_owner()) {
        report_fill(order, trade, meo::Liquidity::added, {now_ns, outbox});
        if (order.leaves == 0) record_close(order.client_order_id);
    }
    if (order.leaves == 0) end(order);
    return trade;
}

// The partial-fill fault hits what would empty a client's order. Only the resting side is cut: the incoming order is
// told the full quantity, and that contradiction is the fault.
std::uint32_t Engine::cut_by_fault(const Order& order, std::uint32_t quantity, PartialFills faults) {
    const bool candidate =
        order.has_owner() && quantity > 1 && faults == PartialFills::allowed && quantity == order.leaves;
    if (!candidate) return quantity;
    ++bench_.counters.partial_candidates;
    if (!bench_.fires(Scripted::partial_fill)) return quantity;
    const std::uint32_t round_lots = order.leaves / 200 * 100;
    const std::uint32_t cut = round_lots != 0 ? round_lots : order.leaves / 2;
    ++bench_.counters.partials;
    commentary_.say("bench: partial fill of %s: %u of %u\n", order.client_order_id.str().c_str(), cut, order.leaves);
    return cut;
}

// Tells the owner of either side of a trade, counts it and writes it down. The price in the truth log is the order's
// own, deliberately: 0 for a market order.
//   order  its leaves are those after the trade
void Engine::report_fill(Order& order, const Trade& trade, meo::Liquidity liquidity, Event event) {
    const Product& product = books.of(order);
    event.answers.push_back({order.owner, build(meo::Execution{.timestamp = event.now_ns,
                                                               .mpid = order.mpid,
                                                               .product_id = product.id,
                                                               .client_order_id = order.client_order_id,
                                                               .match_number = trade.match_number,
                                                               .execution_id = next_execution_id_++,
                                                               .price = trade.price,
                                                               .quantity = trade.quantity,
                                                               .buy = order.buy,
                                                               .liquidity = liquidity,
                                                               .listing_market = product.listing_market})});
    ++bench_.counters.fills;
    order.executed += trade.quantity;
    OrderEvent fill = event_of("fill", order, product, event.now_ns);
    fill.leaves = order.leaves;
    fill.last_quantity = trade.quantity;
    order_truth.write(fill);
}

}  // namespace kavo
