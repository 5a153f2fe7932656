// All that the rules of beliefs look at, gathered once.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "kavo/audit/beliefs.h"
#include "kavo/audit/finding_list.h"
#include "kavo/audit/order_steps.h"

namespace kavo::companion {

extern const Rule& belief_book;
extern const Rule& belief_fill;
extern const Rule& belief_log;
extern const Rule& belief_order;

// One user, and one life of its client: from one line that says that it begins anew to the next.
struct Believer {
    const UserStream* stream = nullptr;
    unsigned life = 0;
    bool first_life = true;
    bool only_life = true;
    std::uint64_t begins_ns = 0;  // 0 for the first life, and where no line tells a time
    std::uint64_t ends_ns = 0;    // the last moment of its log, or of its connections when the log tells no times
    std::uint64_t applied = 0;    // the highest number of the stream that it said it had applied
    std::vector<const OrderBelief*> orders;
    std::vector<const FillBelief*> fills;

    // It has read this message, and had time to say so.
    bool must_know(std::uint64_t sequence, std::uint64_t given_ns, std::uint64_t read_ns) const;
};

class BeliefScene {
public:
    BeliefScene(const Journal& run, const Beliefs& all, Verdict& verdict);

    const Journal& journal;
    const Beliefs& beliefs;
    FeedCircumstances around;
    std::vector<UserStream> streams;
    std::vector<Believer> believers;
    FindingList list;
    // Orders whose fills were counted wrongly, by user and by the id that stands for all of the order's.
    std::set<std::pair<std::string, std::string>> miscounted;

    // A client that asked for everything again may be a new process, whose log goes on where another's has ended.
    bool may_be_several(const Believer& believer) const;
    void tell_defects();

private:
    const UserStream* stream_of(const Said& said);
    Believer& believer_of(const Said& said, const UserStream& stream);
    void tell_nameless(const Said& said);
    void set_limits();

    std::map<std::pair<const UserStream*, unsigned>, Believer> by_life_;
    std::set<std::string> nameless_;
};

void judge_fills(BeliefScene& scene);
void judge_orders(BeliefScene& scene);  // behind the fills
void judge_books(BeliefScene& scene, const Verdict& so_far);

// An id of a log as the bytes that were on the wire: those of the text, or one byte for each of its characters, as
// whoever has read bytes without an encoding writes them down.
std::string wire_id(const std::string& id, const OrderSteps& known);

}  // namespace kavo::companion
