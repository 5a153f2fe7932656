#include "kavo/audit/recovery_rules.h"

#include <array>

#include "kavo/audit/audit.h"
#include "kavo/audit/recovery_scene.h"

namespace kavo::companion {

namespace {

constexpr std::string_view page = "docs/protocol_dom.md#when-to-ask-and-for-what";
constexpr auto recovery_table = std::to_array<Rule>({
    {"recovery.again-when-cut",
     "A reply that ends half way, or does not come at all, is no recovery: ask again, or take a refresh.", page},
    {"recovery.asks-for-what-was-lost",
     "What the feed has lost is asked for, by a range that covers all of it, or by a refresh.", page},
    {"recovery.exact", "Ask for what is missing, and not for what has come already.", page},
    {"recovery.in-time",
     "A gap that a heartbeat shows is asked for at once, any other after one more datagram or some ten milliseconds.",
     page},
    {"recovery.not-for-late",
     "A datagram that comes right behind the one that overtook it was not lost: it need not be asked for.", page},
    {"recovery.once", "What the service has sent again need not be asked for once more.", page},
});

}  // namespace

const Rule& again_when_cut = recovery_table[0];
const Rule& asks_for_what_was_lost = recovery_table[1];
const Rule& recovery_exact = recovery_table[2];
const Rule& recovery_in_time = recovery_table[3];
const Rule& not_for_late = recovery_table[4];
const Rule& recovery_once = recovery_table[5];

std::span<const Rule> recovery_rules() {
    return recovery_table;
}

std::vector<LabelledGap> labelled_gaps(const Journal& journal) {
    const FeedPicture feed = picture_of_feed(journal, feed_circumstances(journal));
    const std::vector<RecoveryAttempt> attempts = recovery_attempts(journal);
    NumberRanges recovered, broken;
    for (const RecoveryAttempt& attempt : attempts) {
        for (const SequenceRange numbers : attempt.served.all()) recovered.add(numbers);
        if (attempt.brought_state()) recovered.add({1, attempt.as_of});
        const bool by_relay = !attempt.complete && attempt.ended_by == EndedBy::relay;
        if (by_relay && attempt.asks == RecoveryAttempt::Asks::messages) broken.add(attempt.wanted);
    }
    std::vector<LabelledGap> labelled;
    for (const Gap& gap : feed.gaps) {
        labelled.push_back({gap, broken.touches(gap.numbers), recovered.covers(gap.numbers), !attempts.empty()});
    }
    return labelled;
}

std::string LabelledGap::label() const {
    std::string text(name_of(gap.loss));
    if (by_relay) text += ", relay";
    if (gap.lost() && !recovered) text += listened ? ", unrecovered" : ", asked for by nobody";
    return text;
}

void judge_recovery(const Journal& journal, const Beliefs& beliefs, Verdict& verdict) {
    RecoveryScene scene(journal, beliefs, verdict);
    judge_gaps(scene);
    judge_requests(scene);
    scene.list.finish();
    if (scene.slack) verdict.slack.push_back(*scene.slack);
}

void audit_recovery(const Journal& journal, Verdict& verdict) {
    for (const LabelledGap& labelled : labelled_gaps(journal)) {
        verdict.counts.gaps_planned += labelled.gap.lost() ? 1 : 0;
        verdict.counts.gaps_kernel += labelled.gap.loss == Loss::kernel ? 1 : 0;
        verdict.counts.gaps_relay += labelled.by_relay ? 1 : 0;
        verdict.counts.gaps_unrecovered += labelled.gap.lost() && labelled.listened && !labelled.recovered ? 1 : 0;
    }
    judge_recovery(journal, read_beliefs(journal.folder).value_or(Beliefs{}), verdict);
}

}  // namespace kavo::companion
