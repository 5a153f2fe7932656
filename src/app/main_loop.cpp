#include "app/main_loop.h"

#include <array>
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

MainLoop::MainLoop(const LoopParts& parts, const LoopSockets& sockets, SnapshotWriters snapshots,
                   const std::int32_t& tick_interval_ms, Poll wait)
    : parts_(parts),
      sockets_(sockets),
      snapshots_(std::move(snapshots)),
      tick_interval_ms_(tick_interval_ms),
      poll_(std::move(wait)),
      last_tick_ms_(parts.clock.steady_ms()),
      last_bench_report_ms_(last_tick_ms_),
      last_feed_report_ms_(last_tick_ms_) {}

std::span<const MainLoop::Step> MainLoop::steps() {
    static constexpr auto all = std::to_array<Step>({
        {"drain the control port", &MainLoop::drain_control_port},
        {"accept clients", &MainLoop::accept_clients},
        {"serve clients", &MainLoop::serve_clients},
        {"continue sending", &MainLoop::continue_sending},
        {"read the time", &MainLoop::read_time},
        {"tick the market", &MainLoop::tick_market},
        {"deliver the engine's output", &MainLoop::deliver_engine_output},
        {"announce a lapse", &MainLoop::announce_lapse},
        {"run the clients' timers", &MainLoop::run_client_timers},
        {"report on the bench", &MainLoop::report_bench},
        {"send the feed's heartbeat", &MainLoop::send_feed_heartbeat},
        {"serve receivers", &MainLoop::serve_receivers},
        {"write snapshots", &MainLoop::write_snapshots},
        {"report on the feed", &MainLoop::report_feed},
    });
    return all;
}

void MainLoop::pass() {
    for (const Step& step : steps()) (this->*step.run)();
}

void MainLoop::run() {
    while (stop_requested.load() == 0) {
        pass();
        wait_for_input();
    }
}

// The interval is compared without its sign, deliberately: a negative one is too long to pass.
void MainLoop::tick_market() {
    const auto interval_ms = static_cast<std::uint64_t>(std::int64_t{tick_interval_ms_});
    if (is_due(now_ms_, last_tick_ms_, interval_ms)) parts_.engine.tick();
}

void MainLoop::report_bench() {
    if (!parts_.bench.scripted() && !parts_.control_port_open) return;
    if (!is_due(now_ms_, last_bench_report_ms_, bench_report_interval_ms)) return;
    print_bench_report(parts_.bench, parts_.feed, parts_.order_entry);
}

void MainLoop::write_snapshots() {
    if (!is_due(now_ms_, last_snapshot_ms_, snapshot_interval_ms)) return;
    const std::vector<Product>& products = parts_.engine.products();
    if (snapshots_.book) snapshots_.book(book_snapshot(products, parts_.clock.wall_ns()));
    if (snapshots_.bbo) snapshots_.bbo(bbo_snapshot(products));
}

void MainLoop::report_feed() {
    if (!is_due(now_ms_, last_feed_report_ms_, feed_report_interval_ms)) return;
    print_feed_report(parts_.feed, parts_.engine, parts_.order_entry);
}

// The next pass leaves idle sockets alone. When the poll itself fails, nothing is known, so every socket counts as
// readable; the wait is then an ordinary sleep, or the loop would turn into a spin.
void MainLoop::wait_for_input() {
    watch();
    const bool failed = poll_(polled_.data(), polled_.size(), wait_ms_) < 0;
    if (failed) poll_(nullptr, 0, wait_ms_);
    mark(failed);
}

// A listener that could not accept for lack of descriptors is not watched, or its waiting connections would turn the
// loop into a spin; it is tried in every pass instead. The control port is not watched at all: it is tried in every
// pass. Nobody waits while a client's or a receiver's turn has ended too early.
void MainLoop::watch() {
    OrderEntry& order_entry = parts_.order_entry;
    Retransmission& retransmission = parts_.retransmission;
    const auto watched = [](int listener, bool exhausted) { return exhausted ? no_socket : listener; };  // -1: skipped
    const auto events = [](bool input, bool output) {
        return static_cast<short>((input ? POLLIN : 0) | (output ? POLLOUT : 0));
    };

    wait_ms_ = longest_wait_ms;
    polled_.clear();
    polled_.push_back({watched(sockets_.meo_listener, order_entry.accept_exhausted()), POLLIN, 0});
    polled_.push_back({watched(sockets_.retransmission_listener, retransmission.accept_exhausted()), POLLIN, 0});
    for (const RConn& connection : retransmission.connections()) {
        const bool output = !connection.outgoing.empty();
        polled_.push_back({connection.fd, events(!output, output), 0});
        if (connection.backlog && !output) wait_ms_ = 0;
    }
    for (const ClientHandle handle : order_entry.open_clients()) {
        const MeoClient& client = order_entry.client(handle);
        polled_.push_back({client.fd, events(client.may_be_read(), client.has_output()), 0});
        if (client.can_go_on()) wait_ms_ = 0;
    }
    for (const auto* farewells : {&retransmission.farewells(), &order_entry.farewells()}) {
        for (const Farewell& farewell : *farewells) {
            polled_.push_back({farewell.fd, events(!farewell.peer_ended, !farewell.outgoing.empty()), 0});
        }
    }
}

// A socket that was found readable stays so until it has been read.
void MainLoop::mark(bool failed) {
    OrderEntry& order_entry = parts_.order_entry;
    Retransmission& retransmission = parts_.retransmission;
    auto result = polled_.begin();
    const auto next_has = [&](int events) { return failed | ((result++->revents & events) != 0); };
    constexpr int input = POLLIN | POLLERR | POLLHUP | POLLNVAL;
    order_entry.clients_waiting = next_has(input) || order_entry.accept_exhausted();
    retransmission.connections_waiting = next_has(input) || retransmission.accept_exhausted();
    for (RConn& connection : retransmission.connections()) connection.readable |= next_has(input);
    for (const ClientHandle handle : order_entry.open_clients()) order_entry.client(handle).readable |= next_has(input);
}

}  // namespace kavo
