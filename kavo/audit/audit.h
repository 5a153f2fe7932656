// Holds a run against the rules: first the bench against itself, then, if it does not contradict itself, the client by
// what it put on the wire, and by what it said that it believed.
#pragma once

#include <functional>
#include <span>
#include <vector>

#include "kavo/audit/finding.h"

namespace kavo::companion {

//   progress  called now and then with what share is done, 0 to 1; may be empty
Verdict audit(const Journal& journal, const std::function<void(double)>& progress = {});

// The parts of it, each in a file of its own. They add what they find.
void audit_bench(const Journal& journal, Verdict& verdict, const std::function<void(double)>& progress);
void audit_sessions(const Journal& journal, Verdict& verdict);  // logins, heartbeats, silence, streams, limits
void audit_orders(const Journal& journal,
                  Verdict& verdict);  // ids, cancels, what a client sends against what it was told
void audit_recovery(const Journal& journal, Verdict& verdict);  // gaps of the feed, and what was asked for
void audit_beliefs(const Journal& journal, Verdict& verdict);   // client.jsonl

void audit_run(const Journal& journal, Verdict& verdict);  // the ends of venue and command, the script
std::span<const Rule> run_rules();

// Every rule that an audit knows, in the order of their names.
std::vector<const Rule*> all_rules();

}  // namespace kavo::companion
