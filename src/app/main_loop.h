// The one loop of the process: passes of the venue, and the wait between them.
#pragma once

#include <poll.h>

#include <functional>
#include <vector>

#include "app/venue.h"

namespace kavo {

// Descriptors that are open for the whole run; -1 where there is none.
struct LoopSockets {
    int control = -1;
    int meo_listener = -1;
    int retransmission_listener = -1;
};

class MainLoop {
public:
    using Poll = std::function<int(pollfd* polled, nfds_t count, int timeout_ms)>;

    //   wait  the system's poll, or a test's
    MainLoop(Venue& venue, const LoopSockets& sockets, Poll wait = poll);

    // Passes follow each other until SIGINT or SIGTERM asks for a stop.
    void run();
    // Sleeps until something arrives or can be sent on, and marks what has for the next pass.
    void wait_for_input();

private:
    static constexpr int longest_wait_ms = 5;

    void watch();
    void mark(bool failed);

    Venue& venue_;
    LoopSockets sockets_;
    Poll poll_;
    std::vector<pollfd> polled_;
    int wait_ms_ = 0;
};

// From here on SIGINT and SIGTERM stop the loop.
void install_stop_handler();

}  // namespace kavo
