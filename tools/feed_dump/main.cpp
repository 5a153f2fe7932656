// Listens to the feed and prints every message in plain words: as it arrives, or with --book in order and with the
// book that follows from it.
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <string_view>

#include "arrivals.h"
#include "books.h"
#include "client/feed_reader.h"
#include "lines.h"

namespace kavo::feed_dump {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds shortest_pause{200};
constexpr milliseconds longest_silence{3000};  // a simulator that runs sends a heartbeat every second
constexpr int longest_farewell = 10'000;       // datagrams that are still taken after the signal to stop

volatile std::sig_atomic_t stop_requested = 0;

// What has arrived is still shown; a second signal ends the program at once.
void request_stop(int number) {
    stop_requested = 1;
    std::signal(number, SIG_DFL);
}

struct Arguments {
    std::string group = "233.54.28.111";
    std::uint16_t port = 25377;
    std::string iface = "127.0.0.1";
    std::uint16_t retrans_port = 25379;
    bool book = false;
};

[[noreturn]] void usage() {
    std::fprintf(stderr,
                 "usage: feed_dump [--mcast GROUP] [--port PORT] [--iface ADDRESS] [--book] [--retrans-port PORT]\n"
                 "  --book          print in order, and show the changed book after each message\n"
                 "  --retrans-port  where --book learns the books, and fetches what is missing (25379); 0: nowhere\n");
    std::exit(2);
}

Arguments parse(int argc, char** argv) {
    Arguments arguments;
    for (int i = 1; i < argc; ++i) {
        const std::string_view flag = argv[i];
        if (flag == "--book") {
            arguments.book = true;
            continue;
        }
        if (++i == argc) usage();
        if (flag == "--mcast") {
            arguments.group = argv[i];
        } else if (flag == "--port") {
            arguments.port = static_cast<std::uint16_t>(std::atoi(argv[i]));
        } else if (flag == "--iface") {
            arguments.iface = argv[i];
        } else if (flag == "--retrans-port") {
            arguments.retrans_port = static_cast<std::uint16_t>(std::atoi(argv[i]));
        } else {
            usage();
        }
    }
    return arguments;
}

// Says once in each silence what may be the matter.
class Silence {
public:
    void end() { *this = {}; }
    void go_on() {
        if (said_ || steady_clock::now() - since_ < longest_silence) return;
        said_ = true;
        print_remark(
            "silence: a simulator that runs here is heard every second. Does it have the same --mcast, --port "
            "and --iface? Where there is no multicast, give --mcast 127.0.0.1 to both");
    }

private:
    steady_clock::time_point since_ = steady_clock::now();
    bool said_ = false;
};

void listen(const Arguments& arguments) {
    client::FeedReader feed(arguments.group, arguments.port, arguments.iface);
    std::signal(SIGINT, request_stop);
    std::signal(SIGTERM, request_stop);
    Arrivals arrivals;
    Books books(feed, arguments.retrans_port);
    Silence silence;
    for (int farewell = longest_farewell; farewell > 0;) {
        const bool stopping = stop_requested != 0;
        if (stopping) --farewell;
        if (const auto datagram = feed.next_datagram(stopping ? milliseconds(0) : shortest_pause)) {
            silence.end();
            arguments.book ? books.take(*datagram) : arrivals.take(*datagram);
            continue;
        }
        books.pause();
        if (stopping) return;
        silence.go_on();
    }
}

}  // namespace
}  // namespace kavo::feed_dump

int main(int argc, char** argv) try {
    using namespace kavo::feed_dump;
    const Arguments arguments = parse(argc, argv);
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    listen(arguments);
    return 0;
} catch (const std::exception& error) {
    std::fprintf(stderr, "feed_dump: %s\n", error.what());
    return 1;
}
