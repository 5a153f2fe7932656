// Ids: each is given to one order, and only what lives is cancelled or replaced.
#include <algorithm>

#include "client/packets.h"
#include "client/responses.h"
#include "kavo/audit/order_rules.h"
#include "kavo/audit/sent_orders.h"
#include "kavo/audit/wording.h"

namespace kavo::companion {

namespace {

using Kind = ClientEvent::Kind;

std::string what_it_is(const IdUse& use) {
    return (use.by_replace ? "a replace that gives the id " : "an order with the id ") + in_quotes(use.id);
}

class IdAudit {
public:
    IdAudit(const SentIds& sent_before, const Circumstances& circumstances, Verdict& verdict)
        : sent_before_(sent_before), circumstances_(circumstances), verdict_(verdict) {}

    void take(const ClientEvent& event) {
        if (event.kind == Kind::request && event.in_session) take_request(event);
        if (event.kind == Kind::message && orders_.told(event)) take_rejection(event);
        const bool another_stream = event.kind == Kind::answer && event.status == refused_number;
        if (another_stream) orders_.forget();
    }

private:
    static constexpr char refused_number = static_cast<char>(esesm::LoginStatus::invalid_start_sequence);

    void take_request(const ClientEvent& event) {
        const ByteView message = client::payload_of(event.packet->bytes);
        namespace at = meo::layout;
        if (meo::read_cancel(message)) {
            judge_target(event, "a cancel", terminated_text(message, at::cancel::orig_client_order_id));
        } else if (meo::read_replace(message)) {
            judge_target(event, "a replace", terminated_text(message, at::replace::orig_client_order_id));
        }
        if (IdUse* use = orders_.sent(event)) judge_id(*use);
    }

    // The uses before it, of the same id.
    void judge_id(IdUse& use) {
        const std::vector<IdUse*>& all = orders_.uses(use.id);
        if (use.id.empty() || all.size() < 2) return;
        const IdUse& before = *all[all.size() - 2];
        const bool same_connection = before.sent->conversation == use.sent->conversation;
        if (before.answer == IdUse::Answer::rejected) return;
        if (before.answer == IdUse::Answer::none && !same_connection) return;
        const bool is_over = !before.end.empty();
        if (!same_connection && is_over && said_again_) return;
        said_again_ = said_again_ || (!same_connection && is_over);
        use.convicted = true;
        Finding found = id_finding(*use.sent, use);
        if (!same_connection && is_over) found.grade = Grade::remark;
        found.truth =
            "the client has given this id before, at " + circumstances_.at(before.sent->at.ns) +
            (is_over ? ", and was told that it was " + before.end : std::string(", and was not told of its end"));
        verdict_.findings.push_back(found);
    }

    Finding id_finding(const ClientEvent& event, const IdUse& use) const {
        Finding found = finding_at(rule(OrderRule::id_unique), event);
        found.expected = "an id that was never given to an order";
        found.got = what_it_is(use) + " once more";
        found.where.order = use.id;
        return found;
    }

    // Ids of live orders are nobody else's. Those of other users a client cannot know.
    void take_rejection(const ClientEvent& event) {
        const ByteView message = client::read_sequenced(event.packet->bytes)->message;
        std::string_view id;
        if (const auto answer = client::read_new_order_response(message)) {
            if (answer->reason == meo::NewOrderReason::duplicate_client_order_id) id = answer->client_order_id;
        }
        if (const auto answer = client::read_replace_response(message)) {
            if (answer->reason == meo::ReplaceReason::duplicate_client_order_id) id = answer->client_order_id;
        }
        IdUse* use = id.empty() ? nullptr : orders_.latest_rejected(id);
        if (use == nullptr || use->convicted) return;
        use->convicted = true;
        const std::vector<IdUse*>& all = orders_.uses(id);
        const bool own = std::any_of(all.begin(), all.end(), [&](const IdUse* other) {
            return other != use && other->answer == IdUse::Answer::accepted;
        });
        Finding found = id_finding(*use->sent, *use);
        if (!own) found.grade = Grade::remark;
        found.truth = own ? "it was rejected: an order of this user had the id, and lived"
                          : "it was rejected: somebody else's order has the id";
        verdict_.findings.push_back(found);
    }

    void judge_target(const ClientEvent& event, std::string_view what, std::string_view id) {
        const std::vector<IdUse*>& all = orders_.uses(id);
        if (all.empty()) return judge_unknown(event, what, id);
        const IdUse& use = *meant(all);
        if (use.end.empty()) return;
        // Whoever has given an id to two orders has been told of that already.
        const bool ambiguous = std::count_if(all.begin(), all.end(), [](const IdUse* other) {
                                   return other->answer != IdUse::Answer::rejected;
                               }) > 1;
        const auto told = std::find_if(use.told_end.begin(), use.told_end.end(), [&](const IdUse::Told& end) {
            return end.conversation == event.conversation && end.read_ns + crossing_ns < event.packet->begun.ns;
        });
        if (ambiguous || told == use.told_end.end()) return;
        Finding found = finding_at(rule(OrderRule::cancel_of_ended), event);
        found.expected = "no cancel or replace of what has ended";
        found.got = std::string(what) + " of " + in_quotes(id);
        found.truth =
            "the client was told that it was " + use.end + ", " + ms_text(event.at.ns - told->read_ns) + " before";
        found.where.order = id;
        found.because = circumstances_.machine(told->read_ns, event.at.ns, ns_per_ms);
        if (!found.because.empty()) found.grade = Grade::inconclusive;
        verdict_.findings.push_back(found);
    }

    // An order that was rejected does not take the place of its namesake that lives.
    static const IdUse* meant(const std::vector<IdUse*>& all) {
        const auto lived = std::find_if(all.rbegin(), all.rend(),
                                        [](const IdUse* use) { return use->answer != IdUse::Answer::rejected; });
        return lived == all.rend() ? all.back() : *lived;
    }

    void judge_unknown(const ClientEvent& event, std::string_view what, std::string_view id) {
        if (orders_.was_told(id) || sent_before_.has(*event.conversation, id)) return;
        Finding found = finding_at(rule(OrderRule::cancel_of_unknown), event);
        found.expected = "a cancel or replace of an order of this user";
        found.got = std::string(what) + " of " + in_quotes(id);
        found.truth = "this user has never sent an order with that id";
        found.where.order = id;
        verdict_.findings.push_back(found);
    }

    const SentIds& sent_before_;
    const Circumstances& circumstances_;
    Verdict& verdict_;
    SentOrders orders_;
    bool said_again_ = false;  // that ids of ended orders are used again
};

}  // namespace

void audit_ids_and_cancels(const EventList& user, const SentIds& sent_before, const Circumstances& circumstances,
                           Verdict& verdict) {
    IdAudit audit(sent_before, circumstances, verdict);
    for (const ClientEvent* event : user) audit.take(*event);
}

}  // namespace kavo::companion
