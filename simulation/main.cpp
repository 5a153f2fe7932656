// Plays simulated days and audits them.
//
//   simulate --seeds 1..200       a summary, and every finding with the seed that leads to it again
//   simulate --seeds 17 --story   that day as a story
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "simulated_day.h"
#include "story.h"

namespace kavo::simulation {
namespace {

constexpr int exit_findings = 1;
constexpr int exit_usage = 2;

struct Orders {
    std::uint64_t first = 1;
    std::uint64_t last = 200;
    bool story = false;
};

// A day that ends the process takes the summary with it, so what it was is known from here.
char present_day[64] = "";

void name_the_day(int) {
    [[maybe_unused]] const ssize_t ignored = write(STDERR_FILENO, present_day, std::strlen(present_day));
    std::signal(SIGABRT, SIG_DFL);
    std::abort();
}

bool read_number(std::string_view text, std::uint64_t& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size();
}

// "A..B", or "A" for one. No seeds at all would be days without a finding, so B is not below A.
bool read_seeds(std::string_view text, Orders& orders) {
    const std::size_t dots = text.find("..");
    if (!read_number(text.substr(0, dots), orders.first)) return false;
    orders.last = orders.first;
    if (dots == std::string_view::npos) return true;
    return read_number(text.substr(dots + 2), orders.last) && orders.first <= orders.last;
}

std::optional<Orders> read_orders(std::span<const char* const> arguments) {
    Orders orders;
    for (; !arguments.empty(); arguments = arguments.subspan(1)) {
        const std::string_view word = arguments.front();
        if (word == "--story") {
            orders.story = true;
        } else if (word == "--seeds" && arguments.size() > 1 && read_seeds(arguments[1], orders)) {
            arguments = arguments.subspan(1);
        } else {
            return std::nullopt;
        }
    }
    return orders;
}

class Summary {
public:
    void add(const DayReport& day, std::uint64_t seed);
    void print() const;
    int exit_code() const { return findings_ == 0 ? EXIT_SUCCESS : exit_findings; }

private:
    std::uint64_t days_ = 0;
    std::uint64_t findings_ = 0;
    std::uint64_t passes_ = 0;
    std::uint64_t feed_messages_ = 0;
    std::uint64_t datagrams_ = 0;
    std::vector<model::Bench::Counter> counters_;
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

void Summary::add(const DayReport& day, std::uint64_t seed) {
    ++days_;
    passes_ += day.passes;
    feed_messages_ += day.feed_messages;
    datagrams_ += day.datagrams;
    counters_.resize(std::max(counters_.size(), day.counters.size()));
    for (std::size_t i = 0; i < day.counters.size(); ++i) {
        counters_[i] = {day.counters[i].name, counters_[i].value + day.counters[i].value};
    }
    if (day.finding.empty()) return;
    ++findings_;
    std::printf("seed %ju: %s\n  again: ./dev simulate --seeds %ju --story\n", static_cast<std::uintmax_t>(seed),
                day.finding.c_str(), static_cast<std::uintmax_t>(seed));
    std::fflush(stdout);
}

void Summary::print() const {
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start_;
    std::printf("%ju days in %.1f s: %ju passes, %ju feed messages, %ju datagrams, %ju findings\n",
                static_cast<std::uintmax_t>(days_), taken.count(), static_cast<std::uintmax_t>(passes_),
                static_cast<std::uintmax_t>(feed_messages_), static_cast<std::uintmax_t>(datagrams_),
                static_cast<std::uintmax_t>(findings_));
    std::string text;
    for (const auto& [name, value] : counters_) text += std::string(name) + "=" + std::to_string(value) + " ";
    std::printf("%s\n", text.c_str());
}

int run(const Orders& orders) {
    Summary summary;
    for (std::uint64_t seed = orders.first; seed <= orders.last; ++seed) {
        std::snprintf(present_day, sizeof present_day, "simulate: seed %ju ends the process\n",
                      static_cast<std::uintmax_t>(seed));
        SimulatedDay day(seed);
        day.play();
        const DayReport report = day.audit();
        if (orders.story) tell_story(day.tape(), report.finding, report.position, stdout);
        summary.add(report, seed);
    }
    summary.print();
    return summary.exit_code();
}

}  // namespace
}  // namespace kavo::simulation

int main(int argc, char** argv) {
    using namespace kavo::simulation;
    const auto orders = read_orders({argv + 1, static_cast<std::size_t>(argc - 1)});
    if (!orders) {
        std::fprintf(stderr, "usage: simulate [--seeds A..B] [--story]\n");
        return exit_usage;
    }
    std::signal(SIGABRT, name_the_day);
    return run(*orders);
}
