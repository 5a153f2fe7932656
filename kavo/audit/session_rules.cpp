#include "kavo/audit/session_rules.h"

#include <algorithm>
#include <array>
#include <utility>

#include "kavo/audit/rules.h"

namespace kavo::companion {

namespace {

constexpr std::array session_table{
    Rule{"session.next-number",
         "A later login asks for exactly the number behind the last that the user was given. 1 asks for everything "
         "again, which is right as well; 0 gives up what was missed, and any other number loses messages or has them "
         "told twice.",
         "docs/protocol_esesm.md#streams-and-replay-on-order-entry"},
    Rule{"session.hole",
         "A number that jumps means that a message is missing: the client logs in again within five seconds, on the "
         "same connection or on a new one, and asks for the missing number.",
         "docs/protocol_esesm.md#what-a-client-can-miss-while-it-is-connected"},
    Rule{"session.heartbeats",
         "A client that is logged in sends something, at least a heartbeat, before it has been silent for three "
         "seconds, however much it hears.",
         "docs/protocol_esesm.md#heartbeats-and-silence"},
    Rule{"session.leaves-silence",
         "A client that hears nothing gives up after three seconds, not before two and a half and not after five, and "
         "logs in again.",
         "docs/protocol_esesm.md#heartbeats-and-silence"},
    Rule{"session.login-in-time", "A client logs in within thirty seconds of connecting.",
         "docs/protocol_esesm.md#heartbeats-and-silence"},
    Rule{"session.nothing-before-login",
         "Before it has asked to be logged in, and after it was refused, a client sends nothing but logins, "
         "heartbeats and a logout.",
         "docs/protocol_esesm.md#packets"},
    Rule{"session.nothing-after-goodbye",
         "A goodbye is the last word, and so is the client's own logout: it sends nothing more.",
         "docs/protocol_esesm.md#goodbyes"},
    Rule{"session.login-fields",
         "A login is whole and says what the venue knows: protocols, one engine of this session, a user and a "
         "computer.",
         "docs/protocol_esesm.md#login"},
    Rule{"session.well-formed",
         "Every packet is of a type that clients send, and every request is an N1, M1 or CO of full length.",
         "docs/protocol_esesm.md#packets"},
    Rule{"session.tries-again",
         "A client whose earlier connection has broken, and that is told that its user is logged in already, tries "
         "again within eight seconds: the venue lets go of the old one after three.",
         "docs/protocol_esesm.md#statuses"},
    Rule{"session.not-too-often",
         "A client that is told that its user is logged in already tries again at most ten times in eight seconds, "
         "and none asks again and again for what it has not missed.",
         "docs/protocol_esesm.md#statuses"},
};
static_assert(session_table.size() == static_cast<std::size_t>(SessionRule::not_too_often) + 1);

}  // namespace

std::span<const Rule> session_rules() {
    return session_table;
}

const Rule& rule(SessionRule which) {
    return session_table[static_cast<std::size_t>(which)];
}

void count_slack(Verdict& verdict, const Rule& rule, std::uint64_t waited_ns, std::uint64_t limit_ns) {
    const auto ms = [](std::uint64_t ns) { return static_cast<double>(ns) / static_cast<double>(ns_per_ms); };
    const double left = ms(limit_ns) - ms(std::min(waited_ns, limit_ns));
    const auto known = std::find_if(verdict.slack.begin(), verdict.slack.end(),
                                    [&](const Slack& slack) { return slack.rule == &rule; });
    if (known == verdict.slack.end()) {
        verdict.slack.push_back({&rule, left, ms(limit_ns)});
    } else {
        known->least_ms = std::min(known->least_ms, left);
    }
}

void audit_sessions(const Journal& journal, Verdict& verdict) {
    Verdict found;
    const Circumstances circumstances(journal);
    const std::vector<ClientEvent> events = client_events(journal);
    for (const EventList& connection : by_connection(events)) {
        audit_packets(connection, circumstances, found);
        audit_login_in_time(connection, found);
        audit_heartbeats(connection, circumstances, found);
        audit_silence(connection, events, circumstances, found);
    }
    for (const EventList& user : by_user(events)) {
        audit_stream(user, circumstances, found);
        audit_retries(user, circumstances, found);
    }
    hand_over(journal, std::move(found), verdict);
}

}  // namespace kavo::companion
