#include <CLI/CLI.hpp>
#include <cstdlib>
#include <iostream>
#include <memory>

#include "kavo/basics/problem.h"
#include "kavo/screen/control_desk.h"
#include "kavo/screen/environment.h"
#include "kavo/screen/feed_listener.h"
#include "kavo/verbs/verbs.h"

namespace kavo::companion {

namespace {

constexpr const char* ctl_examples =
    "Examples:\n"
    "  kavo ctl pause                   the market stands still; the reply is printed\n"
    "  kavo ctl drop 3                  the feed loses its next three datagrams\n"
    "  kavo ctl rate -1                 no step of the market any more\n"
    "  kavo ctl mark before_the_storm   a mark in the book truth\n"
    "  kavo ctl stats --json            counters as an object; --openmetrics for those who scrape them\n"
    "  kavo ctl settle                  no faults, nothing held back, market paused, a heartbeat seen: prints the\n"
    "                                   number of the feed's next message; now books can be compared\n"
    "settle listens to the feed, at --group, --port and --iface, unless it goes to one address alone. If a datagram "
    "was ever held back it lets the market\n"
    "take a step; a market that takes none for two seconds gets `rate 1`, and then `rate -1`, and it is said.\n"
    "All words: pause resume drop dup reorder drop_every dup_every reorder_every rate disconnect lapse reject partial\n"
    "fill_on_cancel unsolicited_cancel replace_reject mark stats stop; docs/bench.md tells what they do.\n"
    "Where no option says otherwise, KAVO_CONTROL (127.0.0.1:PORT), KAVO_FEED (GROUP:PORT) and KAVO_IFACE do.";

struct CtlOptions {
    std::optional<std::uint16_t> control_port;
    AskedFeed feed;
    bool json = false;
    bool openmetrics = false;
};

ControlDesk desk_of(const CtlOptions& options) {
    const std::uint16_t port = port_or(options.control_port, "KAVO_CONTROL", 0);
    if (port != 0) return ControlDesk(port);
    throw Problem(Status::usage,
                  "no control port is known: give --control-port PORT, as the simulator has it, or set KAVO_CONTROL");
}

// Numbers below zero look like options, so the words come as what nobody has declared.
std::string line_of(const std::vector<std::string>& words) {
    std::string line;
    for (const std::string& word : words) {
        if (word.size() > 1 && word[0] == '-' && (word[1] < '0' || word[1] > '9')) {
            throw Problem(Status::usage, "there is no option " + word + ": see kavo ctl --help");
        }
        line.append(line.empty() ? "" : " ").append(word);
    }
    if (line.empty()) throw Problem(Status::usage, "say a control word, such as pause: see kavo ctl --help");
    return line;
}

Settled settle_listening(const ControlDesk& desk, const FeedAddress& address) {
    client::FeedReader feed = open_feed(address);
    return settle(desk, &feed);
}

void settle_and_tell(const CtlOptions& options) {
    const ControlDesk desk = desk_of(options);
    const FeedAddress address = feed_address(options.feed);
    const Settled settled = is_multicast(address) ? settle_listening(desk, address) : settle(desk, nullptr);
    if (settled.interval_changed) {
        std::cerr
            << "kavo: the market had made no step for two seconds; `rate 1` made it, and `rate -1` holds it now\n";
    }
    if (options.json) {
        std::cout << "{\"next_seq\":" << settled.next_sequence << "}\n";
    } else {
        std::cout << settled.next_sequence << "\n";
    }
}

Status send(const CtlOptions& options, const std::vector<std::string>& words) {
    const std::string line = line_of(words);
    if (line == "settle") {
        settle_and_tell(options);
        return Status::right;
    }
    if (const std::string objection = objection_to(line); !objection.empty()) {
        throw Problem(Status::usage, objection);
    }
    if (line != "stats" && (options.json || options.openmetrics)) {
        throw Problem(Status::usage, "--json and --openmetrics go with stats alone, and --json with settle");
    }
    const ControlDesk desk = desk_of(options);
    if (options.json) {
        std::cout << statistics_json(desk.statistics()) << "\n";
    } else if (options.openmetrics) {
        std::cout << statistics_openmetrics(desk.statistics());
    } else {
        const std::string reply = desk.ask(line);
        std::cout << reply << (reply.ends_with('\n') ? "" : "\n");
    }
    return Status::right;
}

}  // namespace

void add_ctl(CLI::App& app, Action& action) {
    CLI::App* verb = app.add_subcommand("ctl", "WORD...: send a control word to the bench, and print its reply");
    verb->option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    const auto options = std::make_shared<CtlOptions>();
    verb->add_option("--control-port", options->control_port, "UDP port of the control port on 127.0.0.1");
    verb->add_option("--group,--mcast", options->feed.group, "for settle: where the feed goes (233.54.28.111)");
    verb->add_option("--port", options->feed.port, "for settle: UDP port of the feed (25377)");
    verb->add_option("--iface", options->feed.interface_address, "for settle: interface of the feed (127.0.0.1)");
    verb->add_flag("--json", options->json, "stats and settle as a JSON object");
    verb->add_flag("--openmetrics", options->openmetrics, "stats in the text format of OpenMetrics");
    verb->allow_extras();
    verb->footer(ctl_examples);
    verb->callback(
        [&action, options, verb] { action = [options, words = verb->remaining()] { return send(*options, words); }; });
}

}  // namespace kavo::companion
