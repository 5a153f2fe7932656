// What a client does with its orders, held against what it was told of them.
#pragma once

#include <set>
#include <string_view>
#include <utility>
#include <vector>

#include "kavo/audit/circumstances.h"
#include "kavo/audit/client_side.h"
#include "kavo/audit/finding.h"

namespace kavo::companion {

// In the order of their table.
enum class OrderRule { id_unique, cancel_of_ended, cancel_of_unknown, refused_by_check };
const Rule& rule(OrderRule which);

// All of one user's, in the order of the run.
//   sent_before  whether a connection has given this id to an order under whatever user: orders go along when a
//                connection logs in under another name
class SentIds;
void audit_ids_and_cancels(const EventList& user, const SentIds& sent_before, const Circumstances& circumstances,
                           Verdict& verdict);
// What the venue refused for what stood in it. Whether that was a mistake, only who wrote the test can say.
void audit_refusals(const EventList& user, Verdict& verdict);

// Which ids were given to orders on each connection.
class SentIds {
public:
    explicit SentIds(const std::vector<ClientEvent>& events);
    bool has(const Conversation& conversation, std::string_view id) const;

private:
    std::set<std::pair<const Conversation*, std::string_view>> sent_;
};

}  // namespace kavo::companion
