#include "audit/audited_feed.h"

#include "audit/finding.h"
#include "client/transcript.h"
#include "model/wire.h"

namespace kavo::simulation {

AuditedFeed::AuditedFeed(TapeReader& tape, const std::vector<Bytes>& history, const Plan& plan)
    : model(plan.engine.session, plan.limits), tape_(tape), history_(history) {
    model.burst_start = plan.faults.drop_burst_start;
    model.burst_count = plan.faults.drop_burst_count;
    model.faults[model::Feed::drop].script.every = plan.faults.drop_every;
    model.faults[model::Feed::duplicate].script.every = plan.faults.dup_every;
    model.faults[model::Feed::reorder].script.every = plan.faults.reorder_every;
}

std::uint64_t AuditedFeed::stamped_ns() {
    take_overflows();
    return before_overflow_ns_.value_or(tape_.now_ns());
}

void AuditedFeed::publish(const Bytes& expected) {
    for (const Bytes& due : model.announced(expected, stamped_ns())) {
        if (published_ == history_.size()) throw Finding("never published: " + client::dom_text(due));
        const Bytes& found = message(++published_);
        if (found != due) {
            throw Finding("feed message " + std::to_string(published_) + " is '" + client::dom_text(found) +
                          "', but should be '" + client::dom_text(due) + "'\n  " + model::hex(found) + "\n  " +
                          model::hex(due));
        }
        if (model.last_number() < published_) tell_model();
    }
    before_overflow_ns_.reset();
}

void AuditedFeed::tell_model() {
    const auto departures = model.publish(message(model.last_number() + 1));
    due_.insert(due_.end(), departures.begin(), departures.end());
}

// Only the System Time in front of a message that did not fit, and that one, can have been published without our
// knowing. False when they are not what sends a datagram on its way.
bool AuditedFeed::tell_ahead() {
    while (due_.empty() && model.last_number() < published_ + 2 && model.last_number() < history_.size()) tell_model();
    return !due_.empty();
}

void AuditedFeed::take_overflows() {
    while (tape_.at_datagram() && tell_ahead()) {
        if (!before_overflow_ns_) before_overflow_ns_ = tape_.now_ns();
        expect_next();
    }
}

void AuditedFeed::expect_flush() {
    if (model.last_number() != published_) throw Finding("messages are sent that nobody has published");
    expect(model.flush());
    before_overflow_ns_.reset();
}

void AuditedFeed::expect(const model::Feed::Departures& departures) {
    due_.insert(due_.end(), departures.begin(), departures.end());
    while (!due_.empty()) expect_next();
}

void AuditedFeed::expect_next() {
    const auto [datagram, said] = due_.front();
    due_.pop_front();
    const Entry& entry = tape_.next();
    if (due_.empty()) model.left(tape_.now_ms());
    if (said.empty() ? entry.what == What::datagram && entry.bytes == datagram
                     : entry.what == What::commentary && entry.text == said) {
        return;
    }
    throw Finding("expected " + (said.empty() ? in_words(entry_of(What::datagram, 0, datagram)) : "'" + said + "'") +
                  ", but found " + in_words(entry));
}

void AuditedFeed::expect_start() {
    expect(model.start());
}

void AuditedFeed::run_heartbeat() {
    expect(model.heartbeat_when_idle(tape_.now_ms()));
}

}  // namespace kavo::simulation
