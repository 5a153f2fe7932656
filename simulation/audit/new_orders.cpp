// New orders: judged, accepted, traded, and what becomes of the rest.
#include <charconv>

#include "audit/audited_orders.h"
#include "audit/finding.h"

namespace kavo::simulation {

namespace {

constexpr std::uint64_t unsolicited_cancel_delay_ms = 300;
constexpr std::uint64_t cent = 10'000;  // on the wire

std::uint32_t book_price(std::uint64_t wire_price) {
    return static_cast<std::uint32_t>(wire_price / 100);
}

bool price_fits(const model::NewOrder& request) {
    return request.order_type == '2' ? request.price == 0 : request.price != 0 && request.price % cent == 0;
}

bool expiry_fits(const model::NewOrder& request, std::uint64_t now_ns) {
    return request.tif == 'T' ? request.expire_time > now_ns / ns_per_ms : request.expire_time == 0;
}

// The id that a truth line gives to an order: the line alone tells it while the venue is silent.
std::uint64_t order_id_in(std::string_view line) {
    constexpr std::string_view key = "\"oid\":";
    const std::size_t at = line.find(key);
    if (at == std::string_view::npos) throw Finding("a truth line without an order id");
    std::uint64_t id = 0;
    std::from_chars(line.data() + at + key.size(), line.data() + line.size(), id);
    return id;
}

}  // namespace

void AuditedOrders::new_order(int client, const model::NewOrder& request, Answers& answers) {
    char reason = reject_reason(request);
    if (reason == ' ' && scripted_reject(request)) reason = 'R';
    if (reason != ' ') return answers.push_back(model::new_order_response(request_ns_, request, 0, reason));

    ClientOrder& entered = accept(client, request, answers);
    if (ends_before_matching(entered, answers)) return;
    match(entered, answers);
    const model::Order& order = entered.order;
    if (order.leaves == 0) return end(entered);
    if (order.tif == 'I' || order.tif == 'F' || order.order_type == '2') {
        answers.push_back(system_cancel(entered, 0, 'C', "expired"));
        close(order.client_order_id);
        return end(entered);
    }
    rest(entered, answers);
    bench_.unsolicited_cancel.occasions = bench_.accepts - 1;  // it counts what was accepted, resting or not
    if (!bench_.unsolicited_cancel.happens()) return;
    pending_.push_back({order.client_order_id, witness_.now_ms() + unsolicited_cancel_delay_ms});
}

char AuditedOrders::reject_reason(const model::NewOrder& request) const {
    const bool sell = (request.order_flags & 1) != 0;
    const bool short_sale = (request.order_flags & 6) != 0;
    if (request.product_id == 0 || request.product_id > books_.products()) return 'S';
    if (request.client_order_id.empty()) return 'O';
    if (request.mpid.size() != 4) return 'I';
    if (request.size == 0) return 'K';
    if (request.size > plan_.engine.max_order_size) return 'M';
    if (request.order_type != '1' && request.order_type != '2') return 'T';
    if (!price_fits(request)) return 'J';
    if (std::string_view("DEFIRT").find(request.tif) == std::string_view::npos) return 'b';
    if (!expiry_fits(request, request_ns_)) return '@';
    if (sell != short_sale) return 'V';
    if (is_live(request.client_order_id)) return 'A';
    return ' ';
}

bool AuditedOrders::scripted_reject(const model::NewOrder& request) {
    if (!bench_.reject.happens()) return false;
    ++bench_.rejects;
    Truth truth;
    truth.event = "reject";
    truth.id = request.client_order_id;
    truth.symbol = books_.symbol(request.product_id);
    truth.side = (request.order_flags & 1) != 0 ? 'S' : 'B';
    truth.quantity = request.size;
    truth.price = book_price(request.price);
    truth.text = "bench:scripted_reject";
    expect_truth(truth);
    return true;
}

AuditedOrders::ClientOrder& AuditedOrders::accept(int client, const model::NewOrder& request, Answers& answers) {
    const std::uint64_t id = order_id_in(witness_.peek_line(What::order_truth));
    take_order_id(id);
    ClientOrder& entered = orders_[id];
    model::Order& order = entered.order;
    order.id = id;
    order.product_id = request.product_id;
    order.buy = (request.order_flags & 1) == 0;
    order.price = book_price(request.price);
    order.leaves = entered.size = request.size;
    order.owner = client;
    order.client_order_id = request.client_order_id;
    order.mpid = request.mpid;
    order.tif = request.tif;
    order.order_type = request.order_type;
    order.order_flags = request.order_flags;
    live_ids_[order.client_order_id] = id;
    ++bench_.accepts;
    answers.push_back(model::new_order_response(request_ns_, request, id, ' '));
    answers.push_back(model::order_accepted(request_ns_, request, id));
    expect_truth(truth_of("new", entered));
    return entered;
}

// An order that must not trade at once, or not in part. The first shows its whole size as left.
bool AuditedOrders::ends_before_matching(ClientOrder& entered, Answers& answers) {
    const model::Order& order = entered.order;
    const bool post_only = (order.order_flags & 0x10) != 0;
    if (post_only && books_.crosses(order.product_id, order.buy, order.price)) {
        answers.push_back(system_cancel(entered, order.leaves, 'E', "post_only"));
    } else if (order.tif == 'F' && order.leaves > books_.within(order.product_id, order.buy, order.price)) {
        answers.push_back(system_cancel(entered, 0, 'C', "expired"));
    } else {
        return false;
    }
    close(order.client_order_id);
    end(entered);
    return true;
}

void AuditedOrders::rest(const ClientOrder& entered, Answers& answers) {
    const model::Order& order = entered.order;
    feed_.publish(model::add_order(feed_.stamped_ns(), order));
    books_.add({order.id, order.product_id, order.buy, order.price, order.leaves});
    expect_change_line(order.product_id);
    const bool at_touch = books_.best(order.product_id, order.buy)->price == order.price;
    answers.push_back(model::order_resting(request_ns_, order, at_touch));
}

}  // namespace kavo::simulation
