// The simulator under load, beside the floor: the same clients drive both in turn, and the last columns of the table
// say what the simulator costs in multiples of the system calls that it cannot do without.
//
// Takes the flags of Google Benchmark that make sense here: --benchmark_filter=<regex>, --benchmark_repetitions=<runs>
// and --benchmark_list_tests.
#include <regex.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "target.h"
#include "timing.h"
#include "traffic.h"

namespace kavo::benchmarks {

namespace {

struct ContenderSettings {
    std::string name;
    ServerSettings server;
    std::size_t resting_orders = 0;
};

struct Scenario {
    std::string name;
    Pattern pattern;
    std::size_t requests = 0;  // of each run
    std::vector<ContenderSettings> contenders;
};

const std::vector<ContenderSettings> beside_floors{
    {"floor, every answer pushed", {ServerKind::plain_floor}},
    {"floor, a request at once", {ServerKind::request_floor}},
    {"floor, requests together", {ServerKind::batching_floor}},
    {"kavo_me", {ServerKind::simulator}},
};
const std::vector<ContenderSettings> beside_floors_with_order_truth{
    {"floor, every answer pushed", {ServerKind::plain_floor, true}},
    {"floor, a request at once", {ServerKind::request_floor, true}},
    {"floor, requests together", {ServerKind::batching_floor, true}},
    {"kavo_me", {ServerKind::simulator, true}},
};
const std::vector<ContenderSettings> truth_logs{
    {"kavo_me", {ServerKind::simulator}},
    {"kavo_me, order truth", {ServerKind::simulator, true}},
    {"kavo_me, book truth", {ServerKind::simulator, false, true}},
};
const std::vector<ContenderSettings> full_books{
    {"kavo_me, 1 k resting", {ServerKind::simulator}, 1'000},
    {"kavo_me, 100 k resting", {ServerKind::simulator}, 100'000},
    {"kavo_me, 1 M resting", {ServerKind::simulator}, 1'000'000},
};
const std::vector<ContenderSettings> full_books_with_book_truth{
    {"kavo_me, 1 k resting", {ServerKind::simulator, false, true}, 1'000},
    {"kavo_me, 1 M resting", {ServerKind::simulator, false, true}, 1'000'000},
};

const std::vector<Scenario> scenarios{
    {"ping_pong", {.busy_clients = 1, .window = 1}, 10'000, beside_floors},
    {"window_16", {.busy_clients = 1, .window = 16}, 20'000, beside_floors},
    {"window_256", {.busy_clients = 1, .window = 256}, 40'000, beside_floors},
    {"clients_8", {.busy_clients = 8, .window = 1}, 20'000, beside_floors},
    {"clients_64", {.busy_clients = 64, .window = 1}, 20'000, beside_floors},
    {"clients_256", {.busy_clients = 256, .window = 1}, 20'000, beside_floors},
    {"busy_among_255_idle", {.busy_clients = 1, .idle_clients = 255, .window = 1}, 8'000, beside_floors},
    {"order_truth_ping_pong", {.busy_clients = 1, .window = 1}, 10'000, beside_floors_with_order_truth},
    {"order_truth_window_256", {.busy_clients = 1, .window = 256}, 40'000, beside_floors_with_order_truth},
    {"truth_logs_window_256", {.busy_clients = 1, .window = 256}, 40'000, truth_logs},
    {"full_books_ping_pong", {.busy_clients = 1, .window = 1}, 10'000, full_books},
    {"full_books_window_256", {.busy_clients = 1, .window = 256}, 40'000, full_books},
    {"full_books_book_truth_ping_pong", {.busy_clients = 1, .window = 1}, 10'000, full_books_with_book_truth},
};

// What was measured, run by run.
struct Figures {
    std::vector<double> requests_a_second;
    std::vector<double> processor_us;  // of the server, for a request
    std::vector<double> first_p50_us;
    std::vector<double> first_p99_us;
};

double percentile(std::vector<double>& values, double part) {
    const auto at = values.begin() + static_cast<std::ptrdiff_t>(part * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), at, values.end());
    return *at;
}

// A server with its clients.
class Contender {
public:
    Contender(const ContenderSettings& settings, const Pattern& pattern)
        : name(settings.name), target_(settings.server), traffic_(target_.port(), pattern) {
        if (settings.server.kind == ServerKind::simulator && pattern.busy_clients == 1) fill(settings.resting_orders);
    }

    void run(std::size_t requests) {
        const double before = target_.processor_seconds();
        Traffic::Run run = traffic_.run(requests);
        const double used = target_.processor_seconds() - before;
        const auto count = static_cast<double>(run.requests);
        figures.requests_a_second.push_back(count / run.seconds);
        figures.processor_us.push_back(used / count * 1e6);
        figures.first_p50_us.push_back(percentile(run.first_answers_us, 0.5));
        figures.first_p99_us.push_back(percentile(run.first_answers_us, 0.99));
        target_.tidy();
    }

    // What comes before the first run that counts.
    void warm_up(std::size_t requests) {
        run(requests);
        figures = {};
    }

    std::string name;
    Figures figures;

private:
    // Afterwards the history and the client's stream are full, as they are on a venue that has run for a while, however
    // many orders there are.
    void fill(std::size_t resting_orders) {
        constexpr std::size_t step = 50'000;
        for (std::size_t rested = 0; rested < resting_orders; rested += step) {
            traffic_.rest_orders(std::min(step, resting_orders - rested));
            target_.tidy();
        }
        constexpr std::size_t enough = 210'000;
        for (std::size_t made = resting_orders; made < enough; made += step) {
            traffic_.exchange_orders(step);
            target_.tidy();
        }
    }

    Target target_;
    Traffic traffic_;
};

void print_header() {
    const auto print = [](auto... cells) { std::printf("%-32s %-27s %9s %8s %8s %9s  %9s %9s %9s %8s\n", cells...); };
    print("", "", "requests", "first", "first", "processor", "processor", "processor", "processor", "p50");
    print("scenario", "server", "a second", "p50 us", "p99 us", "us", "to row 1", "to row 2", "to row 3", "to row 1");
}

using Contenders = std::vector<std::unique_ptr<Contender>>;

void print_row(const std::string& scenario, const Figures& figures, const std::string& name, const Contenders& rows) {
    std::printf("%-32s %-27s %9.0f %8.2f %8.2f %9.3f ", scenario.c_str(), name.c_str(),
                median(figures.requests_a_second), median(figures.first_p50_us), median(figures.first_p99_us),
                median(figures.processor_us));
    for (std::size_t row = 0; row < 3; ++row) {
        if (row < rows.size()) {
            std::printf(" %9.3f", median_ratio(figures.processor_us, rows[row]->figures.processor_us));
        } else {
            std::printf(" %9s", "");
        }
    }
    std::printf(" %8.3f\n", median_ratio(figures.first_p50_us, rows[0]->figures.first_p50_us));
    std::fflush(stdout);
}

void run_scenario(const Scenario& scenario, int runs) {
    Contenders contenders;
    contenders.reserve(scenario.contenders.size());
    for (const ContenderSettings& settings : scenario.contenders) {
        contenders.push_back(std::make_unique<Contender>(settings, scenario.pattern));
    }
    for (const auto& contender : contenders) contender->warm_up(scenario.requests);
    for (int i = 0; i < runs; ++i) {
        for (const auto& contender : contenders) contender->run(scenario.requests);
    }
    for (const auto& contender : contenders) {
        print_row(scenario.name, contender->figures, contender->name, contenders);
    }
}

void run_start(const std::string& name, std::size_t products, int runs) {
    std::string symbols;
    for (std::size_t i = 0; i < products; ++i) symbols += "S" + std::to_string(i) + ":100.00,";
    std::vector<double> milliseconds;
    for (int i = 0; i < runs; ++i) milliseconds.push_back(start_seconds(symbols) * 1e3);
    std::printf("%-32s %-27s %10.2f ms\n", name.c_str(), "kavo_me", median(milliseconds));
}

bool matches(const std::string& name, const std::string& expression) {
    regex_t regex;
    if (regcomp(&regex, expression.c_str(), REG_EXTENDED | REG_NOSUB) != 0) throw std::runtime_error("bad filter");
    const bool found = regexec(&regex, name.c_str(), 0, nullptr, 0) == 0;
    regfree(&regex);
    return found;
}

struct Choice {
    std::string filter = ".";
    int runs = 5;
    bool list = false;
};

// What is meant for the other benchmarks is taken and ignored.
Choice parse(int argc, char** argv) {
    Choice choice;
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        const std::string value(argument.substr(std::min(argument.size(), argument.find('=') + 1)));
        if (argument.starts_with("--benchmark_filter=")) choice.filter = value;
        if (argument.starts_with("--benchmark_repetitions=")) choice.runs = std::max(1, std::stoi(value));
        if (argument.starts_with("--benchmark_list_tests")) choice.list = true;
        if (!argument.starts_with("--benchmark_")) throw std::runtime_error("unknown flag " + std::string(argument));
    }
    return choice;
}

void run_chosen(const Choice& choice) {
    const auto is_chosen = [&](const std::string& name) {
        if (!matches(name, choice.filter)) return false;
        if (choice.list) std::printf("%s\n", name.c_str());
        return !choice.list;
    };
    if (!choice.list) print_header();
    for (const Scenario& scenario : scenarios) {
        if (is_chosen(scenario.name)) run_scenario(scenario, choice.runs);
    }
    if (is_chosen("start_3_products")) run_start("start_3_products", 3, choice.runs);
    if (is_chosen("start_2000_products")) run_start("start_2000_products", 2'000, choice.runs);
}

}  // namespace
}  // namespace kavo::benchmarks

int main(int argc, char** argv) {
    using namespace kavo::benchmarks;
    try {
        run_chosen(parse(argc, argv));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "load: %s\n", error.what());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
