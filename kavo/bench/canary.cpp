#include "kavo/bench/canary.h"

#include <fcntl.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <system_error>

#include "kavo/basics/now.h"

namespace kavo::companion {

namespace {

using namespace std::chrono_literals;

constexpr auto nap = 10ms;
constexpr auto patience = 50ms;

struct Lateness {
    std::uint64_t t_ns;
    std::int64_t ms;
};

}  // namespace

// Signals are for the loop: a thread that is born with all of them blocked is given none.
Canary::Canary(Loop& loop, RunLog& log) : loop_(loop), log_(log) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
    told_ = Descriptor{ends[0]};
    tells_ = Descriptor{ends[1]};
    loop_.watch(told_.get(), POLLIN, [this](short) { drain(); });
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    // Counted from here: a thread that is given no time to begin is late as well.
    thread_ = std::thread([this, due = Clock::now() + nap] { watch_the_clock(due); });
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

Canary::~Canary() {
    stop_ = true;
    thread_.join();
    loop_.forget(told_.get());
}

void Canary::drain() {
    Lateness late{};
    while (read(told_.get(), &late, sizeof late) == static_cast<ssize_t>(sizeof late)) {
        log_.write(late.t_ns, "late", {{"ms", late.ms}});
    }
}

void Canary::watch_the_clock(Clock::time_point due) {
    for (; !stop_; due = Clock::now() + nap) {
        std::this_thread::sleep_until(due);
        const auto too_long = Clock::now() - due;
        if (too_long <= patience) continue;
        const Lateness late{now_ns(), std::chrono::duration_cast<std::chrono::milliseconds>(too_long).count()};
        // A pipe that is full has told of hundreds already.
        [[maybe_unused]] const ssize_t ignored = write(tells_.get(), &late, sizeof late);
    }
}

}  // namespace kavo::companion
