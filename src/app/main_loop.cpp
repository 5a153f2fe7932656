#include "app/main_loop.h"

#include <atomic>
#include <csignal>
#include <utility>

#include "common/socket.h"

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

MainLoop::MainLoop(Venue& venue, const LoopSockets& sockets, Poll wait)
    : venue_(venue), sockets_(sockets), poll_(std::move(wait)) {}

void MainLoop::run() {
    while (stop_requested.load() == 0) {
        venue_.pass();
        wait_for_input();
    }
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
    OrderEntry& order_entry = venue_.order_entry;
    Retransmission& retransmission = venue_.retransmission;
    const auto watched = [](int listener, bool exhausted) { return exhausted ? no_socket : listener; };  // -1: skipped
    const auto events = [](bool input, bool output, int with_input = 0) {
        return static_cast<short>((input ? POLLIN | with_input : 0) | (output ? POLLOUT : 0));
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
        polled_.push_back({client.fd, events(order_entry.may_be_read(client), client.has_output(), POLLRDHUP), 0});
        if (client.can_go_on()) wait_ms_ = 0;
    }
    for (const auto* farewells : {&retransmission.farewells(), &order_entry.farewells()}) {
        for (const Farewell& farewell : *farewells) {
            polled_.push_back({farewell.fd, events(!farewell.peer_ended, !farewell.outgoing.empty()), 0});
        }
    }
}

// A socket that was found readable stays so until it has been read; whether its peer has ended is asked anew.
void MainLoop::mark(bool failed) {
    OrderEntry& order_entry = venue_.order_entry;
    Retransmission& retransmission = venue_.retransmission;
    auto result = polled_.begin();
    const auto next = [&] { return failed ? short{-1} : result++->revents; };
    constexpr int ends = POLLRDHUP | POLLERR | POLLHUP | POLLNVAL;
    constexpr int input = POLLIN | ends;
    order_entry.clients_waiting = (next() & input) != 0 || order_entry.accept_exhausted();
    retransmission.connections_waiting = (next() & input) != 0 || retransmission.accept_exhausted();
    for (RConn& connection : retransmission.connections()) connection.readable |= (next() & input) != 0;
    for (const ClientHandle handle : order_entry.open_clients()) {
        MeoClient& client = order_entry.client(handle);
        const int found = next();
        client.readable |= (found & input) != 0;
        client.end_possible = (found & ends) != 0 || !order_entry.may_be_read(client);
    }
}

}  // namespace kavo
