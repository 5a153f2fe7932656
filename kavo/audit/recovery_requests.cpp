// Each request to the recovery service, held against what the client lacked when it asked.
#include <algorithm>

#include "kavo/audit/recovery_scene.h"

namespace kavo::companion {

namespace {

using Asks = RecoveryAttempt::Asks;

constexpr std::uint64_t joining_ns = 1'000 * ns_per_ms;  // until a beginner surely hears everything
constexpr std::uint64_t answer_ns = 250 * ns_per_ms;     // a request that is an answer to a gap follows it so closely
constexpr std::uint64_t patience_ns = 8 * ns_per_ms;     // of "some ten milliseconds": whoever asks sooner had none
constexpr std::uint64_t neighbours = 16;                 // numbers around a gap that nobody minds

class RequestJudge {
public:
    explicit RequestJudge(RecoveryScene& scene) : scene_(scene) {}

    void judge() {
        for (const Listener& listener : scene_.listeners) {
            for (const ListenersLife& life : listener.lives) judge_life(listener, life);
            judge_beginnings(listener);
        }
    }

private:
    // What a receiver had been given before it asked, and of that, what it was told was all.
    struct Given {
        NumberRanges all;
        NumberRanges confirmed;

        void take(const RecoveryAttempt& attempt) {
            for (const SequenceRange numbers : attempt.served.all()) {
                all.add(numbers);
                if (attempt.complete) confirmed.add(numbers);
            }
            if (attempt.brought_state()) all.add({1, attempt.as_of});
        }
    };

    void judge_life(const Listener& listener, const ListenersLife& life) {
        Given given;
        const RecoveryAttempt* before = nullptr;
        for (const RecoveryAttempt* attempt : life.attempts) {
            if (before != nullptr && !scene_.may_be_new(*before, *attempt)) judge(listener, life, *attempt, given);
            given.take(*attempt);
            before = attempt;
        }
    }

    void judge(const Listener& listener, const ListenersLife& life, const RecoveryAttempt& attempt,
               const Given& given) {
        const SequenceRange range{attempt.wanted.first, attempt.last_possible()};
        if (attempt.asks != Asks::messages || range.last < range.first) return;
        const std::uint64_t since = life.attempts.front()->ended.ns + joining_ns;
        const Gap* came_late = nullptr;
        const Gap* given_before = nullptr;
        const std::vector<Gap>& gaps = scene_.feed.gaps;
        for (auto gap = first_gap_at(range.first); gap != gaps.end() && gap->numbers.first <= range.last; ++gap) {
            const SequenceRange common{std::max(gap->numbers.first, range.first),
                                       std::min(gap->numbers.last, range.last)};
            if (gap->loss != Loss::late) {
                if (!given.all.covers(common)) return judge_reach(listener, attempt, common.first);
                if (!given.confirmed.covers(common)) return;
                given_before = &*gap;
            } else {
                if (gap->shown.ns < since || !needlessly(attempt, *gap)) return;
                came_late = &*gap;
            }
        }
        if (came_late != nullptr) return tell_for_late(listener, attempt, *came_late);
        if (given_before != nullptr) return tell_again(listener, life, attempt, *given_before);
        tell_needless(listener, attempt, range, since);
    }

    // With what came late before it: had it waited, as all do behind a message, it would have read it; and long after,
    // it has read it.
    static bool needlessly(const RecoveryAttempt& attempt, const Gap& gap) {
        if (gap.came.ns + reading_ns < attempt.asked.ns) return true;
        if (gap.by_heartbeat || gap.came.ns >= attempt.asked.ns) return false;
        const std::uint64_t decided = attempt.opened.ns > gap.shown.ns ? attempt.opened.ns : attempt.asked.ns;
        return decided >= gap.shown.ns && decided < gap.shown.ns + patience_ns;
    }

    std::vector<Gap>::const_iterator first_gap_at(std::uint64_t number) const {
        const std::vector<Gap>& gaps = scene_.feed.gaps;
        return std::lower_bound(gaps.begin(), gaps.end(), number,
                                [](const Gap& gap, std::uint64_t wanted) { return gap.numbers.last < wanted; });
    }

    // What lies before the first missing number comes again for nothing.
    void judge_reach(const Listener& listener, const RecoveryAttempt& attempt, std::uint64_t first_missing) {
        if (first_missing - attempt.wanted.first <= neighbours) return;
        Finding finding = scene_.about(recovery_exact, listener, attempt);
        finding.expected = "a request from " + std::to_string(first_missing) + " on";
        finding.because = "it asks for more than was lost";
        scene_.list.remark(std::move(finding));
    }

    void tell_for_late(const Listener& listener, const RecoveryAttempt& attempt, const Gap& gap) {
        Finding finding = scene_.about(not_for_late, listener, attempt);
        finding.expected = "no request for " + text_of(gap.numbers) + ", which came at " +
                           scene_.list.time(gap.came.ns) + " behind what had overtaken it";
        finding.where.feed_number = gap.numbers.first;
        scene_.tell_if_received(std::move(finding), gap.shown.ns, attempt.asked.ns);
    }

    // Where several have begun under one name, two of them may have lost the same, and asked each for itself.
    void tell_again(const Listener& listener, const ListenersLife& life, const RecoveryAttempt& attempt,
                    const Gap& gap) {
        const auto served = std::find_if(life.attempts.begin(), life.attempts.end(), [&](const RecoveryAttempt* it) {
            return it->complete && it->served.touches(gap.numbers);
        });
        if (served == life.attempts.end() || (*served)->ended.ns + reading_ns >= attempt.asked.ns) return;
        const bool one_alone = listener.lives.size() == 1 && life.attempts.front()->is_beginning();
        if (!one_alone && attempt.asked.ns <= scene_.deadline(life, gap, *served)) return;
        Finding finding = scene_.about(recovery_once, listener, attempt);
        finding.expected = "no further request for " + text_of(gap.numbers) + ", all of which it was given by " +
                           scene_.list.time((*served)->ended.ns);
        finding.where.feed_number = gap.numbers.first;
        scene_.tell_if_received(std::move(finding), (*served)->asked.ns, attempt.asked.ns);
    }

    void tell_needless(const Listener& listener, const RecoveryAttempt& attempt, SequenceRange range,
                       std::uint64_t since) {
        const std::uint64_t came = scene_.feed.came_ns(range.first);
        if (came < since || came + reading_ns >= attempt.asked.ns) return;
        Finding finding = scene_.about(recovery_exact, listener, attempt);
        finding.expected = "no request from " + std::to_string(range.first) + " on: that came in its turn, at " +
                           scene_.list.time(came) + ", and nothing was missing";
        scene_.tell_if_received(std::move(finding), came, attempt.asked.ns);
    }

    // Whoever asks from 1 knows nothing yet, or throws away what it knows. It is told from a new process by what it
    // answers to: one gap after the other.
    void judge_beginnings(const Listener& listener) {
        std::vector<std::pair<const RecoveryAttempt*, const Gap*>> answers;
        for (std::size_t i = 1; i < listener.lives.size(); ++i) {
            const RecoveryAttempt& attempt = *listener.lives[i].attempts.front();
            if (const Gap* gap = gap_answered(listener.lives[i - 1], attempt)) answers.emplace_back(&attempt, gap);
        }
        const bool watched = scene_.around.sockets_are_watched;
        const bool another_way = listener.lives.size() > 1 && listener.lives.front().attempts.front()->asks_for_state();
        if (!watched && !answers_only(listener, answers.size())) return;
        for (const auto& [attempt, gap] : answers) {
            Finding finding = scene_.about(recovery_exact, listener, *attempt);
            finding.expected = "a request for " + text_of(gap->numbers) + ", for everything before had come";
            finding.got = "asks for everything again: " + finding.got;
            finding.where.feed_number = gap->numbers.first;
            if (!watched && !another_way && answers.size() == 1) {
                scene_.list.doubtful(std::move(finding), "it may be a new process that asks for the first time");
            } else {
                scene_.tell_if_received(std::move(finding), gap->shown.ns, attempt->asked.ns);
            }
        }
    }

    // The gap to which a request for everything answers, if everything before it was there.
    const Gap* gap_answered(const ListenersLife& before, const RecoveryAttempt& attempt) const {
        const bool whole = std::all_of(before.attempts.begin(), before.attempts.end(),
                                       [](const RecoveryAttempt* it) { return it->complete; });
        if (attempt.asks != Asks::messages || !whole || scene_.may_be_new(*before.attempts.back(), attempt)) {
            return nullptr;
        }
        for (const Gap& gap : scene_.feed.gaps) {
            if (gap.shown.ns < before.begun_ns || before.got.covers(gap.numbers)) continue;
            if (gap.numbers.first <= neighbours + 1 || gap.shown.ns > attempt.asked.ns) continue;
            const std::uint64_t settled = gap.settled_ns != 0 ? gap.settled_ns : gap.shown.ns;
            if (attempt.asked.ns <= settled + answer_ns) return &gap;
        }
        return nullptr;
    }

    // Where nobody watches the sockets: all that it asks for behind its first beginning is everything, and each time a
    // gap is there to answer to.
    static bool answers_only(const Listener& listener, std::size_t answers) {
        const bool only_beginnings = std::all_of(listener.lives.begin(), listener.lives.end(),
                                                 [](const ListenersLife& it) { return it.attempts.size() == 1; });
        return only_beginnings && answers != 0 && answers + 1 == listener.lives.size();
    }

    RecoveryScene& scene_;
};

}  // namespace

void judge_requests(RecoveryScene& scene) {
    RequestJudge(scene).judge();
}

}  // namespace kavo::companion
