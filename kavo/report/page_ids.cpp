#include "kavo/report/page_ids.h"

#include <iterator>

#include "client/responses.h"
#include "engine/meo.h"

namespace kavo::companion {

std::vector<std::string> ids_of_request(ByteView message) {
    if (const auto m = meo::read_new_order(message)) return {m->client_order_id.str()};
    if (const auto m = meo::read_cancel(message)) return {m->orig_client_order_id.str()};
    if (const auto m = meo::read_replace(message)) return {m->orig_client_order_id.str(), m->client_order_id.str()};
    return {};
}

Named named_by_response(ByteView message) {
    const auto one = [](std::string_view id, std::uint64_t order_id) { return Named{{std::string(id)}, order_id, 0}; };
    const auto two = [](const auto& m) {
        return Named{{std::string(m.orig_client_order_id), std::string(m.client_order_id)}, m.order_id, 0};
    };
    if (const auto m = client::read_new_order_response(message)) return one(m->client_order_id, m->order_id);
    if (const auto m = client::read_order_accepted(message)) return one(m->client_order_id, m->order_id);
    if (const auto m = client::read_order_resting(message)) return one(m->client_order_id, m->order_id);
    if (const auto m = client::read_execution(message))
        return Named{{std::string(m->client_order_id)}, 0, m->execution_id};
    if (const auto m = client::read_order_cancelled(message)) return one(m->client_order_id, m->order_id);
    if (const auto m = client::read_cancel_response(message)) return one(m->orig_client_order_id, m->order_id);
    if (const auto m = client::read_replace_response(message)) return two(*m);
    if (const auto m = client::read_replace_notification(message)) return two(*m);
    return {};
}

const std::string* Owners::of(const std::string& id, std::uint64_t ns, std::uint64_t order_id) const {
    const auto known = by_number_.find(order_id);
    if (known != by_number_.end()) return &known->second;
    const auto senders = senders_.find(id);
    if (senders == senders_.end()) return nullptr;
    const auto behind = senders->second.upper_bound(ns);
    return behind == senders->second.begin() ? &behind->second : &std::prev(behind)->second;
}

}  // namespace kavo::companion
