// What a client does when it is told that its user is logged in already: it has to wait for a ghost of its own, the
// connection that has broken without the venue's noticing.
#include <algorithm>
#include <set>
#include <vector>

#include "kavo/audit/session_rules.h"
#include "kavo/audit/wording.h"
#include "session/esesm.h"

namespace kavo::companion {

namespace {

using Kind = ClientEvent::Kind;

constexpr std::uint64_t window_ns = 8'000 * ns_per_ms;
constexpr std::size_t many_tries = 10;      // in a window: more are more than it takes
constexpr std::size_t too_many_tries = 40;  // and this is no waiting any more

bool is_refused(const ClientEvent& event) {
    return event.kind == Kind::answer && event.status == static_cast<char>(esesm::LoginStatus::already_logged_in);
}

// A session of the same user that still stands, for all that its client knows, is no ghost: whoever is refused for its
// sake need not try again.
bool has_another(const EventList& user, const ClientEvent& refused) {
    const ClientEvent* latest = nullptr;  // of any other connection that was logged in
    std::vector<const Conversation*> standing;
    for (const ClientEvent* event : user) {
        if (event->at.ns > refused.at.ns) break;
        if (event->conversation == refused.conversation) continue;
        latest = event;
        const Moment closed = event->conversation->closed;
        const bool in = event->logged_in && (closed.ns == 0 || event->at.ns < closed.ns);
        std::erase(standing, event->conversation);
        if (in) standing.push_back(event->conversation);
    }
    return latest == nullptr || !standing.empty();
}

void audit_tries_again(const EventList& user, const Circumstances& circumstances, Verdict& verdict) {
    const ClientEvent* refused = nullptr;
    for (const ClientEvent* event : user) {
        if (event->kind == Kind::login && refused != nullptr) {
            count_slack(verdict, rule(SessionRule::tries_again), event->at.ns - refused->at.ns, window_ns);
            refused = nullptr;
        }
        if (is_refused(*event)) refused = event;
    }
    if (refused == nullptr || has_another(user, *refused)) return;
    const std::uint64_t limit_ns = refused->read_ns + window_ns + crossing_ns;
    if (circumstances.end_ns() < limit_ns) return;
    Finding found = finding_at(rule(SessionRule::tries_again), *refused);
    found.expected = "another login within 8,000 ms";
    found.got = "none until the end of the run";
    found.truth = "the venue lets go of a connection that is silent for three seconds";
    found.because = circumstances.machine(refused->at.ns, limit_ns);
    if (!found.because.empty()) found.grade = Grade::inconclusive;
    verdict.findings.push_back(found);
}

// Logins that brought nothing: refused, since the user is logged in already, or accepted on a connection that was
// logged in and had missed nothing.
EventList vain_logins(const EventList& user) {
    EventList vain;
    std::set<const Conversation*> let_in;
    for (const ClientEvent* event : user) {
        if (is_refused(*event)) vain.push_back(event);
        if (event->kind != Kind::answer || !event->logged_in) continue;
        const bool again = !let_in.insert(event->conversation).second;
        if (again && event->asked == event->number + 1) vain.push_back(event);
    }
    return vain;
}

// The most of them in any window, and the first of those.
void audit_not_too_often(const EventList& user, Verdict& verdict) {
    const EventList vain = vain_logins(user);
    std::size_t first = 0;
    std::size_t most = 0;
    std::size_t most_from = 0;
    for (std::size_t last = 0; last < vain.size(); ++last) {
        while (vain[last]->at.ns - vain[first]->at.ns > window_ns) ++first;
        if (last - first + 1 <= most) continue;
        most = last - first + 1;
        most_from = first;
    }
    const bool refused = most > 0 && is_refused(*vain[most_from]);
    if (most <= (refused ? many_tries : too_many_tries)) return;
    Finding found = finding_at(rule(SessionRule::not_too_often), *vain[most_from]);
    found.grade = most > too_many_tries ? Grade::finding : Grade::remark;
    found.expected = refused ? "at most 10 logins in 8,000 ms while the user is logged in already"
                             : "a login when something may have been missed";
    found.got = counted(most, "login") + (refused ? " that were refused" : " that brought nothing");
    verdict.findings.push_back(found);
}

}  // namespace

void audit_retries(const EventList& user, const Circumstances& circumstances, Verdict& verdict) {
    audit_tries_again(user, circumstances, verdict);
    audit_not_too_often(user, verdict);
}

}  // namespace kavo::companion
