#include "kavo/audit/order_rules.h"

#include <array>
#include <utility>

#include "client/packets.h"
#include "engine/meo.h"
#include "kavo/audit/audit.h"
#include "kavo/audit/rules.h"

namespace kavo::companion {

namespace {

constexpr std::array order_table{
    Rule{
        "order.id-unique",
        "Every order and every replace has an id of its own: an id is not used again while its order lives or may "
        "live, nor on the same connection after its end. What was rejected, and what never arrived, may be sent again.",
        "docs/protocol_meo.md#late-executions"},
    Rule{"order.cancel-of-ended",
         "What the client was told has ended is neither cancelled nor replaced. Cancel and end may cross on the wire.",
         "docs/protocol_meo.md#deliberate-and-easily-missed"},
    Rule{"order.cancel-of-unknown", "Only an id that this user has given to an order is cancelled or replaced.",
         "docs/protocol_meo.md#deliberate-and-easily-missed"},
    Rule{"order.refused-by-check",
         "The venue has no reason to refuse a request for what stands in it. A test may well give it one on purpose.",
         "docs/protocol_meo.md#the-checks-in-their-order"},
};
static_assert(order_table.size() == static_cast<std::size_t>(OrderRule::refused_by_check) + 1);

}  // namespace

std::span<const Rule> order_rules() {
    return order_table;
}

const Rule& rule(OrderRule which) {
    return order_table[static_cast<std::size_t>(which)];
}

SentIds::SentIds(const std::vector<ClientEvent>& events) {
    for (const ClientEvent& event : events) {
        if (event.kind != ClientEvent::Kind::request) continue;
        const ByteView message = client::payload_of(event.packet->bytes);
        namespace at = meo::layout;
        if (meo::read_new_order(message)) {
            sent_.emplace(event.conversation, terminated_text(message, at::new_order::client_order_id));
        } else if (meo::read_replace(message)) {
            sent_.emplace(event.conversation, terminated_text(message, at::replace::client_order_id));
        }
    }
}

bool SentIds::has(const Conversation& conversation, std::string_view id) const {
    return sent_.count({&conversation, id}) != 0;
}

void audit_orders(const Journal& journal, Verdict& verdict) {
    Verdict found;
    const Circumstances circumstances(journal);
    const std::vector<ClientEvent> events = client_events(journal);
    const SentIds sent(events);
    for (const EventList& user : by_user(events)) {
        audit_ids_and_cancels(user, sent, circumstances, found);
        audit_refusals(user, found);
    }
    hand_over(journal, std::move(found), verdict);
}

}  // namespace kavo::companion
