// What a client believed of its orders, held against what it had been told of them.
#include <algorithm>
#include <limits>

#include "kavo/audit/belief_scene.h"

namespace kavo::companion {

namespace {

using State = OrderStep::State;
using Steps = std::vector<OrderStep>;

bool state_agrees(const std::string& state, const OrderStep& step) {
    if (step.refused && state == "rejected") return true;
    if (step.replaced && (state == "replaced" || state == "cancelled")) return true;
    switch (step.state) {
        case State::working: return state == "working" || (step.fresh && state == "pending");
        case State::filled: return state == "filled";
        case State::cancelled: return state == "cancelled" || (step.all_executed && state == "filled");
        case State::rejected: return state == "rejected";
    }
    return false;
}

bool sums_agree(const OrderBelief& belief, const OrderStep& step) {
    const bool another = step.refused && belief.state == "rejected";
    if (another || !step.sizes_known) return true;
    const bool executed = !belief.executed || *belief.executed == step.executed ||
                          (step.replaced && *belief.executed == step.executed_as_this);
    const bool leaves = !belief.leaves || *belief.leaves == step.leaves || *belief.leaves == step.leaves_told ||
                        (step.replaced && *belief.leaves == 0);
    return executed && leaves;
}

// Half an answer leaves open which of its two messages has been taken; nothing is held against a belief there.
bool agrees(const OrderBelief& belief, const OrderStep& step) {
    return step.between || (state_agrees(belief.state, step) && sums_agree(belief, step));
}

// Of an order that the client was told nothing of, it knows what it has sent, and no more.
bool agrees_with_nothing(const OrderBelief& belief) {
    const bool open = belief.state == "working" || belief.state == "filled" || belief.state == "replaced";
    return !open && belief.executed.value_or(0) == 0;
}

std::string belief_text(const OrderBelief& belief) {
    std::string text = "line " + std::to_string(belief.said.line) + ": " + belief.state;
    if (belief.leaves) text += ", leaves " + std::to_string(*belief.leaves);
    if (belief.executed) text += ", executed " + std::to_string(*belief.executed);
    if (belief.sequence) text += ", after message " + std::to_string(*belief.sequence);
    return text;
}

class OrderJudge {
public:
    OrderJudge(BeliefScene& scene, const Believer& believer)
        : scene_(scene),
          believer_(believer),
          steps_(order_steps(believer.stream->told)),
          names_(believer.stream->told) {
        std::vector<ToldMessage> arrivals = believer.stream->told;
        std::stable_sort(arrivals.begin(), arrivals.end(), [](const ToldMessage& one, const ToldMessage& other) {
            return one.given.ns < other.given.ns;
        });
        as_it_came_ = order_steps(arrivals);
    }

    void judge() {
        std::map<std::string, std::vector<const OrderBelief*>> by_id;
        for (const OrderBelief* belief : believer_.orders) by_id[wire_id(belief->id, steps_)].push_back(belief);
        for (const auto& [id, beliefs] : by_id) judge(id, beliefs);
    }

private:
    void judge(const std::string& id, const std::vector<const OrderBelief*>& beliefs) {
        const auto known = steps_.find(id);
        const Steps& steps = known == steps_.end() ? none_ : known->second;
        std::size_t at = 0;  // steps before this one are past: a client goes from one to the next
        auto restarts = scene_.may_be_several(believer_) ? believer_.stream->from_nothing_ns.size() : 0;
        for (const OrderBelief* belief : beliefs) {
            const bool right = belief->sequence ? right_at(id, steps, *belief) : goes_on(steps, *belief, at, restarts);
            if (right) continue;
            // What follows from the first that is wrong is not told again.
            return tell(id, *belief, belief->sequence ? step_at(steps, *belief->sequence) : latest(steps, at));
        }
        judge_last(id, steps, *beliefs.back());
    }

    static const OrderStep* step_at(const Steps& steps, std::uint64_t sequence) {
        const OrderStep* found = nullptr;
        for (const OrderStep& step : steps) {
            if (step.sequence <= sequence) found = &step;
        }
        return found;
    }

    static const OrderStep* latest(const Steps& steps, std::size_t at) {
        if (steps.empty()) return nullptr;
        return &steps[std::min(at, steps.size() - 1)];
    }

    // An order that was sent once more than it was answered is waiting for its answer.
    bool waits(const std::string& id, const OrderBelief& belief, unsigned lives) const {
        const auto sent = believer_.stream->sent.find(id);
        return sent != believer_.stream->sent.end() && sent->second > lives && agrees_with_nothing(belief);
    }

    bool right_at(const std::string& id, const Steps& steps, const OrderBelief& belief) const {
        const OrderStep* step = step_at(steps, *belief.sequence);
        if (step == nullptr) return agrees_with_nothing(belief);
        if (agrees(belief, *step) || waits(id, belief, step->lives)) return true;
        return right_as_it_came(id, belief) || while_away(belief);
    }

    // A hole in the stream that was filled later: behind the number, and without what was still missing.
    bool right_as_it_came(const std::string& id, const OrderBelief& belief) const {
        const std::vector<ToldMessage>& told = believer_.stream->told;
        const auto last = std::upper_bound(
            told.begin(), told.end(), *belief.sequence,
            [](std::uint64_t sequence, const ToldMessage& message) { return sequence < message.sequence; });
        if (last == told.begin()) return false;
        const std::uint64_t given = std::prev(last)->given.ns;
        const bool hole = std::any_of(told.begin(), last, [&](const ToldMessage& it) { return it.given.ns > given; });
        const auto known = as_it_came_.find(id);
        if (!hole || known == as_it_came_.end()) return false;
        const OrderStep* found = nullptr;
        for (const OrderStep& step : known->second) {
            if (step.given.ns <= given && step.sequence <= *belief.sequence) found = &step;
        }
        return found == nullptr ? agrees_with_nothing(belief) : agrees(belief, *found);
    }

    // Between a lost connection and the end of the replay an order may be called pending, since nobody knows.
    bool while_away(const OrderBelief& belief) const {
        if (belief.state != "pending") return false;
        for (const Conversation& conversation : scene_.journal.conversations) {
            const bool its_own = conversation.service == Service::orders && conversation.user == believer_.stream->user;
            const bool broken = its_own && conversation.ended_by != EndedBy::client && conversation.closed.ns != 0;
            if (broken && (belief.said.t_ns == 0 || belief.said.t_ns >= conversation.closed.ns)) return true;
        }
        return false;
    }

    // Without a number it is right if the order stood so at some time, not before the time of the last belief.
    bool goes_on(const Steps& steps, const OrderBelief& belief, std::size_t& at, std::size_t& restarts) const {
        for (std::size_t i = at; i < steps.size(); ++i) {
            if (!agrees(belief, steps[i]) || steps[i].between) continue;
            at = i;
            return true;
        }
        // Whatever it calls pending or lost may have been sent again.
        const bool waiting = belief.state == "pending" || belief.state == "lost";
        if ((waiting || steps.empty()) && agrees_with_nothing(belief)) return true;
        if (restarts == 0) return while_away(belief);
        --restarts;
        at = 0;
        return goes_on(steps, belief, at, restarts);
    }

    // A belief holds until the next one, so the last one holds to the end of the log.
    void judge_last(const std::string& id, const Steps& steps, const OrderBelief& belief) {
        std::size_t due = steps.size();
        for (std::size_t i = 0; i < steps.size(); ++i) {
            const OrderStep& step = steps[i];
            // Once it was replaced, what is believed of the new id takes the place of what was believed of this one.
            const bool certain = !step.between && !step.fresh && !step.refused && !step.replaced;
            if (certain && believer_.must_know(step.sequence, step.given.ns, step.read_ns)) due = i;
        }
        if (due == steps.size()) return;
        for (std::size_t i = due; i < steps.size(); ++i) {
            if (agrees(belief, steps[i])) return;
        }
        if (waits(id, belief, steps.back().lives)) return;
        tell(id, belief, &steps[due], believer_.applied < steps[due].sequence);
    }

    //   step  how the order stood; nothing when the client was told nothing of it
    void tell(const std::string& id, const OrderBelief& belief, const OrderStep* step, bool by_time = false) {
        Finding finding;
        finding.rule = &belief_order;
        finding.belief = belief_text(belief);
        finding.got = finding.belief;
        finding.truth = step == nullptr ? "the client was told nothing of this order" : text_of(*step);
        finding.expected = in_quotes(id) + " as it was told: " + finding.truth;
        finding.where.user = believer_.stream->user;
        finding.where.order = id;
        finding.where.moment.ns = belief.said.t_ns;
        if (step != nullptr) {
            finding.where.stream_number = step->sequence;
            finding.where.moment = step->given;
        }
        if (scene_.miscounted.contains({believer_.stream->user, names_.one_for(id)})) {
            finding.because = "its fills were counted wrongly, see belief.fill";
            return scene_.list.remark(std::move(finding));
        }
        if (!by_time) return scene_.list.content(std::move(finding));
        finding.got += ", until " + scene_.list.time(believer_.ends_ns);
        scene_.list.timed(std::move(finding), step->given.ns, believer_.ends_ns);
    }

    BeliefScene& scene_;
    const Believer& believer_;
    OrderSteps steps_;
    OrderSteps as_it_came_;
    OrderNames names_;
    Steps none_;
};

}  // namespace

void judge_orders(BeliefScene& scene) {
    for (const Believer& believer : scene.believers) OrderJudge(scene, believer).judge();
}

}  // namespace kavo::companion
