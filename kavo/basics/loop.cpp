#include "kavo/basics/loop.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <system_error>
#include <utility>
#include <vector>

namespace kavo::companion {

void Loop::watch(int descriptor, short events, std::function<void(short)> ready) {
    watched_[descriptor] = Watch{events, std::move(ready), next_++};
}

void Loop::forget(int descriptor) {
    watched_.erase(descriptor);
}

Loop::Timer Loop::after(std::chrono::nanoseconds delay, std::function<void()> due) {
    const Timer timer = next_++;
    timers_.emplace(std::pair{Clock::now() + delay, timer}, std::move(due));
    return timer;
}

void Loop::cancel(Timer timer) {
    std::erase_if(timers_, [timer](const auto& entry) { return entry.first.second == timer; });
}

void Loop::turn(std::chrono::milliseconds longest) {
    std::vector<pollfd> waiting;
    std::vector<std::uint64_t> since;
    for (const auto& [descriptor, watch] : watched_) {
        waiting.push_back({descriptor, watch.events, 0});
        since.push_back(watch.since);
    }
    const int ready = poll(waiting.data(), waiting.size(), longest_wait_ms(longest));
    if (ready < 0 && errno != EINTR) throw std::system_error(errno, std::generic_category(), "poll");
    for (std::size_t i = 0; ready > 0 && i < waiting.size(); ++i) {
        if (waiting[i].revents == 0) continue;
        const auto found = watched_.find(waiting[i].fd);
        if (found == watched_.end() || found->second.since != since[i]) continue;
        const auto call = found->second.ready;  // a copy: it may forget its own descriptor
        call(waiting[i].revents);
    }
    call_what_is_due();
}

bool Loop::turn_until(const std::function<bool()>& done, std::chrono::milliseconds longest) {
    const auto end = Clock::now() + longest;
    while (!done()) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
        if (left.count() <= 0) return false;
        turn(left);
    }
    return true;
}

// What a timer sets anew is left for the next turn, even when it is due at once.
void Loop::call_what_is_due() {
    const std::pair<Clock::time_point, Timer> limit{Clock::now(), next_};
    while (!timers_.empty() && timers_.begin()->first < limit) {
        const auto due = std::move(timers_.begin()->second);
        timers_.erase(timers_.begin());
        due();
    }
}

int Loop::longest_wait_ms(std::chrono::milliseconds longest) const {
    if (!timers_.empty()) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(timers_.begin()->first.first - Clock::now());
        longest = std::min(longest, std::max(left, std::chrono::milliseconds{0}));
    }
    return static_cast<int>(std::max<std::int64_t>(longest.count(), 0));
}

}  // namespace kavo::companion
