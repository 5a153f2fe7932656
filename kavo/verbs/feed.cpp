#include <CLI/CLI.hpp>
#include <cmath>
#include <memory>

#include "kavo/screen/feed_listener.h"
#include "kavo/screen/recorded_feed.h"
#include "kavo/verbs/verbs.h"

namespace kavo::companion {

namespace {

constexpr const char* feed_examples =
    "Examples:\n"
    "  kavo feed                        every message in plain words, as it arrives; --- marks what is missing\n"
    "  kavo feed --book                 in order, with the book behind each message; fetches what is missing\n"
    "  kavo feed --json --count 100     a hundred messages as lines of JSON, then the end\n"
    "  kavo feed --book --json | jq -c 'select(.ev == \"book\") | [.bids[0], .asks[0]]'\n"
    "  kavo feed --group 127.0.0.1 --port 4000 --recovery-port 4002\n"
    "  kavo feed runs/42 --book         what was sent in a run, from its recording\n"
    "A feed that was not heard from its start is learned by a refresh. A book that cannot be known is not shown, and\n"
    "it is said why: in a recording nobody answers, so there it is behind the first gap; `kavo replay` answers. "
    "Ctrl-C\n"
    "ends it.\n"
    "Where no option says otherwise, KAVO_FEED (GROUP:PORT), KAVO_IFACE and KAVO_RECOVERY (127.0.0.1:PORT) do.";

struct FeedOptions {
    std::string recording;
    AskedFeed feed;
    std::optional<std::uint16_t> recovery_port;
    bool json = false;
    bool book = false;
    FeedLines::Window window;
    double seconds = 0;
};

Status show(const FeedOptions& options) {
    FeedWishes wishes;
    wishes.json = options.json;
    wishes.book = options.book;
    wishes.window = options.window;
    if (options.seconds > 0) wishes.longest = std::chrono::milliseconds(std::llround(options.seconds * 1000));
    if (!options.recording.empty()) {
        show_recorded_feed(options.recording, options.feed, wishes);
        return Status::right;
    }
    wishes.address = feed_address(options.feed);
    wishes.recovery_port = port_or(options.recovery_port, "KAVO_RECOVERY", wishes.recovery_port);
    show_feed(wishes);
    return Status::right;
}

}  // namespace

void add_feed(CLI::App& app, Action& action) {
    CLI::App* verb = app.add_subcommand("feed", "decode the feed: lines, JSON, and the book that follows");
    verb->option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    const auto options = std::make_shared<FeedOptions>();
    verb->add_option("RECORDING", options->recording, "a pcap or pcapng file, or the folder of a run; live without it");
    verb->add_option("--group,--mcast", options->feed.group, "where the feed goes (233.54.28.111)");
    verb->add_option("--port", options->feed.port, "UDP port of the feed (25377)");
    verb->add_option("--iface", options->feed.interface_address, "address of the interface that hears it (127.0.0.1)");
    verb->add_option("--recovery-port,--retrans-port", options->recovery_port,
                     "where --book learns the books, and fetches what is missing (25379); 0: nowhere");
    verb->add_flag("--book", options->book, "print in order, and show the changed book after each message");
    verb->add_flag("--json", options->json, "a JSON object a line, prices as numbers, see docs/by_hand.md");
    verb->add_option("--from", options->window.from, "show no message before this number");
    verb->add_option("--count", options->window.count, "end after so many messages")->check(CLI::PositiveNumber);
    verb->add_option("--seconds", options->seconds, "end after so long")->check(CLI::PositiveNumber);
    verb->footer(feed_examples);
    verb->callback([&action, options] { action = [options] { return show(*options); }; });
}

}  // namespace kavo::companion
