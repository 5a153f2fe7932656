// What the pages say about flags, commands, reports and bounds is what the code knows.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <span>
#include <sstream>

#include "app/options.h"
#include "app/venue.h"
#include "common/socket.h"
#include "page.h"
#include "support/said.h"
#include "support/venue.h"

namespace kavo::docs {
namespace {

using test::said_during;
using test::standard_error;

constexpr const char* bench_md = "bench.md";

// A value as the page shows it.
std::string shown(const std::string& text) {
    return text.empty() ? "empty" : text;
}
std::string shown(bool on) {
    return on ? "on" : "off";
}
template <typename Number>
std::string shown(Number number) {
    std::ostringstream text;
    text << number;
    return text.str();
}

// Every flag and where it stands. The binding names all of Options, or it does not compile: no flag is forgotten here.
Pairs flag_values(const Options& options) {
    const auto& [mcast, port, iface, retrans_port, meo_port, session, symbols, interval_ms, step_bps, touch_hit,
                 book_out, bbo_out, seed, drop_every, drop_burst, dup_every, reorder_every, truth_out, control_port,
                 acod, max_order_size, quiet, order_truth, scenario] =
        options;  // the last two come from the environment
    return {{"--mcast", shown(mcast)},
            {"--port", shown(port)},
            {"--iface", shown(iface)},
            {"--retrans-port", shown(retrans_port)},
            {"--meo-port", shown(meo_port)},
            {"--session", shown(session)},
            {"--symbols", shown(symbols)},
            {"--interval-ms", shown(interval_ms)},
            {"--step-bps", shown(step_bps)},
            {"--touch-hit", shown(touch_hit)},
            {"--book-out", shown(book_out)},
            {"--bbo-out", shown(bbo_out)},
            {"--seed", shown(seed)},
            {"--drop-every", shown(drop_every)},
            {"--drop-burst", shown(drop_burst)},
            {"--dup-every", shown(dup_every)},
            {"--reorder-every", shown(reorder_every)},
            {"--truth-out", shown(truth_out)},
            {"--control-port", shown(control_port)},
            {"--acod", shown(acod)},
            {"--max-order-size", shown(max_order_size)},
            {"--quiet", shown(quiet)}};
}

TEST(BenchPage, ListsEveryFlagWithItsDefault) {
    EXPECT_EQ(pairs_on(bench_md, "Flag", "Default"), flag_values({}));
}

TEST(BenchPage, NamesFlagsThatSetWhatTheyAreCalledAfter) {
    for (const auto& [flag, default_value] : pairs_on(bench_md, "Flag", "Default")) {
        const bool is_switch = default_value == "off";
        const std::array<const char*, 2> arguments{flag.c_str(), "7"};
        const auto options = parse_options(std::span(arguments).first(is_switch ? 1 : 2), standard_error);
        ASSERT_TRUE(options) << flag;
        Pairs expected = flag_values({});
        for (auto& [name, value] : expected) {
            if (name == flag) value = is_switch ? "on" : "7";
        }
        EXPECT_EQ(flag_values(*options), expected) << flag;
    }
}

// The line that arms a scenario shows every setting: one that the page does not know would still be 0, or empty.
TEST(BenchPage, ListsEveryScenarioKey) {
    std::string scenario;
    for (const std::string& key : words_on(bench_md, "Scenario key")) scenario += key + "=7,";
    const std::string said = said_during([&] { Bench().arm_scenario(scenario, standard_error); });
    EXPECT_NE(said.find("'7' armed"), std::string::npos) << said;
    EXPECT_EQ(said.find('0'), std::string::npos) << said;
}

TEST(BenchPage, ListsOnlyScenarioKeysThatSetSomething) {
    const auto armed = [](const std::string& scenario) {
        return said_during([&] { Bench().arm_scenario(scenario, standard_error); });
    };
    for (const std::string& key : words_on(bench_md, "Scenario key")) {
        EXPECT_NE(armed(key + "=7"), armed(",")) << key;
    }
}

TEST(BenchPage, ListsTheCommandsThatTheControlPortAnnounces) {
    std::string commands;
    for (const std::string& command : words_on(bench_md, "Command")) {
        commands += (commands.empty() ? "" : " | ") + command;
    }
    EXPECT_EQ(test::Venue().venue.control_port.known_words(), commands);
}

// Everything that a command with a number can set, after that command alone.
std::string settings_after(const std::string& command) {
    test::Venue venue;
    venue.engine.market.interval_ms = 1;
    EXPECT_EQ(venue.venue.control_port.handle(command), "ok " + command + "\n");
    const FeedFaults& faults = venue.feed.faults;
    const Bench& bench = venue.bench;
    std::ostringstream text;
    for (const FeedFault& fault : feed_faults) text << faults.*fault.next << ' ' << faults.*fault.every << ' ';
    for (const ScriptedFault& fault : scripted_faults) text << bench.*fault.next << ' ';
    text << venue.engine.market.interval_ms << ' ' << bench.lapse_until_ms;
    return text.str();
}

TEST(BenchPage, GivesEveryCommandItsDefault) {
    for (const auto& [command, default_value] : pairs_on(bench_md, "Command", "Default")) {
        const std::size_t argument = command.find(' ');
        if (argument == std::string::npos || command.ends_with("LABEL")) continue;
        const std::string word = command.substr(0, argument);
        EXPECT_EQ(settings_after(word), settings_after(word + " " + default_value)) << word;
        EXPECT_NE(settings_after(word), settings_after(word + " 3")) << word;
    }
}

TEST(BenchPage, ExplainsEveryReportedCounter) {
    std::vector<std::string> labels;
    for (const ReportedCounter& counter : reported_counters) labels.emplace_back(counter.label);
    EXPECT_EQ(words_on(bench_md, "Counter"), labels);
}

// The keys of a flat JSON object whose texts hold no colons.
std::vector<std::string> keys_of(const std::string& line) {
    std::vector<std::string> keys;
    for (std::size_t end = line.find("\":"); end != std::string::npos; end = line.find("\":", end + 1)) {
        const std::size_t start = line.rfind('"', end - 1) + 1;
        keys.push_back(line.substr(start, end - start));
    }
    return keys;
}

TEST(BenchPage, ExplainsEveryKeyOfTheOrderTruth) {
    test::Venue venue;
    venue.enter(client::buy("b1").shares(100).at("189.95"));
    venue.replace(client::replace("b1", "b2").shares(200).at("189.95"));  // its line has every key
    EXPECT_EQ(words_on(bench_md, "Log key"), keys_of(venue.truth().back()));
}

TEST(ArchitecturePage, GivesBoundsTheirValues) {
    Pairs bounds = pairs_on("architecture.md", "Bound", "Value");
    for (auto& [bound, value] : bounds) std::erase(value, ',');
    const Pairs known{{"history_limit_messages", shown(DomFeed::history_limit_messages)},
                      {"limit_messages", shown(SessionStream::limit_messages)},
                      {"limit_ids", shown(ClosedIds::limit_ids)},
                      {"max_datagram_bytes", shown(mach::max_datagram_bytes)},
                      {"client_order_id_size", shown(meo::client_order_id_size)},
                      {"heartbeat_interval_ms", shown(OrderEntry::heartbeat_interval_ms)},
                      {"reads_a_turn", shown(reads_a_turn)},
                      {"most_accepts_in_a_pass", shown(most_accepts_in_a_pass)},
                      {"most_commands_in_a_pass", shown(most_commands_in_a_pass)},
                      {"longest_send_bytes", shown(longest_send_bytes)},
                      {"reading_budget_ns", shown(OrderEntry::reading_budget_ns)},
                      {"sending_budget_ns", shown(OrderEntry::sending_budget_ns)},
                      {"receivers_budget_ns", shown(Retransmission::receivers_budget_ns)},
                      {"farewell_budget_ns", shown(Farewells::farewell_budget_ns)},
                      {"shortest_turn_ns", shown(OrderEntry::shortest_turn_ns)},
                      {"few_packets", shown(OrderEntry::few_packets)},
                      {"most_looks", shown(OrderEntry::most_looks)},
                      {"most_held_bytes", shown(MeoClient::most_held_bytes)},
                      {"patience_ms", shown(Outgoing::patience_ms)},
                      {"silence_limit_ms", shown(OrderEntry::silence_limit_ms)},
                      {"login_limit_ms", shown(esesm::login_limit_ms)},
                      {"heartbeat_after_ms", shown(DomFeed::heartbeat_after_ms)}};
    for (const auto& bound : known) {
        EXPECT_NE(std::find(bounds.begin(), bounds.end(), bound), bounds.end()) << bound.first << " " << bound.second;
    }
}

// "3. serve clients: each client ..." is the third step by its name.
TEST(ArchitecturePage, ListsTheStepsOfAPassInTheirOrder) {
    std::vector<std::string> listed;
    for (const std::string& line : lines_of("architecture.md")) {
        const std::string number = std::to_string(listed.size() + 1) + ". ";
        if (line.starts_with(number)) listed.push_back(line.substr(number.size(), line.find(':') - number.size()));
    }
    std::vector<std::string> steps;
    for (const Venue::Step& step : Venue::steps()) steps.emplace_back(step.name);
    EXPECT_EQ(listed, steps);
}

}  // namespace
}  // namespace kavo::docs
