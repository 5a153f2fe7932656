// Replaces: another price, another total size, another client order id; the same order.
#include "model/venue.h"

namespace kavo::model {
namespace {

constexpr std::uint64_t cent = 10'000;  // on the wire

}  // namespace

void Venue::replace(int client, const Replace& request, Answers& answers) {
    const Order* found = find_own(client, request.orig_client_order_id);
    const Order order = found == nullptr ? Order{} : *found;
    if (const Refusal refusal = refusal_of(request, found); refusal.reason != ' ') {
        answers.push_back(replace_response(now_ns_, request, order.id, 0, refusal.reason));
        if (refusal.text.empty()) return;
        return write({.event = "replace_reject",
                      .client_order_id = request.client_order_id,
                      .order_id = order.id,
                      .symbol = found == nullptr ? "" : books.product(order.product_id).name,
                      .side = found == nullptr ? ' '
                              : order.buy      ? 'B'
                                               : 'S',
                      .quantity = request.size,
                      .price = book_price(request.price),
                      .text = refusal.text,
                      .reference = request.orig_client_order_id});
    }
    if (request.size > order.executed) return replace(request, order, answers);

    // What is already executed leaves nothing to stand for, and the new id never lives.
    answers.push_back(cancel_resting(order, 'U', "modify_closed"));
    answers.push_back(replace_response(now_ns_, request, order.id, 0, ' '));
    answers.push_back(replace_notice(now_ns_, request, order, 0));
}

//   order  the one that is to be replaced; none when the client has none of that name
Venue::Refusal Venue::refusal_of(const Replace& request, const Order* order) {
    const std::string& original = request.orig_client_order_id;
    if (order == nullptr) {
        if (closed_lately(original)) return {'D', "late"};
        world_.commentary("bench: stale replace for " + original);
        return {'D', "unknown_order"};
    }
    ++bench.replace_rejects;
    if (live_ids.contains(request.client_order_id)) return {'A', "duplicate"};
    if (order->mpid != request.mpid) return {'Q'};
    if (request.price == 0 || request.price % cent != 0) return {'J', "invalid"};
    if (request.size == 0) return {'K', "invalid"};
    --bench.replace_rejects;
    if (!bench.happens(Bench::replace_reject)) return {};
    world_.commentary("bench: scripted replace reject for " + original + " -> " + request.client_order_id +
                      " (the order stands as it was)");
    return {'H', "bench:scripted_replace_reject"};
}

// Priority is only a word on the feed: with or without it, the order queues behind the others at its price.
void Venue::replace(const Replace& request, Order order, Answers& answers) {
    const std::uint32_t price = book_price(request.price);
    const std::uint32_t leaves = request.size - order.executed;
    const bool lost_priority = price != order.price || leaves > order.leaves;
    live_ids.erase(order.client_order_id);
    live_ids[request.client_order_id] = order.id;
    order.client_order_id = request.client_order_id;
    order.price = price;
    order.leaves = leaves;
    order.size = request.size;
    ++bench.replaces;

    publish(modify_order(world_.stamp_ns(), order, lost_priority));
    books.remove(order.id);
    books.add(order);
    book_changed(order.product_id);
    answers.push_back(replace_response(now_ns_, request, order.id, leaves, ' '));
    answers.push_back(replace_notice(now_ns_, request, order, leaves));
    Truth truth = truth_of("replace", order);
    truth.leaves = leaves;
    truth.reference = request.orig_client_order_id;
    write(truth);
    close(request.orig_client_order_id);
    if (reaches_touch(order)) match_replaced(order, answers);
}

// One that crosses leaves the book again and comes in like a new order. Nobody asks about its terms: what does not
// trade rests, whatever its time in force.
void Venue::match_replaced(Order order, Answers& answers) {
    withdraw(order.id);
    match(order, answers);
    if (order.leaves != 0) return rest(order, answers);
    live_ids.erase(order.client_order_id);
}

}  // namespace kavo::model
