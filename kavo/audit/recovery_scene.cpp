#include "kavo/audit/recovery_scene.h"

#include <algorithm>

namespace kavo::companion {

namespace {

// Generous: a right receiver on a right machine is far away from both.
constexpr std::uint64_t limit_behind_message_ns = 1'000 * ns_per_ms;
constexpr std::uint64_t limit_behind_heartbeat_ns = 3'000 * ns_per_ms;

std::uint64_t limit_of(const Gap& gap) {
    return gap.by_heartbeat ? limit_behind_heartbeat_ns : limit_behind_message_ns;
}

}  // namespace

RecoveryScene::RecoveryScene(const Journal& run, const Beliefs& beliefs, Verdict& verdict)
    : journal(run),
      around(feed_circumstances(run)),
      feed(picture_of_feed(run, around)),
      attempts(recovery_attempts(run)),
      listeners(listeners_of(attempts, beliefs, feed)),
      list(run, around, verdict) {
    for (const Conversation& it : run.conversations) {
        if (it.service == Service::orders && it.user != run.facts.house) order_logins_.push_back(it.opened.ns);
    }
}

std::uint64_t RecoveryScene::deadline(const ListenersLife& life, const Gap& gap, const RecoveryAttempt* asked) const {
    std::uint64_t free_ns = gap.settled_ns;
    for (const RecoveryAttempt* attempt : life.attempts) {
        if (attempt == asked) break;
        if (attempt->opened.ns <= free_ns + limit_behind_message_ns) free_ns = std::max(free_ns, attempt->ended.ns);
    }
    return free_ns + limit_of(gap);
}

void RecoveryScene::note_slack(const Gap& gap, std::uint64_t left_ns) {
    const double left_ms = static_cast<double>(std::min(left_ns, limit_of(gap))) / 1e6;
    if (slack && slack->least_ms <= left_ms) return;
    slack = Slack{&recovery_in_time, left_ms, static_cast<double>(limit_of(gap)) / 1e6};
}

bool RecoveryScene::may_be_new(const RecoveryAttempt& last, const RecoveryAttempt& attempt) const {
    if (around.socket_opened(last.asked.ns, attempt.asked.ns)) return true;
    return std::any_of(order_logins_.begin(), order_logins_.end(),
                       [&](std::uint64_t ns) { return ns > last.asked.ns && ns <= attempt.asked.ns; });
}

bool RecoveryScene::run_ends_before(std::uint64_t ns) const {
    const std::uint64_t last_heard = journal.feed.empty() ? 0 : journal.feed.back().at.ns;
    return last_heard < ns || (around.ended_ns != 0 && around.ended_ns < ns);
}

Finding RecoveryScene::about(const Rule& rule, const Listener& listener, const Gap& gap) const {
    Finding finding;
    finding.rule = &rule;
    finding.truth = text_of(gap.numbers) + " " + std::string(name_of(gap.loss));
    finding.where = {gap.shown, listener.user, "", gap.numbers.first, 0};
    return finding;
}

Finding RecoveryScene::about(const Rule& rule, const Listener& listener, const RecoveryAttempt& attempt) const {
    Finding finding;
    finding.rule = &rule;
    finding.got = how_asked(attempt);
    finding.where = {attempt.asked, listener.user, "", attempt.wanted.first, 0};
    return finding;
}

std::string RecoveryScene::how_shown(const Gap& gap) const {
    return (gap.by_heartbeat ? "by the heartbeat of " : "by the datagram of ") + list.time(gap.shown.ns);
}

std::string RecoveryScene::how_asked(const RecoveryAttempt& attempt) const {
    return text_of(attempt) + " at " + list.time(attempt.asked.ns);
}

void RecoveryScene::tell(Finding finding, std::uint64_t from_ns, std::uint64_t to_ns) {
    if (feed.began_again) {
        return list.doubtful(std::move(finding), "the feed began again at 1 in the middle of the run");
    }
    list.timed(std::move(finding), from_ns, to_ns);
}

void RecoveryScene::tell_if_received(Finding finding, std::uint64_t from_ns, std::uint64_t to_ns) {
    if (around.kernel_drops_of_clients != 0) {
        return list.doubtful(std::move(finding), "the kernel dropped " +
                                                     std::to_string(around.kernel_drops_of_clients) +
                                                     " datagram(s) for the client's socket, and does not say which");
    }
    tell(std::move(finding), from_ns, to_ns);
}

}  // namespace kavo::companion
