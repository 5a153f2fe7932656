// The one thread of kavo: whatever can be read or written, or is due, in turn. Nothing that it calls may block.
#pragma once

#include <poll.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>

namespace kavo::companion {

class Loop {
public:
    // Calls `ready` with the events of poll (POLLIN, POLLOUT, POLLHUP, ...) whenever there are any on this descriptor.
    // A descriptor is watched once; watching it again replaces what was asked for before.
    void watch(int descriptor, short events, std::function<void(short events)> ready);
    // From within a callback too. The caller closes the descriptor, after this.
    void forget(int descriptor);

    using Timer = std::uint64_t;  // 0 is none
    // Calls `due` once, in so long a time. Timers that are due at once are called in the order in which they were set.
    Timer after(std::chrono::nanoseconds delay, std::function<void()> due);
    void cancel(Timer timer);

    // Waits for the next thing to do, for as long as told at most, and does all that there is to do.
    void turn(std::chrono::milliseconds longest);
    // Turns until `done` says so after a turn; false when the time is over before.
    bool turn_until(const std::function<bool()>& done, std::chrono::milliseconds longest);

private:
    struct Watch {
        short events = 0;
        std::function<void(short)> ready;
        std::uint64_t since = 0;  // which watch of this descriptor: a callback may have closed it and opened another
    };
    using Clock = std::chrono::steady_clock;

    void call_what_is_due();
    int longest_wait_ms(std::chrono::milliseconds longest) const;

    std::map<int, Watch> watched_;
    std::map<std::pair<Clock::time_point, Timer>, std::function<void()>> timers_;
    std::uint64_t next_ = 1;
};

}  // namespace kavo::companion
