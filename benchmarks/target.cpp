#include "target.h"

#include <ctime>
#include <filesystem>
#include <stdexcept>

#include "timing.h"

namespace kavo::benchmarks {

namespace {

constexpr const char* banner_start = "[kavo_me] DoM/MACH";

std::string program(ServerKind kind) {
    return kind == ServerKind::simulator ? KAVO_ME_PATH : FLOOR_SERVER_PATH;
}

const char* floor_mode(ServerKind kind) {
    switch (kind) {
        case ServerKind::request_floor: return "request";
        case ServerKind::batching_floor: return "batches";
        default: return "plain";
    }
}

std::vector<std::string> simulator_arguments(std::uint16_t port, std::uint16_t feed_port, int tick_interval_ms) {
    return {"--meo-port",     std::to_string(port),
            "--mcast",        "127.0.0.1",
            "--port",         std::to_string(feed_port),
            "--retrans-port", "0",
            "--interval-ms",  std::to_string(tick_interval_ms),
            "--quiet",        "--symbols",
            "AAPL:190.00",    "--max-order-size",
            "1000000"};
}

std::vector<std::string> arguments(const ServerSettings& settings, std::uint16_t port, std::uint16_t feed_port,
                                   const std::string& order_truth, const std::string& book_truth) {
    if (settings.kind == ServerKind::simulator) {
        std::vector<std::string> result = simulator_arguments(port, feed_port, settings.tick_interval_ms);
        if (settings.book_truth) result.insert(result.end(), {"--truth-out", book_truth});
        return result;
    }
    std::vector<std::string> result{std::to_string(port), std::to_string(feed_port), floor_mode(settings.kind)};
    if (settings.order_truth) result.push_back(order_truth);
    return result;
}

std::map<std::string, std::string> environment(const ServerSettings& settings, const std::string& order_truth) {
    std::map<std::string, std::string> result;
    if (settings.order_truth) result["BENCH_ORDER_TRUTH"] = order_truth;
    if (!settings.pass_times.empty()) {
        result["LD_PRELOAD"] = PASS_CLOCK_PATH;
        result["PASS_TIMES"] = settings.pass_times;
    }
    return result;
}

}  // namespace

Target::Target(const ServerSettings& settings)
    : process_(program(settings.kind),
               arguments(settings, port(), feed_.port(), order_truth_.path(), book_truth_.path()),
               environment(settings, order_truth_.path())) {
    const bool simulator = settings.kind == ServerKind::simulator;
    if (!process_.says(simulator ? banner_start : "floor_server listens")) throw std::runtime_error(process_.said());
}

double Target::processor_seconds() const {
    clockid_t clock{};
    timespec used{};
    if (clock_getcpuclockid(process_.pid(), &clock) != 0 || clock_gettime(clock, &used) != 0) {
        throw std::runtime_error("a server has gone");
    }
    return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) * 1e-9;
}

void Target::tidy() {
    std::filesystem::resize_file(order_truth_.path(), 0);
    std::filesystem::resize_file(book_truth_.path(), 0);
    process_.said();
}

double start_seconds(const std::string& symbols) {
    const test::ReservedPort port;
    const client::FeedReader feed;
    std::vector<std::string> arguments = simulator_arguments(port.number(), feed.port(), -1);
    arguments.insert(arguments.end(), {"--symbols", symbols});
    return elapsed_seconds_of([&] {
        test::Process process(KAVO_ME_PATH, arguments);
        if (!process.says(banner_start)) throw std::runtime_error("no banner");
    });
}

}  // namespace kavo::benchmarks
