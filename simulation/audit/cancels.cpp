// Cancels: asked for by the client, lost to a fill, too late, or the venue's own.
#include "audit/audited_orders.h"

namespace kavo::simulation {

void AuditedOrders::cancel(int client, const model::Cancel& request, Answers& answers) {
    ClientOrder* found = find_own(client, request.orig_client_order_id);
    const auto answer = [&](std::uint64_t order_id, char reason) {
        answers.push_back(model::cancel_response(request_ns_, request, order_id, reason));
    };
    if (found == nullptr) {
        reject_late_or_stale(request);
        return answer(0, 'D');
    }
    const model::Order& order = found->order;
    if (order.mpid != request.mpid) return answer(order.id, 'Q');
    if (order.product_id != request.product_id) return answer(order.id, 'S');
    if (bench_.fill_on_cancel.happens()) {
        lose_race(client, *found, answers);
        return answer(0, 'D');
    }
    answer(order.id, ' ');
    answers.push_back(cancel_resting(*found, 'U', "cancel"));
}

// The client hears of everything that waits for it, its fill included, before it hears that the cancel came too late.
void AuditedOrders::lose_race(int client, ClientOrder& order, Answers& answers) {
    ++bench_.race_fills;
    witness_.expect_said("bench: cancel of " + order.order.client_order_id +
                         " loses the race to a fill (executed in full; the cancel is rejected 'D')");
    fill_resting(order.order.id, order.order.leaves, false);
    for (const Outbound& message : outbox) {
        if (message.client == client) answers.push_back(message.message);
    }
    std::erase_if(outbox, [client](const Outbound& message) { return message.client == client; });
}

void AuditedOrders::reject_late_or_stale(const model::Cancel& request) {
    const std::string& id = request.orig_client_order_id;
    const bool late = closed_lately(id);
    ++(late ? bench_.late_cancels : bench_.stale_cancels);
    if (!late) {
        witness_.expect_said("bench: stale cancel for " + id +
                             (closed_ms_.contains(id) ? " (closed more than 2 s ago)" : " (unknown client order id)"));
    }
    Truth truth;
    truth.event = "cancel_reject";
    truth.id = id;
    if (request.product_id != 0 && request.product_id <= books_.products())
        truth.symbol = books_.symbol(request.product_id);
    truth.text = late ? "late" : "stale";
    expect_truth(truth);
}

// One line of the truth log and one report.
Bytes AuditedOrders::system_cancel(const ClientOrder& order, std::uint32_t leaves, char reason,
                                   const std::string& text) {
    ++bench_.cancels;
    Truth truth = truth_of("cancel", order);
    truth.leaves = leaves;
    truth.text = text;
    expect_truth(truth);
    return model::order_cancelled(request_ns_, order.order, leaves, reason);
}

// Takes a resting order away whole.
Bytes AuditedOrders::cancel_resting(ClientOrder& order, char reason, const std::string& text) {
    const model::Order gone = order.order;
    Bytes report = system_cancel(order, 0, reason, text);
    feed_.publish(model::delete_order(feed_.stamped_ns(), gone));
    books_.remove(gone.id);
    expect_change_line(gone.product_id);
    close(gone.client_order_id);
    end(order);
    return report;
}

void AuditedOrders::client_dropped(int client, const std::string& username) {
    request_ns_ = witness_.now_ns();
    std::vector<std::uint64_t> ids;
    for (const auto& [id, order] : orders_) {
        if (order.order.owner == client) ids.push_back(id);
    }
    const std::string count = std::to_string(ids.size());
    if (!plan_.engine.acod) {
        return witness_.expect_said("bench: ACOD off (Do Not Cancel All Open Orders): " + count + " open order(s) of " +
                                    username + " stay on the book");
    }
    for (const std::uint64_t id : ids) outbox.push_back({client, cancel_resting(orders_.at(id), 'D', "disconnect")});
    witness_.expect_said("bench: ACOD (Cancel All Open Orders): cancelled " + count + " open order(s) of " + username +
                         " on disconnect");
}

void AuditedOrders::cancel_unsolicited() {
    const std::uint64_t now_ms = witness_.now_ms();
    request_ns_ = witness_.now_ns();
    std::erase_if(pending_, [&](const Pending& pending) {
        if (pending.due_ms > now_ms) return false;
        const auto live = live_ids_.find(pending.id);
        if (live == live_ids_.end()) return true;
        ++bench_.unsolicited_cancels;
        witness_.expect_said("bench: unsolicited cancel of " + pending.id +
                             " (helpdesk; the client must mark it cancelled)");
        ClientOrder& order = orders_.at(live->second);
        const int owner = order.order.owner;
        outbox.push_back({owner, cancel_resting(order, 'H', "unsolicited")});
        return true;
    });
}

}  // namespace kavo::simulation
