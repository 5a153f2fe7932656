// Trades: who meets whom, in which order, for how much, and who is told.
#include <algorithm>

#include "audit/audited_orders.h"
#include "audit/finding.h"

namespace kavo::simulation {

// The best price first, and at one price whoever came first.
void AuditedOrders::match(ClientOrder& taker, Answers& answers) {
    model::Order& order = taker.order;
    while (order.leaves != 0 && books_.crosses(order.product_id, order.buy, order.price)) {
        const BookOrder maker = *books_.best(order.product_id, !order.buy);
        const std::uint32_t quantity = std::min(order.leaves, maker.quantity);
        const std::uint64_t match_number = next_match_number_;
        fill_resting(maker.id, quantity, true);
        order.leaves -= quantity;
        answers.push_back(report_fill(taker, {match_number, next_execution_id_, maker.price, quantity, 'R'}));
    }
}

// The resting side alone may be cut by the fault: what the incoming side is told does not change.
void AuditedOrders::fill_resting(std::uint64_t order_id, std::uint32_t quantity, bool partial_fills) {
    const BookOrder resting = *books_.find(order_id);
    const auto owned = orders_.find(order_id);
    if (owned != orders_.end() && partial_fills) quantity = cut_by_fault(owned->second, quantity);

    model::Order maker;
    maker.id = resting.id;
    maker.product_id = resting.product_id;
    maker.buy = resting.buy;
    model::Fill fill{next_match_number_++, next_execution_id_, resting.price, quantity, 'A'};
    feed_.publish(model::order_executed(feed_.stamped_ns(), maker, fill));
    books_.trade(resting.id, resting.price, quantity);
    expect_change_line(resting.product_id);
    if (owned != orders_.end()) {
        ClientOrder& order = owned->second;
        order.order.leaves -= quantity;
        outbox.push_back({order.order.owner, report_fill(order, fill)});
        if (order.order.leaves == 0) {
            close(order.order.client_order_id);
            end(order);
        }
    }
}

std::uint32_t AuditedOrders::cut_by_fault(const ClientOrder& order, std::uint32_t quantity) {
    const std::uint32_t leaves = order.order.leaves;
    if (quantity != leaves || quantity < 2 || !bench_.partial_fill.happens()) return quantity;
    ++bench_.partials;
    const std::uint32_t cut = leaves < 200 ? leaves / 2 : leaves / 200 * 100;
    witness_.expect_said("bench: partial fill of " + order.order.client_order_id + ": " + std::to_string(cut) + " of " +
                         std::to_string(leaves));
    return cut;
}

// One line of the truth log, and one execution report with an id of its own.
Bytes AuditedOrders::report_fill(ClientOrder& order, const model::Fill& fill) {
    ++bench_.fills;
    ++next_execution_id_;
    order.executed += fill.quantity;
    Truth truth = truth_of("fill", order);
    truth.leaves = order.order.leaves;
    truth.last = fill.quantity;
    expect_truth(truth);
    return model::execution(request_ns_, order.order, books_.listing(order.order.product_id), fill);
}

void AuditedOrders::expect_change_line(std::uint32_t product_id) {
    witness_.expect_line(What::book_truth, books_.change_line(feed_.last_sequence(), product_id));
}

}  // namespace kavo::simulation
