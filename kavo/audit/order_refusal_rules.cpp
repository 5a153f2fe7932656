// Requests that a check of the venue has refused, counted by reason.
#include <map>
#include <set>
#include <utility>

#include "client/packets.h"
#include "client/responses.h"
#include "kavo/audit/order_rules.h"
#include "kavo/audit/wording.h"

namespace kavo::companion {

namespace {

struct Refusal {
    std::string_view what;  // was asked for
    char reason = ' ';
    std::string_view id;
    std::string_view cause;
};

// Scripted rejects are never the client's fault, ids in use are another rule's, and a cancel that comes too late has
// lost a race.
std::string_view cause_of(meo::NewOrderReason reason) {
    using enum meo::NewOrderReason;
    switch (reason) {
        case unknown_product: return "no such product";
        case no_client_order_id: return "no client order id";
        case invalid_mpid: return "a participant without exactly four characters";
        case no_quantity: return "a quantity of 0";
        case quantity_above_maximum: return "a quantity above --max-order-size";
        case invalid_order_type: return "an unknown order type";
        case invalid_price: return "a price that cannot be";
        case invalid_tif: return "an unknown time in force";
        case invalid_expire_time: return "an expire time that cannot be";
        case invalid_short_sale: return "a short-sale type that does not go with the side";
        default: return {};
    }
}

std::string_view cause_of(meo::ReplaceReason reason) {
    switch (reason) {
        case meo::ReplaceReason::mpid_mismatch: return "another participant than the order's";
        case meo::ReplaceReason::invalid_price: return "a price that cannot be";
        case meo::ReplaceReason::no_quantity: return "a quantity of 0";
        default: return {};
    }
}

std::string_view cause_of(meo::CancelReason reason) {
    switch (reason) {
        case meo::CancelReason::mpid_mismatch: return "another participant than the order's";
        case meo::CancelReason::product_mismatch: return "another product than the order's";
        default: return {};
    }
}

Refusal refusal_in(ByteView message) {
    if (const auto answer = client::read_new_order_response(message)) {
        return {"order", static_cast<char>(answer->reason), answer->client_order_id, cause_of(answer->reason)};
    }
    if (const auto answer = client::read_replace_response(message)) {
        return {"replace", static_cast<char>(answer->reason), answer->client_order_id, cause_of(answer->reason)};
    }
    if (const auto answer = client::read_cancel_response(message)) {
        return {"cancel", static_cast<char>(answer->reason), answer->orig_client_order_id, cause_of(answer->reason)};
    }
    return {};
}

}  // namespace

void audit_refusals(const EventList& user, Verdict& verdict) {
    struct Many {
        const ClientEvent* first = nullptr;
        Refusal refusal;
        std::uint64_t count = 0;
    };
    std::map<std::pair<std::string_view, char>, Many> many;
    std::set<std::uint64_t> numbers;
    for (const ClientEvent* event : user) {
        if (event->kind != ClientEvent::Kind::message || !numbers.insert(event->number).second) continue;
        const Refusal refusal = refusal_in(client::read_sequenced(event->packet->bytes)->message);
        if (refusal.cause.empty()) continue;
        Many& same = many[{refusal.what, refusal.reason}];
        if (same.count++ == 0) same = {event, refusal, 1};
    }
    for (const auto& [key, same] : many) {
        Finding found = finding_at(rule(OrderRule::refused_by_check), *same.first);
        found.grade = Grade::remark;
        found.expected = "requests without " + std::string(same.refusal.cause);
        found.got = counted(same.count, same.refusal.what) + " with " + std::string(same.refusal.cause) +
                    ", the first " + in_quotes(same.refusal.id);
        found.truth = "answered with reason " + in_quotes(std::string_view(&key.second, 1));
        found.where.order = same.refusal.id;
        verdict.findings.push_back(found);
    }
}

}  // namespace kavo::companion
