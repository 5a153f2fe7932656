// What may happen to an order of the literal venue after it came to rest, other than a trade.
#include "model/literal_venue.h"

namespace kavo::model {
namespace {

constexpr std::uint64_t late_ms = 2000;  // an id that ended less than this ago is answered as late

}  // namespace

std::optional<Answers> LiteralVenue::modify(int client, const Bytes& message) {
    const std::optional<Modify> request = read_modify(message);
    if (!request) return std::nullopt;
    Answers answers;
    const Order* order = find_own_order(client, request->orig_client_order_id);
    if (order == nullptr) {
        const auto closed = closed_ids.find(request->orig_client_order_id);
        const bool late = closed != closed_ids.end() && steady_ms - closed->second < late_ms;
        refuse_replace(*request, nullptr, 'D', late ? "late" : "unknown_order", answers);
        return answers;
    }
    if (const char reason = replace_reject_reason(*request, *order); reason != ' ') {
        ++replace_rejects;
        refuse_replace(*request, order, reason, reason == 'A' ? "duplicate" : "invalid", answers);
        return answers;
    }
    if (fault_fires(++modify_requests, replace_reject_every, replace_reject_next)) {
        refuse_replace(*request, order, 'H', "bench:scripted_replace_reject", answers);
        return answers;
    }
    if (request->size <= executed.at(request->orig_client_order_id)) {
        close_by_replace(*request, order->id, answers);
    } else {
        replace(*request, order->id, answers);
    }
    return answers;
}

Order* LiteralVenue::find_own_order(int client, const std::string& client_order_id) {
    const auto live = live_ids.find(client_order_id);
    if (live == live_ids.end()) return nullptr;
    const auto order = live_orders.find(live->second);
    if (order == live_orders.end() || order->second.owner != client) return nullptr;
    return &order->second;
}

char LiteralVenue::replace_reject_reason(const Modify& request, const Order& order) const {
    if (live_ids.contains(request.client_order_id)) return 'A';
    if (order.mpid != request.mpid) return 'Q';
    if (request.price == 0 || request.price % 10000 != 0) return 'J';
    if (request.size == 0) return 'K';
    return ' ';
}

// A participant mismatch is the one refusal that leaves no truth line.
void LiteralVenue::refuse_replace(const Modify& request, const Order* order, char reason, std::string_view text,
                                  Answers& answers) {
    answers.push_back(modify_response(wall_ns, request, order == nullptr ? 0 : order->id, 0, reason));
    if (reason == 'Q') return;
    Truth truth;
    truth.event = "replace_reject";
    truth.client_order_id = request.client_order_id;
    truth.quantity = request.size;
    truth.price = book_price(request.price);
    truth.text = text;
    truth.reference = request.orig_client_order_id;
    if (order != nullptr) {
        truth.order_id = order->id;
        truth.symbol = product_of(*order).name;
        truth.side = order->buy ? 'B' : 'S';
    }
    write_truth(truth);
}

// A new size that is already executed leaves nothing to stand for: the order is closed, and the new id never lives.
void LiteralVenue::close_by_replace(const Modify& request, std::uint64_t order_id, Answers& answers) {
    const Order order = live_orders.at(order_id);
    answers.push_back(system_cancel(order, order.leaves, 'U', "modify_closed"));
    withdraw(order_id);
    answers.push_back(modify_response(wall_ns, request, order_id, 0, ' '));
    answers.push_back(modify_notice(wall_ns, request, order, 0));
    record_close(request.orig_client_order_id);
}

void LiteralVenue::replace(const Modify& request, std::uint64_t order_id, Answers& answers) {
    const std::string& original = request.orig_client_order_id;
    const std::uint32_t already_executed = executed.at(original);
    const std::uint32_t new_leaves = request.size - already_executed;
    const std::uint32_t new_price = book_price(request.price);

    Order& order = live_orders.at(order_id);
    const bool keeps_priority = new_price == order.price && new_leaves <= order.leaves;
    take_off_level(order);
    order.price = new_price;
    order.leaves = new_leaves;
    order.tif = request.tif == 'I' ? 'D' : request.tif;
    order.client_order_id = request.client_order_id;
    live_ids.erase(original);
    live_ids[request.client_order_id] = order_id;
    executed[request.client_order_id] = already_executed;
    original_size[request.client_order_id] = request.size;

    // Priority is only a word on the feed: with or without it, the order queues behind the others at its price.
    put_on_level(order);
    publish(modify_order(wall_ns, order, !keeps_priority));
    book_changed(product_of(order));

    ++replaces;
    answers.push_back(modify_response(wall_ns, request, order_id, new_leaves, ' '));
    answers.push_back(modify_notice(wall_ns, request, order, new_leaves));
    write_order_truth(
        "replace", order,
        {.quantity = request.size, .executed = already_executed, .leaves = new_leaves, .reference = original});
    record_close(original);
    if (reaches_touch(order)) match_replaced(order, answers);
}

// A replaced order that crosses leaves the book as the feed sees it and comes back as an incoming order; what is left
// of it always rests, whatever its time in force.
void LiteralVenue::match_replaced(Order order, Answers& answers) {
    take_off_level(order);
    live_orders.erase(order.id);
    publish(delete_order(wall_ns, order));
    book_changed(product_of(order));
    match(order, &answers);
    if (order.leaves == 0) {
        live_ids.erase(order.client_order_id);
        return;
    }
    come_to_rest(order, answers);
}

std::optional<Answers> LiteralVenue::cancel(int client, const Bytes& message) {
    const std::optional<Cancel> request = read_cancel(message);
    if (!request) return std::nullopt;
    Answers answers;
    const Order* found = find_own_order(client, request->orig_client_order_id);
    if (found == nullptr) {
        refuse_unknown_cancel(*request, answers);
        return answers;
    }
    const Order order = *found;
    if (order.mpid != request->mpid) return Answers{cancel_response(wall_ns, *request, order.id, 'Q')};
    if (order.product_id != request->product_id) return Answers{cancel_response(wall_ns, *request, order.id, 'S')};
    if (fault_fires(++cancel_requests, fill_on_cancel_every, fill_on_cancel_next)) {
        lose_race(client, *request, order.id, answers);
        return answers;
    }
    answers.push_back(cancel_response(wall_ns, *request, order.id, ' '));
    answers.push_back(system_cancel(order, order.leaves, 'U', "cancel"));
    withdraw(order.id);
    record_close(request->orig_client_order_id);
    return answers;
}

// The client must see its execution before the rejection, so everything that waits for it in the outbox goes first.
void LiteralVenue::lose_race(int client, const Cancel& request, std::uint64_t order_id, Answers& answers) {
    ++race_fills;
    fill_resting(order_id, live_orders.at(order_id).leaves, false);
    std::vector<Outbound> others;
    for (const Outbound& outbound : outbox) {
        if (outbound.client == client) {
            answers.push_back(outbound.message);
        } else {
            others.push_back(outbound);
        }
    }
    outbox = others;
    answers.push_back(cancel_response(wall_ns, request, 0, 'D'));
}

void LiteralVenue::refuse_unknown_cancel(const Cancel& request, Answers& answers) {
    const auto closed = closed_ids.find(request.orig_client_order_id);
    const bool late = closed != closed_ids.end() && steady_ms - closed->second < late_ms;
    ++(late ? late_cancels : stale_cancels);
    answers.push_back(cancel_response(wall_ns, request, 0, 'D'));
    Truth truth;
    truth.event = "cancel_reject";
    truth.client_order_id = request.orig_client_order_id;
    if (request.product_id != 0 && request.product_id <= products.size()) {
        truth.symbol = products.at(request.product_id - 1).name;
    }
    truth.text = late ? "late" : "stale";
    write_truth(truth);
}

Bytes LiteralVenue::system_cancel(const Order& order, std::uint32_t quantity, char reason, std::string_view text) {
    ++cancels;
    const std::uint32_t leaves = order.leaves - quantity;
    write_order_truth("cancel", order,
                      {.quantity = original_size.at(order.client_order_id),
                       .executed = executed.at(order.client_order_id),
                       .leaves = leaves,
                       .text = text});
    return order_cancelled(wall_ns, order, leaves, reason);
}

// A cancel that nobody asked for reaches the owner through the outbox.
void LiteralVenue::cancel_for_owner(std::uint64_t order_id, char reason, std::string_view text) {
    const Order order = live_orders.at(order_id);
    outbox.push_back({order.owner, system_cancel(order, order.leaves, reason, text)});
    withdraw(order_id);
    record_close(order.client_order_id);
}

void LiteralVenue::client_dropped(int client) {
    if (!acod_) return;
    std::vector<std::uint64_t> open_orders;
    for (const auto& [id, order] : live_orders) {
        if (order.owner == client) open_orders.push_back(id);
    }
    for (const std::uint64_t id : open_orders) {
        cancel_for_owner(id, 'D', "disconnect");
        ++disconnect_cancels;
    }
}

void LiteralVenue::unsolicited_cancels_due() {
    std::vector<PendingCancel> kept;
    for (const PendingCancel& pending : pending_cancels) {
        if (pending.due_ms > steady_ms) {
            kept.push_back(pending);
            continue;
        }
        const auto live = live_ids.find(pending.client_order_id);
        if (live == live_ids.end()) continue;
        ++unsolicited_cancels;
        cancel_for_owner(live->second, 'H', "unsolicited");
    }
    pending_cancels = kept;
}

}  // namespace kavo::model
