// Cancels: asked for by the client, lost to a fill, too late, or the venue's own.
#include "model/venue.h"

namespace kavo::model {

void Venue::cancel(int client, const Cancel& request, Answers& answers) {
    const auto answer = [&](std::uint64_t order_id, char reason) {
        answers.push_back(cancel_response(now_ns_, request, order_id, reason));
    };
    const Order* found = find_own(client, request.orig_client_order_id);
    if (found == nullptr) {
        record_missed_cancel(request);
        return answer(0, 'D');
    }
    const Order order = *found;
    if (order.mpid != request.mpid) return answer(order.id, 'Q');
    if (order.product_id != request.product_id) return answer(order.id, 'S');
    if (bench.happens(Bench::fill_on_cancel)) {
        lose_race(client, order, answers);
        return answer(0, 'D');
    }
    answer(order.id, ' ');
    answers.push_back(cancel_resting(order, 'U', "cancel"));
}

// The client hears of everything that waits for it, its fill included, before it hears that the cancel came too late.
void Venue::lose_race(int client, const Order& order, Answers& answers) {
    ++bench.race_fills;
    world_.commentary("bench: cancel of " + order.client_order_id +
                      " loses the race to a fill (executed in full; the cancel is rejected 'D')");
    fill_resting(order, order.leaves, false);
    for (const Outbound& outbound : outbox) {
        if (outbound.client == client) answers.push_back(outbound.message);
    }
    std::erase_if(outbox, [client](const Outbound& outbound) { return outbound.client == client; });
}

void Venue::record_missed_cancel(const Cancel& request) {
    const std::string& id = request.orig_client_order_id;
    const bool late = closed_lately(id);
    ++(late ? bench.late_cancels : bench.stale_cancels);
    if (!late) {
        world_.commentary("bench: stale cancel for " + id +
                          (closed_ms_.contains(id) ? " (closed more than 2 s ago)" : " (unknown client order id)"));
    }
    write({.event = "cancel_reject",
           .client_order_id = id,
           .symbol = books.has_product(request.product_id) ? books.product(request.product_id).name : "",
           .text = late ? "late" : "stale"});
}

// One line of truth and one report; the order itself is left alone.
//   leaves  as both show them
Bytes Venue::system_cancel(const Order& order, std::uint32_t leaves, char reason, std::string_view text) {
    ++bench.cancels;
    Truth truth = truth_of("cancel", order);
    truth.leaves = leaves;
    truth.text = text;
    write(truth);
    return order_cancelled(now_ns_, order, leaves, reason);
}

// Takes a resting order away whole.
//   order  a copy: the one on the book is gone on return
Bytes Venue::cancel_resting(const Order& order, char reason, std::string_view text) {
    Bytes report = system_cancel(order, 0, reason, text);
    withdraw(order.id);
    close(order.client_order_id);
    return report;
}

void Venue::client_dropped(int client, const std::string& username) {
    now_ns_ = world_.wall_ns();
    std::vector<Order> open_orders;
    for (const auto& [id, order] : books.resting) {
        if (order.owner == client) open_orders.push_back(order);
    }
    const std::string count = std::to_string(open_orders.size());
    if (!settings_.acod) {
        return world_.commentary("bench: ACOD off (Do Not Cancel All Open Orders): " + count + " open order(s) of " +
                                 username + " stay on the book");
    }
    for (const Order& order : open_orders) {
        ++bench.disconnect_cancels;
        outbox.push_back({client, cancel_resting(order, 'D', "disconnect")});
    }
    world_.commentary("bench: ACOD (Cancel All Open Orders): cancelled " + count + " open order(s) of " + username +
                      " on disconnect");
}

void Venue::cancel_unsolicited() {
    const std::uint64_t now_ms = world_.steady_ms();
    now_ns_ = world_.wall_ns();
    for (; !pending_cancels_.empty() && pending_cancels_.front().due_ms <= now_ms; pending_cancels_.pop_front()) {
        const auto live = live_ids.find(pending_cancels_.front().client_order_id);
        if (live == live_ids.end()) continue;
        ++bench.unsolicited_cancels;
        world_.commentary("bench: unsolicited cancel of " + live->first +
                          " (helpdesk; the client must mark it cancelled)");
        const Order order = books.resting.at(live->second);
        outbox.push_back({order.owner, cancel_resting(order, 'H', "unsolicited")});
    }
}

}  // namespace kavo::model
