#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>

#include "client/feed_messages.h"
#include "kavo/basics/now.h"
#include "kavo/basics/problem.h"
#include "kavo/bench/signals.h"
#include "kavo/screen/environment.h"
#include "kavo/verbs/verbs.h"
#include "kavo/wire/feed_tap.h"
#include "kavo/wire/recording.h"

namespace kavo::companion {

namespace {

constexpr const char* record_examples =
    "Examples:\n"
    "  kavo record feed.pcapng                          the feed of a simulator with its defaults, until Ctrl-C\n"
    "  kavo record feed.pcapng --seconds 60             for a minute\n"
    "  kavo record feed.pcapng --group 127.0.0.1 --port 31001\n"
    "  kavo feed feed.pcapng --book                     what was recorded, message by message\n"
    "  kavo replay feed.pcapng --speed 10               sends it again\n"
    "The file opens in the usual capture tools. A file that is there is replaced. The exit status is 4 when nothing\n"
    "has come: a feed is never silent for much longer than a second. `kavo run` and `kavo test` record by themselves.\n"
    "Where no option says otherwise, KAVO_FEED (GROUP:PORT) and KAVO_IFACE do.";

constexpr std::chrono::milliseconds between_flushes{200};

struct RecordOptions {
    std::string file;
    AskedFeed feed;
    double seconds = 0;
};

struct Heard {
    std::uint64_t datagrams = 0;
    std::uint64_t first = 0;  // numbers of messages
    std::uint64_t last = 0;

    void take(ByteView datagram) {
        ++datagrams;
        while (const auto packet = client::read_feed_packet(datagram)) {
            if (packet->message.empty()) continue;
            if (first == 0) first = packet->header.sequence;
            last = packet->header.sequence;
        }
    }
};

// Turns the loop until it is told to stop, or the time is over, and writes down what has come again and again.
void listen(Loop& loop, Recording& recording, const RecordOptions& options) {
    bool stopped = false;
    const StopSignals signals(loop, [&stopped](int) { stopped = true; });
    if (options.seconds > 0) {
        loop.after(std::chrono::nanoseconds(static_cast<std::int64_t>(options.seconds * 1e9)), [&] { stopped = true; });
    }
    std::function<void()> flush = [&] {
        if (!recording.flush()) {
            throw Problem(Status::bench, "cannot write " + options.file +
                                             " any more, is the disk full? It is whole up to here: make room, or name "
                                             "a file elsewhere");
        }
        loop.after(between_flushes, flush);
    };
    flush();
    while (!stopped) loop.turn(std::chrono::seconds(1));
}

Status record(const RecordOptions& options) {
    Loop loop;
    Recording recording(options.file);
    RunLog nobody_reads("/dev/null");
    const FeedAddress feed = feed_address(options.feed);
    Heard heard;
    std::uint64_t dropped = 0;
    {
        FeedTap tap(loop, recording, nobody_reads, feed.group, feed.port, feed.interface_address);
        tap.on_datagram = [&heard](ByteView datagram) { heard.take(datagram); };
        tap.on_drops = [&dropped](bool own, std::uint64_t drops) { dropped += own ? drops : 0; };
        std::cerr << "kavo: recording " << feed.group << ":" << feed.port << " on " << feed.interface_address << " to "
                  << options.file << "; Ctrl-C ends it" << std::endl;
        listen(loop, recording, options);
    }
    if (!recording.flush()) throw Problem(Status::bench, "cannot write the end of " + options.file);
    if (dropped != 0) {
        std::cerr << "kavo: " << dropped
                  << " more were lost because this machine was too busy: see net.core.rmem_max in `sysctl`"
                  << std::endl;
    }
    if (heard.datagrams != 0) {
        std::cerr << "kavo: " << heard.datagrams << " datagrams, messages " << heard.first << " to " << heard.last
                  << ", are in " << options.file << ": see `kavo feed " << options.file << "`" << std::endl;
        return Status::right;
    }
    std::cerr << "kavo: nothing has come. Does the simulator run, and are these its --mcast, --port and --iface?"
              << std::endl;
    return Status::inconclusive;
}

}  // namespace

void add_record(CLI::App& app, Action& action) {
    CLI::App* verb = app.add_subcommand("record", "write a feed into a capture file, as it arrives");
    const auto options = std::make_shared<RecordOptions>();
    verb->add_option("FILE", options->file, "where to; pcapng")->required();
    verb->add_option("--group,--mcast", options->feed.group, "where the feed goes (233.54.28.111)")
        ->check(CLI::ValidIPV4);
    verb->add_option("--port", options->feed.port, "UDP port of the feed (25377)");
    verb->add_option("--iface", options->feed.interface_address, "address of the interface that hears it (127.0.0.1)")
        ->check(CLI::ValidIPV4);
    verb->add_option("--seconds", options->seconds, "end after so long")->check(CLI::PositiveNumber);
    verb->footer(record_examples);
    verb->callback([&action, options] { action = [options] { return record(*options); }; });
}

}  // namespace kavo::companion
