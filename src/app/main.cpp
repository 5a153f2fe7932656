// The simulator: builds everything in order, runs the loop, reports. Everything lives here until the process ends.
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>

#include "app/bench.h"
#include "app/main_loop.h"
#include "app/options.h"
#include "app/statistics.h"
#include "common/socket.h"
#include "engine/snapshot_files.h"
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

void store_faults(FeedFaults& faults, const Options& options) {
    const DropBurst burst = parse_drop_burst(options.drop_burst);
    faults.drop_every = options.drop_every;
    faults.dup_every = options.dup_every;
    faults.reorder_every = options.reorder_every;
    faults.drop_burst_start = burst.start;
    faults.drop_burst_count = burst.count;
}

void prepare_bench(Bench& bench) {
    if (const std::string path = environment("BENCH_ORDER_TRUTH"); !path.empty()) bench.open_order_truth(path);
    if (const std::string text = environment("KAVO_ME_SCENARIO"); !text.empty()) bench.arm_scenario(text);
}

// Snapshots replace the file at this path; an empty one is none.
std::function<void(const std::string&)> replacing(const std::string& path) {
    if (path.empty()) return {};
    return [path](const std::string& text) { replace_file(path, text); };
}

int run(const Options& options) {
    const Clock clock;
    const auto session = static_cast<std::uint8_t>(options.session);
    Generator generator(options.seed);
    const MulticastSender sender(options.mcast, options.port, options.iface);
    DomFeed feed(session, clock, [&sender](ByteView datagram) { sender.send(datagram); });
    LoopSockets sockets;
    if (options.retrans_port != 0) {
        sockets.retransmission_listener =
            open_listener(options.retrans_port, retransmission_backlog, "kavo_me: retransmission listen");
    }
    store_faults(feed.faults, options);
    Bench bench;
    prepare_bench(bench);
    Engine engine(feed, generator,
                  {.step_bps = options.step_bps,
                   .touch_hit = options.touch_hit,
                   .quiet = options.quiet,
                   .session = session,
                   .acod = options.acod,
                   .max_order_size = options.max_order_size},
                  bench, clock);
    if (!options.truth_out.empty()) engine.book_truth.open(options.truth_out, std::ios::out | std::ios::app);
    if (options.control_port != 0) sockets.control = open_control_port(options.control_port);
    for (const SymbolItem& item : parse_symbols(options.symbols)) engine.add_product(item.name, item.reference);
    feed.send_start();
    engine.start_day();

    sockets.meo_listener = open_listener(options.meo_port, meo_backlog, "kavo_me: MEO listen");
    if (sockets.meo_listener == no_socket) return exit_no_listener;
    print_banner(options);
    install_stop_handler();

    std::int32_t tick_interval_ms = options.interval_ms;
    OrderEntry order_entry(engine, feed, bench, clock, socket_transport(sockets.meo_listener), session, options.quiet);
    Retransmission retransmission(feed, clock, socket_transport(sockets.retransmission_listener), session);
    ControlPort control_port(bench, engine, feed, clock, order_entry, tick_interval_ms);
    MainLoop loop({clock, bench, feed, engine, order_entry, retransmission, control_port, sockets.control != no_socket},
                  sockets, {replacing(options.book_out), replacing(options.bbo_out)}, tick_interval_ms);
    loop.run();
    print_final_report(bench, feed);
    return EXIT_SUCCESS;
}

}  // namespace
}  // namespace kavo

int main(int argc, char** argv) {
    kavo::fill_standard_streams();
    const auto options = kavo::parse_options({argv + 1, static_cast<std::size_t>(argc - 1)});
    if (!options) return kavo::exit_bad_configuration;
    return kavo::run(*options);
}
