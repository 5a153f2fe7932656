// Every id that one user has given to an order, by a new order or by a replace, and what the user was told of it. What
// was never told is not known here either, so nothing is held against a client that it could not know.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "kavo/audit/client_side.h"

namespace kavo::companion {

struct IdUse;

// One order, under whatever ids.
struct SentOrder {
    std::vector<IdUse*> uses;
    std::uint64_t total = 0;  // shares, of the latest accepted size
    std::uint64_t executed = 0;
    unsigned replaces_pending = 0;  // any of them may have changed the total already
};

// One request that gave an id to an order.
struct IdUse {
    enum class Answer { none, accepted, rejected };
    struct Told {
        const Conversation* conversation = nullptr;
        std::uint64_t read_ns = 0;
    };

    std::string_view id;
    const ClientEvent* sent = nullptr;
    bool by_replace = false;
    std::uint32_t quantity = 0;
    Answer answer = Answer::none;
    SentOrder* order = nullptr;
    IdUse* replaced = nullptr;  // the use before it, of a replace
    bool convicted = false;     // a finding was made of it already
    std::string end;            // "filled"; empty while it lives, for all that was told
    std::vector<Told> told_end;
};

class SentOrders {
public:
    // A request that the venue looks at. The use that it begins; none for a cancel.
    IdUse* sent(const ClientEvent& request);
    // A message of the stream. True when its number is new.
    bool told(const ClientEvent& message);
    // The stream may be that of another process, which knows none of these.
    void forget();

    // In the order in which they were sent.
    const std::vector<IdUse*>& uses(std::string_view id) const;
    // The latest use that was rejected under this id.
    IdUse* latest_rejected(std::string_view id) const;
    // The id stood in a message to this user, whoever had sent it.
    bool was_told(std::string_view id) const { return told_ids_.count(id) != 0; }

private:
    IdUse& add(std::string_view id, SentOrder& order, const ClientEvent& request);
    IdUse* unanswered(std::string_view id, bool by_replace) const;
    // The only use of this id that has lived; none when two orders have had it, since nobody can tell them apart.
    IdUse* living(std::string_view id) const;
    void take(const ClientEvent& message);
    void take_new_order_answer(const ClientEvent& message);
    void take_replace_answer(const ClientEvent& message);
    void take_execution(const ClientEvent& message);
    void end(IdUse& use, std::string_view how, const ClientEvent& message);

    std::deque<SentOrder> orders_;
    std::deque<IdUse> all_;
    std::map<std::string_view, std::vector<IdUse*>, std::less<>> by_id_;
    std::set<std::uint64_t> numbers_;
    std::set<std::string_view, std::less<>> told_ids_;
    std::multimap<std::uint64_t, IdUse*> ended_by_;  // number of the message that told it
};

}  // namespace kavo::companion
