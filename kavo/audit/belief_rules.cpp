#include "kavo/audit/belief_rules.h"

#include <array>

#include "kavo/audit/audit.h"
#include "kavo/audit/belief_scene.h"

namespace kavo::companion {

namespace {

constexpr auto rules = std::to_array<Rule>({
    {"belief.book", "The book behind a number of the feed is the venue's behind that number.", "docs/beliefs.md#books"},
    {"belief.fill", "Each execution that the client was told of counts exactly once.", "docs/beliefs.md#fills"},
    {"belief.log", "Each line of client.jsonl holds a belief, and says whose it is.", "docs/beliefs.md#lines"},
    {"belief.order", "An order stands as the client was told that it stands.", "docs/beliefs.md#orders"},
});

}  // namespace

const Rule& belief_book = rules[0];
const Rule& belief_fill = rules[1];
const Rule& belief_log = rules[2];
const Rule& belief_order = rules[3];

std::span<const Rule> belief_rules() {
    return rules;
}

void judge_beliefs(const Journal& journal, const Beliefs& beliefs, Verdict& verdict) {
    BeliefScene scene(journal, beliefs, verdict);
    scene.tell_defects();
    judge_fills(scene);
    judge_orders(scene);
    judge_books(scene, verdict);
    scene.list.finish();
}

void audit_beliefs(const Journal& journal, Verdict& verdict) {
    const auto beliefs = read_beliefs(journal.folder);
    if (!beliefs) return;
    verdict.counts.beliefs += beliefs->lines;
    judge_beliefs(journal, *beliefs, verdict);
}

}  // namespace kavo::companion
