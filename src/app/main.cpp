// The simulator: the venue on sockets, in the order in which they are opened, until the process ends.
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>

#include "app/main_loop.h"
#include "app/options.h"
#include "common/socket.h"
#include "feed/multicast_sender.h"

namespace kavo {
namespace {

constexpr int meo_backlog = 8;
constexpr int retransmission_backlog = 16;
constexpr int exit_no_listener = 1;
constexpr int exit_bad_configuration = 2;

// A standard stream that is closed is the first number that a socket or a file would get, and whatever the process says
// would end up there.
void fill_standard_streams() {
    int opened = STDIN_FILENO;
    do {
        opened = open("/dev/null", O_RDWR);
    } while (opened >= STDIN_FILENO && opened <= STDERR_FILENO);
    close_socket(opened);
}

std::string environment(const char* variable) {
    const char* value = std::getenv(variable);
    return value != nullptr ? value : "";
}

// Snapshots replace the file at this path; an empty one is none.
std::function<void(const std::string&)> replacing(const std::string& path) {
    if (path.empty()) return {};
    return [path](const std::string& text) { replace_file(path, text); };
}

// A port that cannot be bound says so, and the venue does without.
int open_control_port(std::uint16_t port, const ControlPort& control_port, const Commentary& commentary) {
    const int socket = open_local_datagrams(port, "kavo_me: control port", commentary);
    if (socket == no_socket) return no_socket;
    commentary.say("bench: control on 127.0.0.1:%u (%s)\n", port, control_port.known_words().c_str());
    return socket;
}

int run(const Options& options, const Commentary& commentary) {
    const Clock clock;
    const MulticastSender sender(options.mcast, options.port, options.iface);
    LoopSockets sockets;
    if (options.retrans_port != 0) {
        sockets.retransmission_listener =
            open_listener(options.retrans_port, retransmission_backlog, "kavo_me: retransmission listen", commentary);
    }
    Venue venue(options, {clock,
                          commentary,
                          [&sender](ByteView datagram) { sender.send(datagram); },
                          socket_transport(sockets.meo_listener),
                          socket_transport(sockets.retransmission_listener),
                          command_socket(sockets.control),
                          {replacing(options.book_out), replacing(options.bbo_out)}});
    if (options.control_port != 0) {
        sockets.control = open_control_port(options.control_port, venue.control_port, commentary);
        venue.control_port.open = sockets.control != no_socket;
    }
    venue.start_day();

    sockets.meo_listener = open_listener(options.meo_port, meo_backlog, "kavo_me: MEO listen", commentary);
    if (sockets.meo_listener == no_socket) return exit_no_listener;
    say_banner(options, commentary);
    install_stop_handler();
    MainLoop(venue, sockets).run();
    venue.report_end();
    return EXIT_SUCCESS;
}

}  // namespace
}  // namespace kavo

int main(int argc, char** argv) {
    kavo::fill_standard_streams();
    const kavo::Commentary commentary;
    auto options = kavo::parse_options({argv + 1, static_cast<std::size_t>(argc - 1)}, commentary);
    if (!options) return kavo::exit_bad_configuration;
    options->order_truth = kavo::environment("BENCH_ORDER_TRUTH");
    options->scenario = kavo::environment("KAVO_ME_SCENARIO");
    return kavo::run(*options, commentary);
}
