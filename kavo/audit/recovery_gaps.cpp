// Each gap of the feed, held against what those who listened asked for.
#include <algorithm>
#include <set>

#include "kavo/audit/recovery_scene.h"

namespace kavo::companion {

namespace {

using Asks = RecoveryAttempt::Asks;

constexpr std::uint64_t limit_again_ns = 5'000 * ns_per_ms;

class GapJudge {
public:
    explicit GapJudge(RecoveryScene& scene) : scene_(scene) {}

    void judge() {
        for (const Listener& listener : scene_.listeners) {
            if (listener.lives.empty()) judge_mere_listener(listener);
            for (std::size_t i = 0; i < listener.lives.size(); ++i) judge_life(listener, i);
            if (!listener.lives.empty()) judge_first(listener);
        }
    }

private:
    using Attempts = std::vector<const RecoveryAttempt*>;

    void judge_life(const Listener& listener, std::size_t which) {
        const ListenersLife& life = listener.lives[which];
        for (const Gap& gap : scene_.feed.gaps) {
            const bool its_business = gap.shown.ns >= life.begun_ns && gap.shown.ns < life.ends_ns;
            if (gap.lost() && its_business) judge_gap(listener, which, gap);
        }
    }

    void judge_gap(const Listener& listener, std::size_t which, const Gap& gap) {
        const ListenersLife& life = listener.lives[which];
        const auto asked = std::find_if(life.attempts.begin(), life.attempts.end(), [&](const RecoveryAttempt* it) {
            return asks_for(*it, gap) && it->asked.ns + reading_ns >= gap.shown.ns;
        });
        if (asked != life.attempts.end()) judge_time(listener, life, gap, **asked);
        const std::vector<SequenceRange> missing = life.got.missing_from(gap.numbers);
        if (missing.empty()) return;
        if (which + 1 < listener.lives.size()) {
            return judge_next_beginning(listener, life, gap, *listener.lives[which + 1].attempts.front());
        }
        NumberRanges wanted;
        std::uint64_t cut_ns = 0;
        for (auto it = asked; it != life.attempts.end(); ++it) {
            if (!asks_for(**it, gap)) continue;
            wanted.add((*it)->asks == Asks::messages ? (*it)->wanted : gap.numbers);
            cut_ns = std::max(cut_ns, (*it)->ended.ns);
            const bool still_answered = !(*it)->complete && (*it)->ended_by == EndedBy::nobody;
            if (still_answered) return;
        }
        const bool all_asked = wanted.covers({missing.front().first, missing.back().last});
        if (!all_asked) return judge_unasked(listener, life, gap);
        judge_cut(listener, life, gap, missing.front(), cut_ns);
    }

    // A connection that somebody else ended before it could ask for anything has tried to.
    static bool asks_for(const RecoveryAttempt& attempt, const Gap& gap) {
        if (attempt.asks == Asks::nothing) return attempt.ended_by != EndedBy::client;
        if (attempt.asks_for_state()) return true;
        return attempt.asks == Asks::messages && overlap(attempt.wanted, gap.numbers) &&
               attempt.last_possible() >= gap.numbers.first;
    }

    void judge_time(const Listener& listener, const ListenersLife& life, const Gap& gap, const RecoveryAttempt& asked) {
        if (gap.settled_ns == 0) return;
        const std::uint64_t due = scene_.deadline(life, gap, &asked);
        const bool late = asked.asked.ns > due;
        scene_.note_slack(gap, late ? 0 : due - asked.asked.ns);
        if (late) tell_late(listener, gap, asked, due);
    }

    void tell_late(const Listener& listener, const Gap& gap, const RecoveryAttempt& asked, std::uint64_t due) {
        Finding finding = scene_.about(recovery_in_time, listener, gap);
        finding.expected = "a request for " + text_of(gap.numbers) + " by " + scene_.list.time(due) +
                           ", for the gap shows " + scene_.how_shown(gap);
        finding.got = scene_.how_asked(asked);
        finding.where.moment = asked.asked;
        scene_.tell_if_received(std::move(finding), gap.shown.ns, asked.asked.ns);
    }

    // The beginning of what may be another process takes the gap along. Only who was seen listening all the time was
    // late.
    void judge_next_beginning(const Listener& listener, const ListenersLife& life, const Gap& gap,
                              const RecoveryAttempt& beginning) {
        if (gap.settled_ns == 0) return;
        const std::uint64_t due = scene_.deadline(life, gap, nullptr);
        if (beginning.asked.ns <= due) return scene_.note_slack(gap, due - beginning.asked.ns);
        if (stayed_open(gap.shown.ns, beginning.asked.ns)) tell_late(listener, gap, beginning, due);
    }

    void judge_unasked(const Listener& listener, const ListenersLife& life, const Gap& gap) {
        const std::uint64_t due = scene_.deadline(life, gap, nullptr);
        if (gap.settled_ns == 0 || scene_.run_ends_before(due) || given_up_.contains(&life)) return;
        Finding finding = scene_.about(asks_for_what_was_lost, listener, gap);
        finding.expected = expected_for(gap);
        finding.got = asked_since(life, gap);
        tell_if_alive(std::move(finding), listener, life, gap, due);
    }

    void judge_cut(const Listener& listener, const ListenersLife& life, const Gap& gap, SequenceRange missing,
                   std::uint64_t cut_ns) {
        const std::uint64_t due = std::max(cut_ns, gap.shown.ns) + limit_again_ns;
        if (scene_.run_ends_before(due)) return;
        Finding finding = scene_.about(again_when_cut, listener, gap);
        finding.expected =
            "a further request for " + text_of(missing) + ", or a refresh, within 5 s of " + scene_.list.time(cut_ns);
        finding.got = asked_since(life, gap) + "; was not given " + text_of(missing) + ", and asked for it no more";
        if (const std::string still = still_waiting(listener, due); !still.empty()) {
            finding.got += still;
            given_up_.insert(&life);
            return scene_.tell(std::move(finding), gap.shown.ns, due);
        }
        tell_if_alive(std::move(finding), listener, life, gap, due);
    }

    // One that has asked knows what it lacks, so a book that it calls stale shows that it lacks it still.
    static std::string still_waiting(const Listener& listener, std::uint64_t ns) {
        for (const Sighting& sighting : listener.sightings) {
            if (!sighting.stale || sighting.told_ns < ns) continue;
            return "; line " + std::to_string(sighting.line) + " of its log still has a stale book";
        }
        return "";
    }

    // A first request that came to nothing, and was not made again.
    void judge_first(const Listener& listener) {
        const RecoveryAttempt& first = *listener.lives.back().attempts.front();
        const bool cut = first.is_beginning() && !first.complete && first.ended_by != EndedBy::client;
        const std::uint64_t due = first.ended.ns + limit_again_ns;
        if (!cut || listener.lives.back().attempts.size() != 1 || scene_.run_ends_before(due)) return;
        const std::string still = still_waiting(listener, due);
        if (still.empty()) return;
        Finding finding = scene_.about(again_when_cut, listener, first);
        finding.expected = "a further request within 5 s of " + scene_.list.time(first.ended.ns);
        finding.got += ", which was cut short; and no request since" + still;
        scene_.tell(std::move(finding), first.asked.ns, due);
    }

    std::string expected_for(const Gap& gap) const {
        return "a request that covers " + text_of(gap.numbers) + ", or a refresh, for the gap shows " +
               scene_.how_shown(gap);
    }

    std::string asked_since(const ListenersLife& life, const Gap& gap) const {
        std::string text;
        unsigned told = 0;
        for (const RecoveryAttempt* attempt : life.attempts) {
            if (attempt->asked.ns + reading_ns < gap.shown.ns || told == 3) continue;
            text += (told++ == 0 ? "" : ", ") + scene_.how_asked(*attempt);
        }
        return told == 0 ? "nothing: no request since" : text;
    }

    void tell_if_alive(Finding finding, const Listener& listener, const ListenersLife& life, const Gap& gap,
                       std::uint64_t due) {
        const std::string evidence = seen_listening(listener, life, gap, due);
        if (evidence.empty()) {
            finding.because = "nothing tells whether it was still listening";
            given_up_.insert(&life);
            return scene_.list.remark(std::move(finding));
        }
        finding.got += "; it went on listening: " + evidence;
        scene_.tell(std::move(finding), gap.shown.ns, due);
    }

    // What shows that a receiver still listened at a moment, and took itself to know what is behind the gap.
    std::string seen_listening(const Listener& listener, const ListenersLife& life, const Gap& gap,
                               std::uint64_t ns) const {
        for (const RecoveryAttempt* attempt : life.attempts) {
            if (attempt->asked.ns >= ns) return scene_.how_asked(*attempt);
        }
        for (const Sighting& sighting : listener.sightings) {
            const bool follows = sighting.sequence > gap.numbers.last || sighting.told_ns != 0;
            if (sighting.stale || !follows || sighting.ns < ns || sighting.ns >= life.ends_ns) continue;
            return "line " + std::to_string(sighting.line) + " of its log has a book at " +
                   std::to_string(sighting.sequence);
        }
        return stayed_open(gap.shown.ns, ns) ? "its socket stayed open" : "";
    }

    bool stayed_open(std::uint64_t from_ns, std::uint64_t to_ns) const {
        return scene_.only_listener() && scene_.around.socket_open(from_ns, to_ns);
    }

    // Books from before and from behind a gap, both said to be known, and never a word to the service.
    void judge_mere_listener(const Listener& listener) {
        const Sighting* before = nullptr;
        for (const Sighting& sighting : listener.sightings) {
            if (sighting.stale || sighting.sequence == 0) continue;
            if (before != nullptr && before->life == sighting.life) judge_between(listener, *before, sighting);
            before = &sighting;
        }
    }

    void judge_between(const Listener& listener, const Sighting& before, const Sighting& behind) {
        const std::vector<Gap>& gaps = scene_.feed.gaps;
        const auto gap = std::find_if(gaps.begin(), gaps.end(), [&](const Gap& it) {
            return it.lost() && it.numbers.first > before.sequence && it.numbers.last < behind.sequence;
        });
        if (gap == gaps.end() || !told_.insert({listener.user, gap->numbers.first}).second) return;
        Finding finding = scene_.about(asks_for_what_was_lost, listener, *gap);
        finding.expected = expected_for(*gap);
        finding.got = "nothing: nobody asked the recovery service; lines " + std::to_string(before.line) + " and " +
                      std::to_string(behind.line) + " of its log have books at " + std::to_string(before.sequence) +
                      " and " + std::to_string(behind.sequence);
        scene_.tell(std::move(finding), gap->shown.ns, gap->shown.ns);
    }

    RecoveryScene& scene_;
    std::set<std::pair<std::string, std::uint64_t>> told_;
    std::set<const ListenersLife*> given_up_;  // what more they did not ask for is no news
};

}  // namespace

void judge_gaps(RecoveryScene& scene) {
    GapJudge(scene).judge();
}

}  // namespace kavo::companion
