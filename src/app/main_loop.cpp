#include "app/main_loop.h"

#include <atomic>
#include <csignal>
#include <utility>

#include "app/statistics.h"
#include "common/socket.h"
#include "engine/snapshot_files.h"

namespace kavo {

namespace {

std::atomic<std::uint8_t> stop_requested{0};
static_assert(std::atomic<std::uint8_t>::is_always_lock_free, "a signal handler writes it");

void request_stop(int) {
    stop_requested.exchange(1);
}

}  // namespace

void install_stop_handler() {
    std::signal(SIGINT, request_stop);
    std::signal(SIGTERM, request_stop);
}

MainLoop::MainLoop(const LoopParts& parts, const LoopSockets& sockets, SnapshotPaths snapshots,
                   const std::int32_t& tick_interval_ms)
    : parts_(parts),
      sockets_(sockets),
      snapshots_(std::move(snapshots)),
      tick_interval_ms_(tick_interval_ms),
      last_tick_ms_(parts.clock.steady_ms()),
      last_bench_report_ms_(last_tick_ms_),
      last_feed_report_ms_(last_tick_ms_) {}

void MainLoop::run() {
    while (stop_requested.load() == 0) {
        parts_.control_port.drain(sockets_.control);
        accept_clients();
        parts_.order_entry.serve_clients();
        const std::uint64_t now_ms = parts_.clock.steady_ms();
        tick_market(now_ms);
        parts_.order_entry.deliver_engine_output();
        parts_.order_entry.announce_lapse(now_ms);
        parts_.order_entry.run_timers(now_ms);
        report_bench(now_ms);
        parts_.feed.heartbeat_when_idle();
        parts_.retransmission.serve(sockets_.retransmission_listener);
        write_snapshots(now_ms);
        report_feed(now_ms);
        wait_for_input();
    }
}

void MainLoop::accept_clients() {
    if (clients_waiting_) parts_.order_entry.accept_clients(sockets_.meo_listener);
}

// The interval is compared without its sign, deliberately: a negative one is too long to pass.
void MainLoop::tick_market(std::uint64_t now_ms) {
    const auto interval_ms = static_cast<std::uint64_t>(std::int64_t{tick_interval_ms_});
    if (is_due(now_ms, last_tick_ms_, interval_ms)) parts_.engine.tick();
}

void MainLoop::report_bench(std::uint64_t now_ms) {
    if (!parts_.bench.scripted() && sockets_.control == no_socket) return;
    if (!is_due(now_ms, last_bench_report_ms_, bench_report_interval_ms)) return;
    print_bench_report(parts_.bench, parts_.feed, parts_.order_entry);
}

void MainLoop::write_snapshots(std::uint64_t now_ms) {
    if (!is_due(now_ms, last_snapshot_ms_, snapshot_interval_ms)) return;
    const std::vector<Product>& products = parts_.engine.products();
    if (!snapshots_.book.empty()) replace_file(snapshots_.book, book_snapshot(products, parts_.clock.wall_ns()));
    if (!snapshots_.bbo.empty()) replace_file(snapshots_.bbo, bbo_snapshot(products));
}

void MainLoop::report_feed(std::uint64_t now_ms) {
    if (!is_due(now_ms, last_feed_report_ms_, feed_report_interval_ms)) return;
    print_feed_report(parts_.feed, parts_.engine, parts_.order_entry);
}

// Sleeps until something arrives, and marks what has: the next pass leaves idle sockets alone. A listener that could
// not accept for lack of descriptors is not watched, or its waiting connections would turn the loop into a spin; it is
// tried in every pass instead. The control port is not watched at all: it is tried in every pass.
void MainLoop::wait_for_input() {
    OrderEntry& order_entry = parts_.order_entry;
    Retransmission& retransmission = parts_.retransmission;
    const auto watched = [](int listener, bool exhausted) { return exhausted ? no_socket : listener; };  // -1: skipped

    polled_.clear();
    polled_.push_back({watched(sockets_.meo_listener, order_entry.accept_exhausted()), POLLIN, 0});
    polled_.push_back({watched(sockets_.retransmission_listener, retransmission.accept_exhausted()), POLLIN, 0});
    for (const RConn& connection : retransmission.connections()) polled_.push_back({connection.fd, POLLIN, 0});
    for (const ClientHandle handle : order_entry.open_clients()) {
        polled_.push_back({order_entry.client(handle).fd, POLLIN, 0});
    }
    poll(polled_.data(), polled_.size(), longest_wait_ms);

    auto result = polled_.begin();
    const auto next_is_ready = [&result] { return result++->revents != 0; };
    clients_waiting_ = next_is_ready() || order_entry.accept_exhausted();
    retransmission.connections_waiting = next_is_ready() || retransmission.accept_exhausted();
    for (RConn& connection : retransmission.connections()) connection.readable = next_is_ready();
    for (const ClientHandle handle : order_entry.open_clients()) order_entry.client(handle).readable = next_is_ready();
}

}  // namespace kavo
