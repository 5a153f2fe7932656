// The executions that a client counted, held against those that it was told of.
#include <algorithm>

#include "client/responses.h"
#include "client/transcript.h"
#include "kavo/audit/belief_scene.h"

namespace kavo::companion {

namespace {

struct ToldFill {
    const ToldMessage* told = nullptr;
    client::Execution fill;
    std::string order;     // the id that stands for all of the order's
    unsigned counted = 0;  // by how many lines
};

std::string amount(std::uint64_t quantity, std::uint64_t price) {
    return std::to_string(quantity) + " at " + client::price_text(price);
}

class FillJudge {
public:
    FillJudge(BeliefScene& scene, const Believer& believer)
        : scene_(scene),
          believer_(believer),
          names_(believer.stream->told),
          steps_(order_steps(believer.stream->told)) {
        for (const ToldMessage& told : believer.stream->told) {
            const auto fill = client::read_execution(told.message);
            if (fill) fills_.push_back({&told, *fill, names_.one_for(std::string(fill->client_order_id))});
        }
        for (std::size_t i = 0; i < fills_.size(); ++i) {
            by_execution_[fills_[i].fill.execution_id] = i;
            by_order_[fills_[i].order].push_back(i);
        }
    }

    void judge() {
        std::vector<const FillBelief*> unnamed;
        for (const FillBelief* belief : believer_.fills) {
            if (belief->execution)
                judge_named(*belief);
            else
                unnamed.push_back(belief);
        }
        // First those that agree in everything, so that a wrong one takes nobody else's place.
        std::vector<const FillBelief*> left;
        for (const FillBelief* belief : unnamed) {
            if (!count_equal(*belief)) left.push_back(belief);
        }
        for (const FillBelief* belief : left) judge_unequal(*belief);
        for (const ToldFill& fill : fills_) judge_uncounted(fill);
    }

private:
    std::string order_of(const FillBelief& belief) const { return names_.one_for(wire_id(belief.id, steps_)); }

    static bool equal(const FillBelief& belief, const ToldFill& fill) {
        return belief.quantity == fill.fill.quantity && belief.price == fill.fill.price;
    }

    void judge_named(const FillBelief& belief) {
        const auto known = by_execution_.find(*belief.execution);
        if (known == by_execution_.end()) {
            return tell(belief, "no such fill",
                        "the client was told of no execution " + std::to_string(*belief.execution));
        }
        ToldFill& fill = fills_[known->second];
        const bool again = fill.counted++ != 0;
        if (again) return tell_again(belief, fill);
        if (order_of(belief) != fill.order) {
            return tell(belief, "a fill of " + in_quotes(fill.fill.client_order_id), words(fill));
        }
        if (!equal(belief, fill)) tell(belief, amount(fill.fill.quantity, fill.fill.price), words(fill));
    }

    bool count_equal(const FillBelief& belief) {
        for (const std::size_t which : of_order(belief)) {
            ToldFill& fill = fills_[which];
            if (fill.counted != 0 || !equal(belief, fill)) continue;
            ++fill.counted;
            return true;
        }
        return false;
    }

    // One that is not as any that is left: a fill that is told wrongly, or one too many.
    void judge_unequal(const FillBelief& belief) {
        ToldFill* twin = nullptr;
        for (const std::size_t which : of_order(belief)) {
            ToldFill& fill = fills_[which];
            if (fill.counted == 0) {
                ++fill.counted;
                return tell(belief, amount(fill.fill.quantity, fill.fill.price), words(fill));
            }
            if (equal(belief, fill)) twin = &fill;
        }
        if (twin == nullptr) return tell(belief, "no such fill", all_of_order(belief));
        ++twin->counted;
        tell_again(belief, *twin);
    }

    const std::vector<std::size_t>& of_order(const FillBelief& belief) const {
        static const std::vector<std::size_t> none;
        const auto known = by_order_.find(order_of(belief));
        return known == by_order_.end() ? none : known->second;
    }

    // Only a client that writes fills at all can leave one out.
    void judge_uncounted(const ToldFill& fill) {
        const ToldMessage& told = *fill.told;
        if (fill.counted != 0 || believer_.fills.empty()) return;
        if (!believer_.must_know(told.sequence, told.given.ns, told.read_ns)) return;
        Finding finding = about(std::string(fill.fill.client_order_id));
        finding.expected = "a fill of " + in_quotes(fill.fill.client_order_id) + ": " +
                           amount(fill.fill.quantity, fill.fill.price) + ", counted once";
        finding.got = "no such fill until " + scene_.list.time(believer_.ends_ns);
        finding.truth = words(fill);
        finding.belief = "nothing";
        finding.where.moment = told.given;
        finding.where.stream_number = told.sequence;
        scene_.miscounted.insert({believer_.stream->user, fill.order});
        if (told.sequence <= believer_.applied) return scene_.list.content(std::move(finding));
        scene_.list.timed(std::move(finding), told.given.ns, believer_.ends_ns);
    }

    void tell_again(const FillBelief& belief, const ToldFill& fill) {
        tell(belief, "this fill once", words(fill) + ", counted " + std::to_string(fill.counted) + " times",
             counted_before_beginning(fill));
    }

    // All of an earlier process's fills, counted a second time by one that began anew.
    bool counted_before_beginning(const ToldFill& fill) const {
        if (!scene_.may_be_several(believer_)) return false;
        const std::vector<std::uint64_t>& beginnings = believer_.stream->from_nothing_ns;
        return std::any_of(beginnings.begin(), beginnings.end(),
                           [&](std::uint64_t ns) { return fill.told->given.ns < ns; });
    }

    void tell(const FillBelief& belief, const std::string& expected, const std::string& truth, bool doubtful = false) {
        Finding finding = about(wire_id(belief.id, steps_));
        finding.expected = expected;
        finding.belief = "line " + std::to_string(belief.said.line) + ": a fill of " + in_quotes(belief.id) + ": " +
                         amount(belief.quantity, belief.price);
        if (belief.execution) finding.belief += ", execution " + std::to_string(*belief.execution);
        finding.got = finding.belief;
        finding.truth = truth;
        finding.where.moment.ns = belief.said.t_ns;
        scene_.miscounted.insert({believer_.stream->user, order_of(belief)});
        if (!doubtful) return scene_.list.content(std::move(finding));
        scene_.list.doubtful(std::move(finding),
                             "it asked for everything again, so its log may be of two processes; one that begins anew "
                             "says so by a line \"start\"");
    }

    Finding about(const std::string& order) const {
        Finding finding;
        finding.rule = &belief_fill;
        finding.where.user = believer_.stream->user;
        finding.where.order = order;
        return finding;
    }

    std::string words(const ToldFill& fill) const {
        return amount(fill.fill.quantity, fill.fill.price) + " of " + in_quotes(fill.fill.client_order_id) +
               ", execution " + std::to_string(fill.fill.execution_id) + ", message " +
               std::to_string(fill.told->sequence) + " at " + scene_.list.time(fill.told->given.ns);
    }

    std::string all_of_order(const FillBelief& belief) const {
        std::string text;
        for (const std::size_t which : of_order(belief)) {
            if (text.size() < 400) text += (text.empty() ? "" : "; ") + words(fills_[which]);
        }
        return text.empty() ? "the client was told of no fill of this order" : text;
    }

    BeliefScene& scene_;
    const Believer& believer_;
    OrderNames names_;
    OrderSteps steps_;
    std::vector<ToldFill> fills_;
    std::map<std::uint64_t, std::size_t> by_execution_;
    std::map<std::string, std::vector<std::size_t>> by_order_;
};

}  // namespace

void judge_fills(BeliefScene& scene) {
    for (const Believer& believer : scene.believers) FillJudge(scene, believer).judge();
}

}  // namespace kavo::companion
