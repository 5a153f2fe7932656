#include "kavo/screen/feed_listener.h"

#include <csignal>
#include <cstdio>
#include <stdexcept>

#include "kavo/basics/now.h"
#include "kavo/basics/problem.h"
#include "kavo/screen/arrivals.h"
#include "kavo/screen/books.h"

namespace kavo::companion {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds shortest_pause{200};
constexpr milliseconds longest_feed_silence{3000};  // a simulator that runs sends a heartbeat every second
constexpr int longest_farewell = 10'000;            // datagrams that are still taken after the signal to stop

volatile std::sig_atomic_t stop_requested = 0;

// What has arrived is still shown; a second signal ends the program at once.
void request_stop(int number) {
    stop_requested = 1;
    std::signal(number, SIG_DFL);
}

// Says once in each silence what may be the matter.
class Silence {
public:
    void end() { *this = {}; }
    void go_on(FeedLines& lines) {
        if (said_ || steady_clock::now() - since_ < longest_feed_silence) return;
        said_ = true;
        lines.heard_at(now_ns());
        lines.silence();
    }

private:
    steady_clock::time_point since_ = steady_clock::now();
    bool said_ = false;
};

bool is_over(const std::optional<steady_clock::time_point>& end) {
    return stop_requested != 0 || (end && steady_clock::now() >= *end);
}

}  // namespace

client::FeedReader open_feed(const FeedAddress& address) {
    try {
        return client::FeedReader(address.group, address.port, address.interface_address);
    } catch (const std::runtime_error& error) {
        throw Problem(Status::bench, std::string(error.what()) +
                                         ": --group is a multicast group or an address of this machine, and --iface "
                                         "the address of one of its interfaces, as `ip address` lists them");
    }
}

void show_feed(const FeedWishes& wishes) {
    client::FeedReader feed = open_feed(wishes.address);
    std::signal(SIGINT, request_stop);
    std::signal(SIGTERM, request_stop);
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    FeedLines lines(wishes.json, wishes.window);
    Arrivals arrivals(lines);
    Books books(lines, wishes.recovery_port);
    Silence silence;
    std::optional<steady_clock::time_point> end;
    if (wishes.longest) end = steady_clock::now() + *wishes.longest;
    for (int farewell = longest_farewell; farewell > 0 && !lines.done();) {
        const bool stopping = is_over(end);
        if (stopping) --farewell;
        if (const auto datagram = feed.next_datagram(stopping ? milliseconds(0) : shortest_pause)) {
            silence.end();
            lines.heard_at(now_ns());
            wishes.book ? books.take(*datagram) : arrivals.take(*datagram);
            continue;
        }
        books.pause();
        if (stopping) return;
        silence.go_on(lines);
    }
}

}  // namespace kavo::companion
