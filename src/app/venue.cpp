#include "app/venue.h"

#include <array>
#include <utility>

#include "app/statistics.h"

namespace kavo {

namespace {

EngineSettings engine_settings(const Options& options) {
    return {.step_bps = options.step_bps,
            .touch_hit = options.touch_hit,
            .interval_ms = options.interval_ms,
            .quiet = options.quiet,
            .session = options.session_number(),
            .acod = options.acod,
            .max_order_size = options.max_order_size};
}

void store_faults(FeedFaults& faults, const Options& options) {
    const DropBurst burst = parse_drop_burst(options.drop_burst);
    faults.drop_every = options.drop_every;
    faults.dup_every = options.dup_every;
    faults.reorder_every = options.reorder_every;
    faults.drop_burst_start = burst.start;
    faults.drop_burst_count = burst.count;
}

}  // namespace

Venue::Venue(const Options& options, Surroundings surroundings)
    : generator(options.seed),
      feed(options.session_number(), surroundings.clock, std::move(surroundings.send_datagram),
           surroundings.commentary),
      engine(feed, generator, engine_settings(options), bench, surroundings.clock, surroundings.commentary),
      order_entry(engine, feed, bench, surroundings.clock, std::move(surroundings.clients), options.session_number(),
                  options.quiet, surroundings.commentary),
      retransmission(feed, surroundings.clock, std::move(surroundings.receivers), options.session_number(),
                     surroundings.commentary),
      control_port(bench, engine, feed, order_entry, surroundings.clock, surroundings.commentary,
                   std::move(surroundings.commands)),
      clock_(surroundings.clock),
      commentary_(surroundings.commentary),
      snapshots_(std::move(surroundings.snapshots)),
      symbols_(options.symbols),
      last_bench_report_ms_(clock_.steady_ms()),
      last_feed_report_ms_(last_bench_report_ms_) {
    store_faults(feed.faults, options);
    feed.history_limit = surroundings.limits.history_messages;
    order_entry.stream_limit = surroundings.limits.stream_messages;
    engine.closed_ids.limit = surroundings.limits.closed_ids;
    order_entry.held_limit_bytes = surroundings.limits.held_bytes;
    if (!options.order_truth.empty()) engine.order_truth.log.open(options.order_truth);
    if (!options.scenario.empty()) bench.arm_scenario(options.scenario, commentary_);
    if (!options.truth_out.empty()) engine.books.truth.open(options.truth_out);
}

void Venue::start_day() {
    for (const SymbolItem& item : parse_symbols(symbols_)) engine.books.add_product(item.name, item.reference);
    feed.send_start();
    engine.start_day();
    last_bench_report_ms_ = last_feed_report_ms_ = clock_.steady_ms();
}

std::span<const Venue::Step> Venue::steps() {
    static constexpr auto all = std::to_array<Step>({
        {"drain the control port", &Venue::drain_control_port},
        {"accept clients", &Venue::accept_clients},
        {"serve clients", &Venue::serve_clients},
        {"continue sending", &Venue::continue_sending},
        {"read the time", &Venue::read_time},
        {"tick the market", &Venue::tick_market},
        {"deliver the engine's output", &Venue::deliver_engine_output},
        {"announce a lapse", &Venue::announce_lapse},
        {"run the clients' timers", &Venue::run_client_timers},
        {"report on the bench", &Venue::report_bench},
        {"send the feed's heartbeat", &Venue::send_feed_heartbeat},
        {"serve receivers", &Venue::serve_receivers},
        {"write snapshots", &Venue::write_snapshots},
        {"report on the feed", &Venue::report_feed},
    });
    return all;
}

void Venue::pass() {
    for (const Step& step : steps()) (this->*step.run)();
}

void Venue::report_end() const {
    say_final_report(bench, feed, commentary_);
}

void Venue::report_bench() {
    if (!bench.scripted() && !control_port.open) return;
    if (!take_if_due(now_ms_, last_bench_report_ms_, bench_report_interval_ms)) return;
    say_bench_report(bench, feed, order_entry, commentary_);
}

void Venue::write_snapshots() {
    if (!take_if_due(now_ms_, last_snapshot_ms_, snapshot_interval_ms)) return;
    if (!snapshots_.book && !snapshots_.bbo) return;
    const std::vector<BookView> books = engine.books.views();
    if (snapshots_.book) snapshots_.book(book_snapshot(books, clock_.wall_ns()));
    if (snapshots_.bbo) snapshots_.bbo(bbo_snapshot(books));
}

void Venue::report_feed() {
    if (!take_if_due(now_ms_, last_feed_report_ms_, feed_report_interval_ms)) return;
    say_feed_report(feed, engine, order_entry, commentary_);
}

}  // namespace kavo
