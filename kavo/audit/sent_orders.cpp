#include "kavo/audit/sent_orders.h"

#include <algorithm>

#include "client/packets.h"
#include "client/responses.h"

namespace kavo::companion {

namespace {

ByteView message_of(const ClientEvent& event) {
    return client::read_sequenced(event.packet->bytes)->message;
}

}  // namespace

IdUse* SentOrders::sent(const ClientEvent& request) {
    const ByteView message = client::payload_of(request.packet->bytes);
    if (meo::read_new_order(message)) {
        namespace at = meo::layout::new_order;
        IdUse& use = add(terminated_text(message, at::client_order_id), orders_.emplace_back(), request);
        use.quantity = get(message, at::quantity);
        use.order->total = use.quantity;
        return &use;
    }
    if (!meo::read_replace(message)) return nullptr;
    namespace at = meo::layout::replace;
    IdUse* replaced = living(terminated_text(message, at::orig_client_order_id));
    SentOrder& order = replaced != nullptr ? *replaced->order : orders_.emplace_back();
    IdUse& use = add(terminated_text(message, at::client_order_id), order, request);
    use.by_replace = true;
    use.quantity = get(message, at::quantity);
    use.replaced = replaced;
    ++use.order->replaces_pending;
    return &use;
}

IdUse& SentOrders::add(std::string_view id, SentOrder& order, const ClientEvent& request) {
    IdUse& use = all_.emplace_back();
    order.uses.push_back(&use);
    use.order = &order;
    use.id = id;
    use.sent = &request;
    by_id_[id].push_back(&use);
    return use;
}

const std::vector<IdUse*>& SentOrders::uses(std::string_view id) const {
    static const std::vector<IdUse*> none;
    const auto found = by_id_.find(id);
    return found == by_id_.end() ? none : found->second;
}

IdUse* SentOrders::latest_rejected(std::string_view id) const {
    const std::vector<IdUse*>& all = uses(id);
    const auto found =
        std::find_if(all.rbegin(), all.rend(), [](const IdUse* use) { return use->answer == IdUse::Answer::rejected; });
    return found == all.rend() ? nullptr : *found;
}

IdUse* SentOrders::unanswered(std::string_view id, bool by_replace) const {
    const std::vector<IdUse*>& all = uses(id);
    const auto found = std::find_if(all.begin(), all.end(), [&](const IdUse* use) {
        return use->answer == IdUse::Answer::none && use->by_replace == by_replace;
    });
    return found == all.end() ? nullptr : *found;
}

IdUse* SentOrders::living(std::string_view id) const {
    IdUse* only = nullptr;
    for (IdUse* use : uses(id)) {
        if (use->answer == IdUse::Answer::rejected) continue;
        if (only != nullptr) return nullptr;
        only = use;
    }
    return only;
}

bool SentOrders::told(const ClientEvent& message) {
    const bool fresh = numbers_.insert(message.number).second;
    if (fresh) {
        take(message);
        return true;
    }
    const auto [first, last] = ended_by_.equal_range(message.number);
    for (auto it = first; it != last; ++it) {
        it->second->told_end.push_back({message.conversation, message.read_ns});
    }
    return false;
}

void SentOrders::forget() {
    *this = SentOrders();
}

void SentOrders::take(const ClientEvent& event) {
    const ByteView message = message_of(event);
    if (const auto accepted = client::read_order_accepted(message)) told_ids_.insert(accepted->client_order_id);
    if (client::read_new_order_response(message)) return take_new_order_answer(event);
    if (client::read_replace_response(message)) return take_replace_answer(event);
    if (client::read_execution(message)) return take_execution(event);
    if (const auto replaced = client::read_replace_notification(message)) {
        IdUse* use = living(replaced->client_order_id);
        if (use != nullptr && replaced->leaves == 0) end(*use, "closed by its replace", event);
    }
    if (const auto cancelled = client::read_order_cancelled(message)) {
        told_ids_.insert(cancelled->client_order_id);
        if (IdUse* use = living(cancelled->client_order_id)) end(*use, "cancelled", event);
    }
}

void SentOrders::take_new_order_answer(const ClientEvent& event) {
    const auto answer = *client::read_new_order_response(message_of(event));
    if (answer.accepted()) told_ids_.insert(answer.client_order_id);
    IdUse* use = unanswered(answer.client_order_id, false);
    if (use == nullptr) return;
    use->answer = answer.accepted() ? IdUse::Answer::accepted : IdUse::Answer::rejected;
    if (!answer.accepted()) end(*use, "rejected", event);
}

void SentOrders::take_replace_answer(const ClientEvent& event) {
    const auto answer = *client::read_replace_response(message_of(event));
    if (answer.accepted()) told_ids_.insert(answer.client_order_id);
    IdUse* use = unanswered(answer.client_order_id, true);
    if (use == nullptr) return;
    --use->order->replaces_pending;
    use->answer = answer.accepted() ? IdUse::Answer::accepted : IdUse::Answer::rejected;
    if (!answer.accepted()) return end(*use, "rejected", event);
    use->order->total = use->quantity;
    if (use->replaced != nullptr) end(*use->replaced, "replaced", event);
}

// An execution names the order by the id under which it was hit. What was filled to the last share has ended, under
// whatever id it stands by then.
void SentOrders::take_execution(const ClientEvent& event) {
    const auto execution = *client::read_execution(message_of(event));
    told_ids_.insert(execution.client_order_id);
    const IdUse* hit = living(execution.client_order_id);
    if (hit == nullptr) return;
    SentOrder& order = *hit->order;
    order.executed += execution.quantity;
    if (order.executed < order.total || order.replaces_pending > 0) return;
    for (IdUse* use : order.uses) {
        if (use->answer != IdUse::Answer::rejected) end(*use, "filled", event);
    }
}

void SentOrders::end(IdUse& use, std::string_view how, const ClientEvent& event) {
    if (!use.end.empty()) return;
    use.end = how;
    use.told_end.push_back({event.conversation, event.read_ns});
    ended_by_.emplace(event.number, &use);
}

}  // namespace kavo::companion
