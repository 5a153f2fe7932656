#include "trading_client.h"

#include <poll.h>

#include <array>
#include <cstdio>

namespace trading {

namespace {

constexpr int longest_wait_ms = 10;
constexpr std::uint64_t wind_down_ms = 6'000;  // longer than silence, a new login and its answers take
constexpr std::uint64_t closing_ms = 1'000;

pollfd polled(const Socket* socket, bool writes) {
    // Those without a number are passed over.
    return {socket == nullptr ? -1 : socket->number(), static_cast<short>(writes ? POLLIN | POLLOUT : POLLIN), 0};
}

}  // namespace

TradingClient::TradingClient(const Settings& settings)
    : settings_(settings),
      beliefs_(settings.beliefs, settings.user),
      keeper_(beliefs_, settings.fault),
      entry_(settings, keeper_),
      market_(settings, beliefs_),
      trader_(settings, market_, keeper_, entry_) {}

bool TradingClient::run() {
    const std::uint64_t end = now_ms() + settings_.trading_ms;
    while (now_ms() < end && entry_.refused().empty()) {
        turn();
        trader_.act(now_ms());
        if (trader_.done() && entry_.ready() && keeper_.open_on(entry_.connection()).empty()) break;
    }
    const bool in_order = wind_down();
    keeper_.tell_all();
    market_.tell(now_ms(), true);
    if (!in_order) {
        std::fprintf(stderr, "trading_client: not everything was answered in time. %s\n", entry_.refused().c_str());
        return false;
    }
    entry_.log_out(now_ms());
    for (const std::uint64_t close_by = now_ms() + closing_ms; entry_.socket().open() && now_ms() < close_by;) turn();
    return true;
}

void TradingClient::turn() {
    entry_.connect_if_due(now_ms());
    wait_for_input();
    market_.exchange(now_ms());
    entry_.exchange(now_ms());
    market_.tell(now_ms());
}

bool TradingClient::wind_down() {
    const std::uint64_t end = now_ms() + wind_down_ms;
    while (now_ms() < end && entry_.refused().empty()) {
        turn();
        if (trader_.wind_down() && market_.complete() && heard_of_everything()) return true;
    }
    return false;
}

// What has become of orders of earlier connections is asked for once more.
bool TradingClient::heard_of_everything() {
    if (!asked_at_the_end_ && keeper_.any_open_besides(entry_.connection())) {
        asked_at_the_end_ = true;
        entry_.ask_again();
    }
    return entry_.ready();
}

void TradingClient::wait_for_input() {
    std::array sockets{polled(&entry_.socket(), entry_.wants_to_write()), polled(&market_.feed(), false),
                       polled(market_.recovery(), market_.wants_to_write())};
    poll(sockets.data(), sockets.size(), longest_wait_ms);
}

}  // namespace trading
