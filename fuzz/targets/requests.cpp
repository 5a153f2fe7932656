// Order-entry requests: what is read of them is what stands on paper, and every response that gives it back carries the
// very bytes that the model would send.
#include <algorithm>

#include "engine/meo.h"
#include "harness/harness.h"
#include "model/wire.h"

namespace kavo::fuzz {
namespace {

constexpr std::uint64_t now_ns = 1'700'000'000'123'456'789;
constexpr std::uint64_t order_id = 0x0102030405060708;
constexpr std::uint32_t leaves = 0x090A0B0C;
constexpr Price inside_price = 0xFFFFFFFF;

bool same(const meo::Message& built, const model::Bytes& literal) {
    return std::ranges::equal(built.bytes(), literal);
}

// The order that an accepted request becomes, on both sides.
model::Order literal_order(const model::NewOrder& request) {
    model::Order order;
    order.id = order_id;
    order.product_id = request.product_id;
    order.buy = request.order_flags % 2 == 0;
    order.price = inside_price;
    order.client_order_id = request.client_order_id;
    order.mpid = request.mpid;
    return order;
}

void check_order_reports(const meo::NewOrderRequest& request, const model::Order& order) {
    using model::execution;
    using model::order_cancelled;
    using model::order_resting;
    const bool at_touch = request.quantity % 2 == 0;
    const char listing = request.flags.post_only() ? 'P' : 'Q';
    const meo::OrderResting resting{now_ns,  request.product_id, order_id, request.client_order_id, inside_price,
                                    at_touch};
    require(same(build(resting), order_resting(now_ns, order, at_touch)), "P1");
    const meo::Execution fill{now_ns,       request.mpid, request.product_id, request.client_order_id, 7,      8,
                              inside_price, leaves,       order.buy,          meo::Liquidity::removed, listing};
    require(same(build(fill), execution(now_ns, order, listing, {7, 8, inside_price, leaves, 'R'})), "E1");
    const meo::OrderCancelled gone{now_ns,
                                   request.mpid,
                                   request.client_order_id,
                                   request.product_id,
                                   order_id,
                                   leaves,
                                   meo::SystemCancelReason::unsolicited};
    require(same(build(gone), order_cancelled(now_ns, order, leaves, 'H')), "XN");
}

bool check_new_order(ByteView message, const model::Bytes& paper) {
    const auto request = meo::read_new_order(message);
    const std::optional<model::NewOrder> literal = model::read_new_order(paper);
    require(request.has_value() == literal.has_value(), "a new order is read when it is one");
    if (!request) return false;
    const auto reason = meo::NewOrderReason::invalid_price;
    require(same(build(meo::NewOrderResponse{now_ns, *request, order_id, reason}),
                 model::new_order_response(now_ns, *literal, order_id, 'J')),
            "NR");
    require(
        same(build(meo::OrderAccepted{now_ns, *request, order_id}), model::order_accepted(now_ns, *literal, order_id)),
        "O1");
    require(request->mpid.complete() == (literal->mpid.size() == 4), "a participant has four characters");
    require(request->client_order_id.empty() == literal->client_order_id.empty(), "an id is empty when it reads so");
    check_order_reports(*request, literal_order(*literal));
    return true;
}

bool check_replace(ByteView message, const model::Bytes& paper) {
    const auto request = meo::read_replace(message);
    const std::optional<model::Replace> literal = model::read_replace(paper);
    require(request.has_value() == literal.has_value(), "a replace is read when it is one");
    if (!request) return false;
    model::Order order;
    order.id = order_id;
    order.product_id = 3;
    const auto reason = meo::ReplaceReason::scripted;
    require(same(build(meo::ReplaceResponse{now_ns, *request, order_id, leaves, reason}),
                 model::replace_response(now_ns, *literal, order_id, leaves, 'H')),
            "MR");
    require(same(build(meo::ReplaceNotification{now_ns, *request, order.product_id, order_id, leaves}),
                 model::replace_notice(now_ns, *literal, order, leaves)),
            "MN");
    return true;
}

bool check_cancel(ByteView message, const model::Bytes& paper) {
    const auto request = meo::read_cancel(message);
    const std::optional<model::Cancel> literal = model::read_cancel(paper);
    require(request.has_value() == literal.has_value(), "a cancel is read when it is one");
    if (!request) return false;
    const auto reason = meo::CancelReason::unknown_or_late;
    require(same(build(meo::CancelResponse{now_ns, *request, order_id, reason}),
                 model::cancel_response(now_ns, *literal, order_id, 'D')),
            "CR");
    return true;
}

void read_request(ByteView message) {
    const model::Bytes paper(message.begin(), message.end());
    const int kinds = check_new_order(message, paper) + check_replace(message, paper) + check_cancel(message, paper);
    require(kinds <= 1, "a message is one request at most");
}

}  // namespace
}  // namespace kavo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    return kavo::fuzz::run({data, size}, kavo::fuzz::read_request);
}
