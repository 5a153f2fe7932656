#include "audit/auditor.h"

#include <algorithm>

#include "audit/finding.h"

namespace kavo::simulation {

namespace {

constexpr std::uint64_t bench_report_interval_ms = 2'000;
constexpr std::uint64_t feed_report_interval_ms = 10'000;
constexpr std::uint64_t snapshot_interval_ms = 250;

bool is_due(std::uint64_t now_ms, std::uint64_t& last_ms, std::uint64_t interval_ms) {
    if (now_ms < last_ms || now_ms - last_ms < interval_ms) return false;
    last_ms = now_ms;
    return true;
}

}  // namespace

Auditor::Auditor(const Tape& tape, const std::vector<Bytes>& history, const Plan& plan)
    : plan_(plan),
      tape_(tape),
      feed_(tape_, history, plan),
      witness_(tape_, feed_),
      orders_(witness_, feed_, plan),
      bench_(orders_.venue.bench),
      sessions_(witness_, feed_, orders_, bench_, plan),
      recovery_(witness_, feed_, orders_, plan),
      tick_interval_ms_(plan.tick_interval_ms) {}

void Auditor::audit() {
    start_day();
    while (!tape_.at_end()) take(tape_.next());
    if (feed_.last_sequence() != feed_.messages_of_the_day()) throw Finding("messages were published that nobody owns");
}

void Auditor::start_day() {
    witness_.take(What::step);
    if (plan_.bench.scripted()) witness_.expect_said(plan_.bench.armed_line());
    feed_.expect_start();
    orders_.start_day();
    last_tick_ms_ = last_bench_report_ms_ = last_feed_report_ms_ = tape_.now_ms();
}

void Auditor::take(const Entry& entry) {
    switch (entry.what) {
        case What::step: return begin(entry.step);
        case What::readable:
            if (!sessions_.find_readable(entry.fd)) recovery_.find_readable(entry.fd);
            return;
        default: throw Finding("nobody expects " + in_words(entry));
    }
}

void Auditor::begin(Step step) {
    switch (step) {
        case Step::commands: return take_commands();
        case Step::accept: return sessions_.accept();
        case Step::serve: return sessions_.serve();
        case Step::continue_sending: return sessions_.continue_sending();
        case Step::read_time:
            pass_ms_ = tape_.now_ms();
            ++passes_;
            return;
        case Step::market: return tick();
        case Step::deliver: return sessions_.deliver();
        case Step::announce_lapse: return sessions_.announce_lapse(pass_ms_);
        case Step::timers: return sessions_.run_timers(pass_ms_);
        case Step::bench_report: return report_bench();
        case Step::feed_heartbeat: return feed_.run_heartbeat();
        case Step::recovery: return recovery_.serve();
        case Step::snapshots: return check_snapshots();
        case Step::feed_report: return report_feed();
        case Step::end_of_day: return end_day();
        default: return;
    }
}

// The interval is compared without its sign: a negative one is too long to pass.
void Auditor::tick() {
    if (!is_due(pass_ms_, last_tick_ms_, static_cast<std::uint64_t>(std::int64_t{tick_interval_ms_}))) return;
    orders_.tick();
}

void Auditor::report_bench() {
    if (!plan_.bench.scripted() && !plan_.control_port) return;
    if (!is_due(pass_ms_, last_bench_report_ms_, bench_report_interval_ms)) return;
    witness_.expect_said("bench: stats " + bench_.statistics() + " next_seq=" + next_sequence() + " " +
                         feed_.model.fault_summary() + sessions_.session_state());
}

void Auditor::report_feed() {
    if (!is_due(pass_ms_, last_feed_report_ms_, feed_report_interval_ms)) return;
    witness_.expect_said("[kavo_me] dom msgs " + std::to_string(feed_.last_sequence()) + " packets " +
                         std::to_string(feed_.model.datagrams()) + " dropped " +
                         std::to_string(feed_.model.faults[model::Feed::drop].befallen) + " retrans " +
                         std::to_string(recovery_.model().retransmissions) + " refreshes " +
                         std::to_string(recovery_.model().refreshes) + " resting " +
                         std::to_string(orders_.venue.books.resting.size()) + " clients " +
                         std::to_string(sessions_.clients_ever()));
    witness_.expect_said(feed_.model.fault_summary());
}

void Auditor::check_snapshots() {
    if (!is_due(pass_ms_, last_snapshot_ms_, snapshot_interval_ms)) return;
    witness_.expect_line(What::snapshot, orders_.venue.books.book_snapshot(tape_.now_ns()));
    witness_.expect_line(What::snapshot, orders_.venue.books.bbo_snapshot());
}

void Auditor::end_day() {
    witness_.expect_said(feed_.model.fault_summary());
    witness_.expect_said("bench: stats " + bench_.statistics() + " next_seq=" + next_sequence());
    witness_.expect_said("[kavo_me] stopped");
}

std::vector<model::Bench::Counter> Auditor::counters() const {
    const auto& [dropped, duplicated, reordered] = feed_.model.faults;
    const model::Recovery& recovery = recovery_.model();
    std::vector<model::Bench::Counter> counters = bench_.counters();
    counters.insert(counters.end(), {{"dropped", dropped.befallen},
                                     {"duplicated", duplicated.befallen},
                                     {"reordered", reordered.befallen},
                                     {"retransmissions", recovery.retransmissions},
                                     {"refreshes", recovery.refreshes}});
    return counters;
}

}  // namespace kavo::simulation
