// What a client said that it believed, held against what it had been told, and against the truth of exactly that
// moment.
#pragma once

#include "kavo/audit/beliefs.h"
#include "kavo/audit/finding.h"
#include "kavo/audit/rules.h"

namespace kavo::companion {

// audit_beliefs with the beliefs at hand. Comes behind the rules of recovery: a book that is wrong because of a gap
// that was never asked for is no finding of its own.
void judge_beliefs(const Journal& journal, const Beliefs& beliefs, Verdict& verdict);

}  // namespace kavo::companion
