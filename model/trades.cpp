// Trades: who meets whom, in which order, for how much, and who is told.
#include <algorithm>

#include "model/venue.h"

namespace kavo::model {

// Of an order that has a price: a buy at price 0, to which only a wrapped price can lead, reaches nobody.
bool Venue::reaches_touch(const Order& order) const {
    return !(order.buy && order.price == 0) && books.crosses(order.product_id, order.buy, order.price);
}

// The best price first, and at one price whoever came first. Nobody compares owners: a client may trade with itself.
// The incoming order is told each trade in full, also where the fault cuts what the resting order is told.
void Venue::match(Order& incoming, Answers& answers) {
    while (incoming.leaves != 0 && books.crosses(incoming.product_id, incoming.buy, incoming.price)) {
        const Queue& best = books.product(incoming.product_id).side(!incoming.buy).begin()->second;
        const Order maker = books.resting.at(best.front());
        const std::uint32_t quantity = std::min(incoming.leaves, maker.leaves);
        const std::uint64_t match_number = next_match_number_;
        fill_resting(maker, quantity, true);
        incoming.fill(quantity);
        if (incoming.owner < 0) continue;
        answers.push_back(report_fill(incoming, {match_number, next_execution_id_, maker.price, quantity, 'R'}));
    }
}

// Trades shares of a resting order at its own price.
//   maker  a copy: the one on the book may be gone on return
void Venue::fill_resting(Order maker, std::uint32_t quantity, bool may_be_cut) {
    if (may_be_cut) quantity = cut_by_fault(maker, quantity);
    const Fill fill{next_match_number_++, next_execution_id_, maker.price, quantity, 'A'};
    publish(order_executed(world_.stamp_ns(), maker, fill));
    books.trade(maker.id, quantity);
    book_changed(maker.product_id);
    if (maker.owner < 0) return;
    maker.fill(quantity);
    outbox.push_back({maker.owner, report_fill(maker, fill)});
    if (maker.leaves == 0) close(maker.client_order_id);
}

// The fault strikes where a client's order would be gone: round lots of half of it are left to trade.
std::uint32_t Venue::cut_by_fault(const Order& order, std::uint32_t quantity) {
    if (order.owner < 0 || quantity < 2 || quantity != order.leaves) return quantity;
    if (!bench.happens(Bench::partial_fill)) return quantity;
    ++bench.partials;
    const std::uint32_t round_lots = order.leaves / 200 * 100;
    const std::uint32_t cut = round_lots != 0 ? round_lots : order.leaves / 2;
    world_.commentary("bench: partial fill of " + order.client_order_id + ": " + std::to_string(cut) + " of " +
                      std::to_string(order.leaves));
    return cut;
}

// One line of truth and one report with an id of its own, of an order that the trade has been taken off already.
Bytes Venue::report_fill(const Order& order, const Fill& fill) {
    ++bench.fills;
    ++next_execution_id_;
    Truth truth = truth_of("fill", order);
    truth.leaves = order.leaves;
    truth.last_quantity = fill.quantity;
    write(truth);
    return execution(now_ns_, order, books.product(order.product_id).listing, fill);
}

}  // namespace kavo::model
