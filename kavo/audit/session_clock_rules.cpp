// The clock of one connection: how long the client says nothing, and what it does when it hears nothing.
#include <algorithm>

#include "client/packets.h"
#include "kavo/audit/session_rules.h"
#include "kavo/audit/wording.h"

namespace kavo::companion {

namespace {

using Kind = ClientEvent::Kind;

constexpr std::uint64_t silence_limit_ns = 3'000 * ns_per_ms;   // of either side
constexpr std::uint64_t earliest_leave_ns = 2'500 * ns_per_ms;  // a second without a heartbeat is none yet
constexpr std::uint64_t latest_leave_ns = 5'000 * ns_per_ms;
constexpr std::uint64_t long_stay_ns =
    4'000 * ns_per_ms;                                   // a silence that ends by itself should have been left by then
constexpr std::uint64_t a_while_ns = 1'500 * ns_per_ms;  // of silence: more than a late heartbeat

// The connection as far as the client can be held to anything: from its login to whoever's last word.
bool ends_the_session(const ClientEvent& event) {
    return event.kind == Kind::goodbye || event.kind == Kind::logout || event.kind == Kind::closed;
}

// A finding of time, unless there is a reason why nothing certain can be said.
void keep(Verdict& verdict, Finding found, const std::string& because) {
    found.because = because;
    if (!because.empty()) found.grade = Grade::inconclusive;
    verdict.findings.push_back(std::move(found));
}

// How long the client has said nothing.
class SilenceOfClient {
public:
    SilenceOfClient(const Circumstances& circumstances, Verdict& verdict)
        : circumstances_(circumstances), verdict_(verdict) {}

    void take(const ClientEvent& event) {
        if (event.by_client()) {
            if (logged_in_) judge_gap(event, event.packet->begun.ns);
            last_ns_ = std::max(last_ns_, event.at.ns);
        }
        if (logged_in_ && event.kind == Kind::closed) judge_gap(event, event.at.ns);
        // Whoever still waits for the answer does not know yet that it is logged in.
        if (event.logged_in && !logged_in_) last_ns_ = std::max(last_ns_, event.at.ns);
        over_ = over_ || ends_the_session(event);
        logged_in_ = event.logged_in && !over_;
        last_ = &event;
    }
    // The recording ends, and the connection with it.
    void end() {
        if (logged_in_) judge_gap(*last_, circumstances_.end_ns());
    }

private:
    void judge_gap(const ClientEvent& event, std::uint64_t until_ns) {
        until_ns = std::min(until_ns, circumstances_.end_ns());
        const std::uint64_t gap = until_ns - std::min(until_ns, last_ns_);
        const Conversation& conversation = *event.conversation;
        const bool dropped = event.kind == Kind::closed && conversation.ended_by == EndedBy::venue &&
                             event.at.ns < circumstances_.end_ns() && gap + crossing_ns > silence_limit_ns;
        count_slack(verdict_, rule(SessionRule::heartbeats), gap, silence_limit_ns);
        if (!dropped && gap <= silence_limit_ns + crossing_ns) return;
        Finding found = finding_at(rule(SessionRule::heartbeats), event);
        found.expected = "something sent within 3,000 ms of " + circumstances_.at(last_ns_);
        found.got = event.kind == Kind::closed ? "nothing until the connection ended, " + ms_text(gap) + " later"
                                               : "nothing for " + ms_text(gap);
        if (dropped) found.truth = "the venue closed the connection at " + circumstances_.at(until_ns);
        keep(verdict_, found, excuse(conversation, until_ns));
    }

    std::string excuse(const Conversation& conversation, std::uint64_t until_ns) const {
        const std::string machine = circumstances_.machine(last_ns_, until_ns);
        if (!machine.empty()) return machine;
        if (!conversation.rest_of_client.empty()) return "half a packet came from the client, nobody knows when";
        return circumstances_.relay(conversation.user, until_ns);
    }

    const Circumstances& circumstances_;
    Verdict& verdict_;
    bool logged_in_ = false;
    bool over_ = false;
    std::uint64_t last_ns_ = 0;  // the client's latest byte
    const ClientEvent* last_ = nullptr;
};

// How long the client has heard nothing, and what it did about it.
class SilenceOfVenue {
public:
    SilenceOfVenue(const Circumstances& circumstances, Verdict& verdict)
        : circumstances_(circumstances), verdict_(verdict) {}

    void take(const ClientEvent& event) {
        const bool heard = event.packet != nullptr && !event.packet->by_client;
        const bool goes = event.kind == Kind::login || ends_the_session(event);
        if (waiting_ && goes && left_ == nullptr) left_ = &event;
        if (waiting_ && (heard || event.kind == Kind::closed)) {
            judge(heard ? event.packet->begun.ns : event.at.ns, heard);
        }
        waiting_ = heard ? event.logged_in : waiting_ && event.kind != Kind::closed;
        if (!heard) return;
        last_ = &event;
        noticed_ns_ = std::max(event.at.ns, event.read_ns);
        left_ = nullptr;
    }
    // The recording ends, and the connection with it.
    void end() {
        if (waiting_) judge(circumstances_.end_ns(), false);
    }
    // The end of the connection, when the client brought it about after less of a silence than it should have waited
    // for.
    const ClientEvent* left_early() const { return left_early_; }

private:
    void judge(std::uint64_t until_ns, bool heard) {
        until_ns = std::min(until_ns, circumstances_.end_ns());
        if (left_ != nullptr) until_ns = std::min(until_ns, left_->at.ns);
        const std::uint64_t stayed = until_ns - std::min(until_ns, noticed_ns_);
        if (left_ != nullptr && stayed <= latest_leave_ns + crossing_ns) return judge_leave(stayed);
        if (stayed > latest_leave_ns + crossing_ns) return hold_against(until_ns, Grade::finding);
        if (heard && stayed >= long_stay_ns) hold_against(until_ns, Grade::remark);
    }

    // By a login, a logout or the end of the connection. Leaving early is the client's own affair when it does not come
    // back.
    void judge_leave(std::uint64_t stayed) {
        const bool closed = left_->kind == Kind::closed;
        if (closed && left_->conversation->ended_by != EndedBy::client) return;
        const std::uint64_t silence = left_->at.ns - last_->at.ns;
        if (silence >= earliest_leave_ns) {
            count_slack(verdict_, rule(SessionRule::leaves_silence), stayed, latest_leave_ns);
        } else if (closed && silence >= a_while_ns) {
            left_early_ = left_;
        }
    }

    void hold_against(std::uint64_t until_ns, Grade grade) {
        Finding found = finding_at(rule(SessionRule::leaves_silence), *last_);
        found.grade = grade;
        found.expected = "the client leaves, or logs in again, between 2,500 ms and 5,000 ms of silence";
        found.got = "nothing was heard from " + circumstances_.at(last_->at.ns) + " on, and the client stayed for " +
                    ms_text(until_ns - last_->at.ns);
        if (grade == Grade::remark) return verdict_.findings.push_back(found);
        const bool half = !last_->conversation->rest_to_client.empty();
        keep(verdict_, found,
             half ? "half a packet went to the client, nobody knows when"
                  : circumstances_.machine(last_->at.ns, until_ns));
    }

    const Circumstances& circumstances_;
    Verdict& verdict_;
    bool waiting_ = false;               // logged in, for all that the client knows
    const ClientEvent* last_ = nullptr;  // that was heard
    std::uint64_t noticed_ns_ = 0;       // by a slow reader
    const ClientEvent* left_ = nullptr;  // what the client did about the silence, or what ended it
    const ClientEvent* left_early_ = nullptr;
};

}  // namespace

void audit_heartbeats(const EventList& connection, const Circumstances& circumstances, Verdict& verdict) {
    SilenceOfClient silence(circumstances, verdict);
    for (const ClientEvent* event : connection) silence.take(*event);
    silence.end();
}

void audit_silence(const EventList& connection, const std::vector<ClientEvent>& all, const Circumstances& circumstances,
                   Verdict& verdict) {
    SilenceOfVenue silence(circumstances, verdict);
    for (const ClientEvent* event : connection) silence.take(*event);
    silence.end();
    const ClientEvent* left = silence.left_early();
    if (left == nullptr) return;
    const bool comes_back = std::any_of(all.begin(), all.end(), [&](const ClientEvent& event) {
        return event.kind == Kind::login && event.user == left->user && event.at.ns > left->at.ns;
    });
    if (!comes_back) return;
    Finding found = finding_at(rule(SessionRule::leaves_silence), *left);
    found.grade = Grade::remark;
    found.expected = "the client waits for three seconds";
    found.got = "it left a venue that was silent for less than 2,500 ms";
    verdict.findings.push_back(found);
}

// A connection on which a login is still under way is nobody's fault.
void audit_login_in_time(const EventList& connection, Verdict& verdict) {
    bool asked = false;
    for (const ClientEvent* event : connection) {
        if (event->kind == Kind::login) asked = true;
        if (event->kind == Kind::answer) asked = false;
        const auto goodbye = event->kind == Kind::goodbye ? client::read_goodbye(event->packet->bytes) : std::nullopt;
        if (!goodbye || goodbye->reason != esesm::GoodbyeReason::login_timeout || asked) continue;
        Finding found = finding_at(rule(SessionRule::login_in_time), *event);
        found.expected = "a login within 30 s of connecting";
        found.got = "no login that could be accepted";
        found.truth = "the venue said goodbye: " + in_quotes(goodbye->text);
        return verdict.findings.push_back(found);
    }
}

}  // namespace kavo::companion
