#include "model/literal_venue.h"

#include <algorithm>

namespace kavo::model {
namespace {

constexpr std::uint64_t nanoseconds_in_a_millisecond = 1'000'000;
constexpr std::uint64_t unsolicited_cancel_delay_ms = 300;

bool is_sell(const NewOrder& request) {
    return (request.order_flags & 1) != 0;
}
bool is_post_only(const Order& order) {
    return (order.order_flags & 0x10) != 0;
}

bool tif_is_known(char tif) {
    return std::string_view("DEFIRT").find(tif) != std::string_view::npos;
}

bool short_sale_fits(const NewOrder& request) {
    const bool marked = ((request.order_flags >> 1) & 3) != 0;
    return is_sell(request) == marked;
}

bool expiry_fits(const NewOrder& request, std::uint64_t wall_ns) {
    if (request.tif != 'T') return request.expire_time == 0;
    return wall_ns / nanoseconds_in_a_millisecond < request.expire_time;
}

}  // namespace

bool fault_fires(std::uint64_t count, std::uint32_t every, std::uint32_t& next) {
    if (every != 0 && count % every == 0) {
        if (next != 0) --next;
        return true;
    }
    if (next != 0) {
        --next;
        return true;
    }
    return false;
}

LiteralVenue::LiteralVenue(const Settings& settings)
    : step_bps(settings.step_bps),
      touch_hit(settings.touch_hit),
      session_(settings.session),
      acod_(settings.acod),
      max_order_size_(settings.max_order_size),
      generator_(settings.seed) {
    for (const Symbol& symbol : settings.symbols) {
        Product product;
        product.name = symbol.name;
        product.product_id = static_cast<std::uint32_t>(products.size() + 1);
        product.listing = symbol.name == "SPY" ? 'P' : 'Q';
        product.reference = symbol.reference;
        products.push_back(product);
    }
}

Answers LiteralVenue::start_of_session() const {
    Answers answers{start_of_session_message(wall_ns, session_)};
    for (const Product& product : products) answers.push_back(symbol_update(wall_ns, product));
    return answers;
}

std::optional<Answers> LiteralVenue::new_order(int client, const Bytes& message) {
    const std::optional<NewOrder> request = read_new_order(message);
    if (!request) return std::nullopt;
    if (const char reason = reject_reason(*request); reason != ' ') {
        return Answers{new_order_response(wall_ns, *request, 0, reason)};
    }
    if (fault_fires(++orders, reject_every, reject_next)) {
        ++rejects;
        write_truth({.event = "reject",
                     .client_order_id = request->client_order_id,
                     .symbol = products.at(request->product_id - 1).name,
                     .side = is_sell(*request) ? 'S' : 'B',
                     .quantity = request->size,
                     .price = book_price(request->price),
                     .text = "bench:scripted_reject"});
        return Answers{new_order_response(wall_ns, *request, 0, 'R')};
    }
    Answers answers;
    accept(client, *request, answers);
    return answers;
}

char LiteralVenue::reject_reason(const NewOrder& request) const {
    if (request.product_id == 0 || request.product_id > products.size()) return 'S';
    if (request.client_order_id.empty()) return 'O';
    if (request.mpid.size() != 4) return 'I';
    if (request.size == 0) return 'K';
    if (request.size > max_order_size_) return 'M';
    if (request.order_type != '1' && request.order_type != '2') return 'T';
    if (!price_is_valid(request)) return 'J';
    if (!tif_is_known(request.tif)) return 'b';
    if (!expiry_fits(request, wall_ns)) return '@';
    if (!short_sale_fits(request)) return 'V';
    if (live_ids.contains(request.client_order_id)) return 'A';
    return ' ';
}

bool LiteralVenue::price_is_valid(const NewOrder& request) const {
    if (request.order_type == '2') return request.price == 0;
    return request.price != 0 && request.price % 10000 == 0;
}

void LiteralVenue::accept(int client, const NewOrder& request, Answers& answers) {
    Order order;
    order.id = next_order_id++;
    order.product_id = request.product_id;
    order.buy = !is_sell(request);
    order.price = book_price(request.price);
    order.leaves = request.size;
    order.owner = client;
    order.client_order_id = request.client_order_id;
    order.mpid = request.mpid;
    order.tif = request.tif;
    order.order_type = request.order_type;
    order.order_flags = request.order_flags;

    answers.push_back(new_order_response(wall_ns, request, order.id, ' '));
    answers.push_back(order_accepted(wall_ns, request, order.id));
    ++accepts;
    executed[order.client_order_id] = 0;
    original_size[order.client_order_id] = request.size;
    live_ids[order.client_order_id] = order.id;
    write_order_truth("new", order, {.quantity = request.size});

    if (is_cancelled_unmatched(order, answers)) {
        end_client_order_id(order.client_order_id);
        return;
    }
    match(order, &answers);
    settle_remainder(order, answers);
}

// Post-only comes before all-or-nothing: an order that is both and crosses ends as post-only, and is told its full size
// as leaves, because the quantity cancelled is passed as nothing.
bool LiteralVenue::is_cancelled_unmatched(const Order& order, Answers& answers) {
    const bool market = order.price == 0;
    const Side& opposite = product_of(order).side(!order.buy);
    const bool crosses = market ? !opposite.empty() && opposite.begin()->first != 0 : reaches_touch(order);
    if (crosses && is_post_only(order)) {
        answers.push_back(system_cancel(order, 0, 'E', "post_only"));
        return true;
    }
    if (order.tif == 'F' && order.leaves > reachable_shares(order)) {
        answers.push_back(system_cancel(order, order.leaves, 'C', "expired"));
        return true;
    }
    return false;
}

std::uint64_t LiteralVenue::reachable_shares(const Order& order) const {
    std::uint64_t sum = 0;
    for (const auto& [price, queue] : product_of(order).side(!order.buy)) {
        if (order.price != 0 && (order.buy ? price > order.price : price < order.price)) break;
        for (const std::uint64_t id : queue) sum += live_orders.at(id).leaves;
    }
    return sum;
}

// An order that trades away at once leaves no close time behind: a cancel that comes after it names an unknown id.
void LiteralVenue::settle_remainder(Order& order, Answers& answers) {
    if (order.leaves == 0) {
        live_ids.erase(order.client_order_id);
        return;
    }
    if (order.tif == 'I' || order.tif == 'F' || order.order_type == '2') {
        answers.push_back(system_cancel(order, order.leaves, 'C', "expired"));
        end_client_order_id(order.client_order_id);
        return;
    }
    come_to_rest(order, answers);
    schedule_unsolicited_cancel(order);
}

void LiteralVenue::come_to_rest(const Order& order, Answers& answers) {
    add_to_book(order);
    const bool at_best = product_of(order).side(order.buy).begin()->first == order.price;
    answers.push_back(order_resting(wall_ns, order, at_best));
}

void LiteralVenue::schedule_unsolicited_cancel(const Order& order) {
    if (!fault_fires(accepts, unsolicited_cancel_every, unsolicited_cancel_next)) return;
    pending_cancels.push_back({order.client_order_id, steady_ms + unsolicited_cancel_delay_ms});
}

}  // namespace kavo::model
