// All that the rules of recovery look at, gathered once, and the words they share.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "kavo/audit/finding_list.h"
#include "kavo/audit/listeners.h"
#include "kavo/basics/now.h"

namespace kavo::companion {

// Until what has arrived has surely been read, too.
inline constexpr std::uint64_t reading_ns = 100 * ns_per_ms;

class RecoveryScene {
public:
    RecoveryScene(const Journal& run, const Beliefs& beliefs, Verdict& verdict);

    const Journal& journal;
    FeedCircumstances around;
    FeedPicture feed;
    std::vector<RecoveryAttempt> attempts;
    std::vector<Listener> listeners;
    FindingList list;
    std::optional<Slack> slack;

    // By when a gap is to be asked for. A receiver has one conversation at a time, and what it finds meanwhile waits
    // for its end: those before `asked`, or all of them.
    std::uint64_t deadline(const ListenersLife& life, const Gap& gap, const RecoveryAttempt* asked) const;
    void note_slack(const Gap& gap, std::uint64_t left_ns);

    // Whoever asks may be another process than whoever asked last: somebody came between the two.
    bool may_be_new(const RecoveryAttempt& last, const RecoveryAttempt& attempt) const;
    bool only_listener() const { return listeners.size() == 1; }
    bool run_ends_before(std::uint64_t ns) const;

    Finding about(const Rule& rule, const Listener& listener, const Gap& gap) const;
    Finding about(const Rule& rule, const Listener& listener, const RecoveryAttempt& attempt) const;
    std::string how_shown(const Gap& gap) const;  // "by the heartbeat of +3.200 s"
    std::string how_asked(const RecoveryAttempt& attempt) const;

    // What rests on how the venue numbers, and on the client's having been served between two moments.
    void tell(Finding finding, std::uint64_t from_ns, std::uint64_t to_ns);
    // What rests, besides, on the client's having received what kavo has.
    void tell_if_received(Finding finding, std::uint64_t from_ns, std::uint64_t to_ns);

private:
    std::vector<std::uint64_t> order_logins_;
};

// The rules, by name.
extern const Rule& again_when_cut;
extern const Rule& asks_for_what_was_lost;
extern const Rule& recovery_exact;
extern const Rule& recovery_in_time;
extern const Rule& not_for_late;
extern const Rule& recovery_once;

void judge_gaps(RecoveryScene& scene);      // each, by what it was asked for
void judge_requests(RecoveryScene& scene);  // each, by what it asks for

}  // namespace kavo::companion
