// New orders: judged, accepted, traded, and what becomes of the rest.
#include "model/venue.h"

namespace kavo::model {
namespace {

constexpr std::uint64_t unsolicited_cancel_delay_ms = 300;
constexpr std::uint64_t cent = 10'000;  // on the wire

bool is_sell(const NewOrder& request) {
    return (request.order_flags & 1) != 0;
}
bool is_short_sale(const NewOrder& request) {
    return (request.order_flags & 6) != 0;
}
bool is_post_only(const Order& order) {
    return (order.order_flags & 0x10) != 0;
}

bool price_fits(const NewOrder& request) {
    if (request.order_type == '2') return request.price == 0;
    return request.price != 0 && request.price % cent == 0;
}

bool tif_is_known(char tif) {
    return std::string_view("DEFIRT").find(tif) != std::string_view::npos;
}

bool expiry_fits(const NewOrder& request, std::uint64_t now_ns) {
    return request.tif == 'T' ? request.expire_time > now_ns / 1'000'000 : request.expire_time == 0;
}

}  // namespace

void Venue::new_order(int client, const NewOrder& request, Answers& answers) {
    char reason = reject_reason(request);
    if (reason == ' ' && bench.happens_on(Bench::reject, ++bench.orders)) {
        write_scripted_reject(request);
        reason = 'R';
    }
    if (reason != ' ') return answers.push_back(new_order_response(now_ns_, request, 0, reason));

    Order order = accept(client, request, answers);
    if (ends_before_matching(order, answers)) return close(order.client_order_id);
    match(order, answers);
    if (order.leaves == 0) {
        live_ids.erase(order.client_order_id);  // leaves no close time: a cancel that comes later is stale at once
    } else if (order.tif == 'I' || order.tif == 'F' || order.order_type == '2') {
        answers.push_back(system_cancel(order, 0, 'C', "expired"));
        close(order.client_order_id);
    } else {
        rest(order, answers);
        if (!bench.happens_on(Bench::unsolicited_cancel, bench.accepts)) return;
        pending_cancels_.push_back({order.client_order_id, world_.steady_ms() + unsolicited_cancel_delay_ms});
    }
}

char Venue::reject_reason(const NewOrder& request) const {
    if (!books.has_product(request.product_id)) return 'S';
    if (request.client_order_id.empty()) return 'O';
    if (request.mpid.size() != 4) return 'I';
    if (request.size == 0) return 'K';
    if (request.size > settings_.max_order_size) return 'M';
    if (request.order_type != '1' && request.order_type != '2') return 'T';
    if (!price_fits(request)) return 'J';
    if (!tif_is_known(request.tif)) return 'b';
    if (!expiry_fits(request, now_ns_)) return '@';
    if (is_sell(request) != is_short_sale(request)) return 'V';
    if (live_ids.contains(request.client_order_id)) return 'A';
    return ' ';
}

void Venue::write_scripted_reject(const NewOrder& request) {
    ++bench.rejects;
    write({.event = "reject",
           .client_order_id = request.client_order_id,
           .symbol = books.product(request.product_id).name,
           .side = is_sell(request) ? 'S' : 'B',
           .quantity = request.size,
           .price = book_price(request.price),
           .text = "bench:scripted_reject"});
}

Order Venue::accept(int client, const NewOrder& request, Answers& answers) {
    Order order;
    order.id = next_order_id_++;
    order.product_id = request.product_id;
    order.buy = !is_sell(request);
    order.price = book_price(request.price);
    order.leaves = order.size = request.size;
    order.owner = client;
    order.client_order_id = request.client_order_id;
    order.mpid = request.mpid;
    order.tif = request.tif;
    order.order_type = request.order_type;
    order.order_flags = request.order_flags;
    live_ids[order.client_order_id] = order.id;
    ++bench.accepts;
    answers.push_back(new_order_response(now_ns_, request, order.id, ' '));
    answers.push_back(order_accepted(now_ns_, request, order.id));
    write(truth_of("new", order));
    return order;
}

// Post-only comes before all-or-nothing: an order that is both and crosses ends as post-only, and is told its full size
// as leaves, because the quantity cancelled is passed as nothing.
bool Venue::ends_before_matching(const Order& order, Answers& answers) {
    if (is_post_only(order) && books.crosses(order.product_id, order.buy, order.price)) {
        answers.push_back(system_cancel(order, order.leaves, 'E', "post_only"));
        return true;
    }
    if (order.tif == 'F' && order.leaves > books.within(order.product_id, order.buy, order.price)) {
        answers.push_back(system_cancel(order, 0, 'C', "expired"));
        return true;
    }
    return false;
}

void Venue::rest(const Order& order, Answers& answers) {
    come_to_rest(order);
    const bool at_best = books.product(order.product_id).side(order.buy).begin()->first == order.price;
    answers.push_back(order_resting(now_ns_, order, at_best));
}

}  // namespace kavo::model
