#include "kavo/bench/environment.h"

#include <unistd.h>

#include <array>
#include <map>

namespace kavo::companion {

namespace {

std::string local(std::uint16_t port) {
    return "127.0.0.1:" + std::to_string(port);
}

std::string names_of(const std::vector<std::string>& symbols) {
    std::string names;
    for (const std::string& symbol : symbols) names += (names.empty() ? "" : ",") + symbol;
    return names;
}

using Facts = BenchFacts;
using Folder = RunFolder;

constexpr auto variables = std::to_array<Variable>({
    {"KAVO_ORDERS", "where orders go, over TCP", [](const Facts& f, const Folder&) { return local(f.orders_port); }},
    {"KAVO_FEED", "group and UDP port of the feed",
     [](const Facts& f, const Folder&) { return f.group + ":" + std::to_string(f.feed_port); }},
    {"KAVO_IFACE", "address of the interface on which to join the group",
     [](const Facts& f, const Folder&) { return f.interface_address; }},
    {"KAVO_RECOVERY", "where lost messages of the feed are asked for, over TCP",
     [](const Facts& f, const Folder&) { return local(f.recovery_port); }},
    {"KAVO_CONTROL", "the control port, over UDP", [](const Facts& f, const Folder&) { return local(f.control_port); }},
    {"KAVO_DIR", "the run's folder", [](const Facts&, const Folder& d) { return d.path.string(); }},
    {"KAVO_CLIENT_LOG", "where a client may write down what it believes",
     [](const Facts&, const Folder& d) { return d.beliefs().string(); }},
    {"KAVO_SYMBOLS", "names of the products, in the order of their ids from 1",
     [](const Facts& f, const Folder&) { return names_of(f.symbols); }},
    {"KAVO_SESSION", "the session number", [](const Facts& f, const Folder&) { return std::to_string(f.session); }},
    {"KAVO_SEED", "the seed of the market", [](const Facts& f, const Folder&) { return std::to_string(f.seed); }},
    {"KAVO_SCENARIO", "the scenario", [](const Facts& f, const Folder&) { return f.scenario; }},
});

std::vector<std::string> own_environment_with(const std::map<std::string, std::string, std::less<>>& set) {
    std::vector<std::string> all;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string_view text(*entry);
        if (!set.contains(text.substr(0, text.find('=')))) all.emplace_back(text);
    }
    for (const auto& [name, value] : set) all.push_back(name + "=" + value);
    return all;
}

}  // namespace

std::span<const Variable> command_variables() {
    return variables;
}

std::vector<std::string> command_environment(const BenchFacts& facts, const RunFolder& folder) {
    std::map<std::string, std::string, std::less<>> set;
    for (const Variable& variable : variables) set.emplace(variable.name, variable.value(facts, folder));
    return own_environment_with(set);
}

std::vector<std::string> venue_environment(const BenchFacts& facts, const RunFolder& folder) {
    return own_environment_with(
        {{"KAVO_ME_SCENARIO", facts.scenario}, {"BENCH_ORDER_TRUTH", folder.order_truth().string()}});
}

}  // namespace kavo::companion
