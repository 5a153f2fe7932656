// What a client does on the session layer of order entry, each matter in a file of its own. All of them judge by what
// passed on the client's side of the relay.
#pragma once

#include "kavo/audit/audit.h"
#include "kavo/audit/circumstances.h"
#include "kavo/audit/client_side.h"

namespace kavo::companion {

// In the order of their table.
enum class SessionRule {
    next_number,
    hole,
    heartbeats,
    leaves_silence,
    login_in_time,
    nothing_before_login,
    nothing_after_goodbye,
    login_fields,
    well_formed,
    tries_again,
    not_too_often,
};
const Rule& rule(SessionRule which);

// What the client was given and what it asked for, one user's connections together.
void audit_stream(const EventList& user, const Circumstances& circumstances, Verdict& verdict);
// What it did when it was told that its user is logged in already.
void audit_retries(const EventList& user, const Circumstances& circumstances, Verdict& verdict);
// The clock of one connection.
void audit_heartbeats(const EventList& connection, const Circumstances& circumstances, Verdict& verdict);
//   all  of every connection: whoever leaves early may come back on another
void audit_silence(const EventList& connection, const std::vector<ClientEvent>& all, const Circumstances& circumstances,
                   Verdict& verdict);
void audit_login_in_time(const EventList& connection, Verdict& verdict);
// The packets of one connection.
void audit_packets(const EventList& connection, const Circumstances& circumstances, Verdict& verdict);

// Counts one more wait of a client: so much was left before its limit. The rule's worst is what the verdict keeps.
void count_slack(Verdict& verdict, const Rule& rule, std::uint64_t waited_ns, std::uint64_t limit_ns);

}  // namespace kavo::companion
