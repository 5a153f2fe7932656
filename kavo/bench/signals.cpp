#include "kavo/bench/signals.h"

#include <sys/signalfd.h>

#include <csignal>
#include <utility>

namespace kavo::companion {

StopSignals::StopSignals(Loop& loop, std::function<void(int)> stop) : loop_(loop) {
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGINT);
    sigaddset(&ends, SIGTERM);
    struct sigaction hangup {};
    sigaction(SIGHUP, nullptr, &hangup);
    if (hangup.sa_handler != SIG_IGN) sigaddset(&ends, SIGHUP);
    sigprocmask(SIG_BLOCK, &ends, nullptr);
    signals_ = Descriptor{signalfd(-1, &ends, SFD_CLOEXEC | SFD_NONBLOCK)};
    loop_.watch(signals_.get(), POLLIN, [this, stop = std::move(stop)](short) {
        signalfd_siginfo told{};
        while (read(signals_.get(), &told, sizeof told) > 0) stop(static_cast<int>(told.ssi_signo));
    });
}

StopSignals::~StopSignals() {
    loop_.forget(signals_.get());
}

}  // namespace kavo::companion
