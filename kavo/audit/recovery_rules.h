// Whether a receiver of the feed asks for what it lost: all of it, no more, once, and in time.
#pragma once

#include <string>
#include <vector>

#include "kavo/audit/beliefs.h"
#include "kavo/audit/finding.h"
#include "kavo/audit/gaps.h"
#include "kavo/audit/rules.h"

namespace kavo::companion {

// audit_recovery with the beliefs at hand: a book that a client says it knows shows that it listens.
void judge_recovery(const Journal& journal, const Beliefs& beliefs, Verdict& verdict);

// Each gap of the feed, and what became of it.
struct LabelledGap {
    Gap gap;
    bool by_relay = false;   // the relay broke a conversation in which it was asked for
    bool recovered = false;  // somebody was given it, or the state behind it
    bool listened = false;   // somebody is known to have listened

    // "planned: dropped by the bench, relay, unrecovered"
    std::string label() const;
};
std::vector<LabelledGap> labelled_gaps(const Journal& journal);

}  // namespace kavo::companion
