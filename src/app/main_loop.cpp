#include "app/main_loop.h"

#include <atomic>
#include <csignal>

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

MainLoop::MainLoop(int meo_listener, OrderEntry& order_entry, Engine& engine, DomFeed& feed, const Clock& clock,
                   std::int32_t interval_ms)
    : tick_interval_ms(interval_ms),
      meo_listener_(meo_listener),
      order_entry_(order_entry),
      engine_(engine),
      feed_(feed),
      clock_(clock),
      last_tick_ms_(clock.steady_ms()) {}

void MainLoop::run() {
    while (stop_requested.load() == 0) {
        if (connections_waiting_) order_entry_.accept_clients(meo_listener_);
        order_entry_.serve_clients();
        const std::uint64_t now_ms = clock_.steady_ms();
        tick_market(now_ms);
        order_entry_.deliver_engine_output();
        order_entry_.announce_lapse(now_ms);
        order_entry_.run_timers(now_ms);
        feed_.heartbeat_when_idle();
        wait_for_input();
    }
}

// The interval is compared without its sign, deliberately: a negative one is too long to pass.
void MainLoop::tick_market(std::uint64_t now_ms) {
    const auto interval_ms = static_cast<std::uint64_t>(std::int64_t{tick_interval_ms});
    if (elapsed_ms(now_ms, last_tick_ms_) < interval_ms) return;
    engine_.tick();
    last_tick_ms_ = now_ms;
}

// Sleeps until something arrives, and marks what has: the next pass leaves idle sockets alone. A listener that could
// not accept for lack of descriptors is not watched, or the waiting connections would turn the loop into a spin; it is
// tried in every pass instead.
void MainLoop::wait_for_input() {
    const bool exhausted = order_entry_.accept_exhausted();
    polled_.clear();
    polled_.push_back({exhausted ? -1 : meo_listener_, POLLIN, 0});
    for (const ClientHandle handle : order_entry_.open_clients()) {
        polled_.push_back({order_entry_.client(handle).fd, POLLIN, 0});
    }
    poll(polled_.data(), polled_.size(), longest_wait_ms);
    connections_waiting_ = exhausted || polled_.front().revents != 0;
    for (std::size_t i = 1; i < polled_.size(); ++i) {
        order_entry_.client(order_entry_.open_clients()[i - 1]).readable = polled_[i].revents != 0;
    }
}

}  // namespace kavo
