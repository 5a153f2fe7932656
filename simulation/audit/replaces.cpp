// Replaces: another price, another total size, another client order id; the same order.
#include "audit/audited_orders.h"

namespace kavo::simulation {

namespace {

constexpr std::uint64_t cent = 10'000;  // on the wire

}  // namespace

void AuditedOrders::modify(int client, const model::Modify& request, Answers& answers) {
    ClientOrder* order = find_own(client, request.orig_client_order_id);
    if (order == nullptr) return reject(request, {}, 'D', answers);
    const char reason = reject_reason(request, *order);
    if (reason != ' ') return reject(request, *order, reason, answers);
    if (request.size > order->executed) return replace(request, *order, answers);

    const model::Order closed = order->order;
    answers.push_back(cancel_resting(*order, 'U', "modify_closed"));
    answers.push_back(model::modify_response(request_ns_, request, closed.id, 0, ' '));
    answers.push_back(model::modify_notice(request_ns_, request, closed, 0));
}

char AuditedOrders::reject_reason(const model::Modify& request, const ClientOrder& order) {
    ++bench_.replace_rejects;
    if (is_live(request.client_order_id)) return 'A';
    if (order.order.mpid != request.mpid) return 'Q';
    if (request.price == 0 || request.price % cent != 0) return 'J';
    if (request.size == 0) return 'K';
    --bench_.replace_rejects;
    if (!bench_.replace_reject.happens()) return ' ';
    witness_.expect_said("bench: scripted replace reject for " + request.orig_client_order_id + " -> " +
                         request.client_order_id + " (the order stands as it was)");
    return 'H';
}

//   order  an empty one when there is none
void AuditedOrders::reject(const model::Modify& request, const ClientOrder& order, char reason, Answers& answers) {
    answers.push_back(model::modify_response(request_ns_, request, order.order.id, 0, reason));
    if (reason == 'Q') return;
    Truth truth;
    truth.event = "replace_reject";
    truth.id = request.client_order_id;
    truth.quantity = request.size;
    truth.price = static_cast<std::uint32_t>(request.price / 100);
    truth.reference = request.orig_client_order_id;
    if (reason == 'A') truth.text = "duplicate";
    if (reason == 'J' || reason == 'K') truth.text = "invalid";
    if (reason == 'H') truth.text = "bench:scripted_replace_reject";
    if (reason == 'D') {
        const bool late = closed_lately(request.orig_client_order_id);
        if (!late) witness_.expect_said("bench: stale replace for " + request.orig_client_order_id);
        truth.text = late ? "late" : "unknown_order";
    } else {
        truth.order_id = order.order.id;
        truth.symbol = books_.symbol(order.order.product_id);
        truth.side = order.order.buy ? 'B' : 'S';
    }
    expect_truth(truth);
}

// Wherever it stood, the replacement queues behind all others at its price.
void AuditedOrders::replace(const model::Modify& request, ClientOrder& replaced, Answers& answers) {
    model::Order& order = replaced.order;
    const auto price = static_cast<std::uint32_t>(request.price / 100);
    const std::uint32_t leaves = request.size - replaced.executed;
    const bool lost_priority = price != order.price || leaves > order.leaves;
    live_ids_.erase(order.client_order_id);
    live_ids_[request.client_order_id] = order.id;
    order.client_order_id = request.client_order_id;
    order.price = price;
    order.leaves = leaves;
    order.tif = request.tif == 'I' ? 'D' : request.tif;
    replaced.size = request.size;
    ++bench_.replaces;

    feed_.publish(model::modify_order(feed_.stamped_ns(), order, lost_priority));
    books_.replace(order.id, price, leaves);
    expect_change_line(order.product_id);
    answers.push_back(model::modify_response(request_ns_, request, order.id, leaves, ' '));
    answers.push_back(model::modify_notice(request_ns_, request, order, leaves));
    Truth truth = truth_of("replace", replaced);
    truth.leaves = leaves;
    truth.reference = request.orig_client_order_id;
    expect_truth(truth);
    close(request.orig_client_order_id);
    // A replaced order always has a price: a buy whose price has wrapped to 0 reaches nobody.
    if (order.buy && order.price == 0) return;
    if (books_.crosses(order.product_id, order.buy, order.price)) match_replaced(replaced, answers);
}

// One that crosses leaves the book again, comes in like a new order, and rests with what does not trade.
void AuditedOrders::match_replaced(ClientOrder& replaced, Answers& answers) {
    const model::Order& order = replaced.order;
    feed_.publish(model::delete_order(feed_.stamped_ns(), order));
    books_.remove(order.id);
    expect_change_line(order.product_id);
    match(replaced, answers);
    if (order.leaves == 0) return end(replaced);
    rest(replaced, answers);
}

}  // namespace kavo::simulation
