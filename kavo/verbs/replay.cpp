#include <CLI/CLI.hpp>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>

#include "kavo/basics/folder.h"
#include "kavo/basics/problem.h"
#include "kavo/bench/signals.h"
#include "kavo/verbs/verbs.h"
#include "kavo/wire/feed_player.h"
#include "kavo/wire/recovery_service.h"

namespace kavo::companion {

namespace {

constexpr const char* replay_examples =
    "Examples:\n"
    "  kavo replay feed.pcapng                          to 233.54.28.111:25377, at the pace at which it was recorded\n"
    "  kavo replay runs/42 --speed 10                   the feed of a run, ten times as fast\n"
    "  kavo replay feed.pcapng --speed max --port 31001\n"
    "  kavo replay feed.pcapng --drop-every 7 --reorder-every 5 --recovery-port 25379\n"
    "                                                   damaged, with a service that sends again what is missing\n"
    "  kavo feed --book                                 listens meanwhile, and fetches what is missing\n"
    "FILE is a capture of any kind (pcap, pcapng), or the folder of a run. With --recovery-port the service knows the\n"
    "recording up to what has been sent, takes logins, ranges and refreshes, and stays for a while after the end.\n"
    "Behind the last message, and in long pauses, a heartbeat goes out each second. Ctrl-C ends it.";

struct ReplayOptions {
    std::string file;
    std::string speed = "1";
    Playing playing;
    std::uint16_t recovery_port = 0;
    double linger = 3;
};

std::filesystem::path capture_of(const std::filesystem::path& file) {
    return std::filesystem::is_directory(file) ? RunFolder{file}.wire() : file;
}

std::string check_speed(const std::string& text) {
    if (text == "max") return {};
    double speed = 0;
    return CLI::detail::lexical_cast(text, speed) && speed > 0 ? "" : "a number above 0, or max";
}

void say_what_is_there(const FeedHistory& history, const ReplayOptions& options) {
    std::cerr << "kavo: " << history.datagrams().size() << " datagrams with " << history.messages()
              << " messages go to " << options.playing.group << ":" << options.playing.port << "; Ctrl-C ends it"
              << std::endl;
    if (history.cut_short()) std::cerr << "kavo: the file is cut short: what is whole is sent" << std::endl;
    if (history.other_feeds() != 0) {
        std::cerr << "kavo: " << history.other_feeds() << " smaller feeds in the file are passed over" << std::endl;
    }
    if (options.recovery_port == 0) return;
    const auto& day = history.days().front();
    if (!day.empty() && day.front().sequence != 1) {
        std::cerr << "kavo: the recording begins with message " << day.front().sequence
                  << ": no refresh knows the orders that rested before" << std::endl;
    }
    if (history.missing() != 0) {
        std::cerr << "kavo: " << history.missing() << " messages are missing in it, and cannot be recovered"
                  << std::endl;
    }
}

// After the end, receivers hear of what they miss by the heartbeats that go on, and ask; nobody is cut off, but for
// whoever does not come to an end.
void play_to_the_end(Loop& loop, const FeedPlayer& player, const std::optional<RecoveryService>& service,
                     double linger) {
    bool stopped = false;
    const StopSignals signals(loop, [&stopped](int) { stopped = true; });
    while (!stopped && !player.done()) loop.turn(std::chrono::seconds(1));
    if (!service) return;
    const auto rest = std::chrono::milliseconds(static_cast<std::int64_t>(linger * 1000));
    loop.turn_until([&] { return stopped; }, rest);
    loop.turn_until([&] { return stopped || service->open_connections() == 0; }, std::chrono::seconds(10));
}

Status replay(const ReplayOptions& options) {
    const FeedHistory history(capture_of(options.file));
    PublishedFeed published(history);
    Playing playing = options.playing;
    playing.speed = options.speed == "max" ? 0 : std::stod(options.speed);
    Loop loop;
    std::optional<RecoveryService> service;
    if (options.recovery_port != 0) service.emplace(loop, published, options.recovery_port);
    FeedPlayer player(loop, history, published, playing);
    say_what_is_there(history, options);
    play_to_the_end(loop, player, service, options.linger);
    const FeedPlayer::Counters& done = player.counters();
    std::cerr << "kavo: sent " << done.sent << " datagrams, up to message " << published.last() << "; " << done.dropped
              << " dropped, " << done.duplicated << " sent twice, " << done.reordered << " overtaken";
    if (service)
        std::cerr << "; " << service->retransmissions() << " recoveries, " << service->refreshes() << " refreshes";
    std::cerr << std::endl;
    return Status::right;
}

void add_damage(CLI::App& verb, Playing& playing) {
    verb.add_option("--drop-every", playing.drop_every, "every Nth datagram with messages is not sent");
    verb.add_option("--duplicate-every,--dup-every", playing.duplicate_every, "every Nth is sent twice");
    verb.add_option("--reorder-every", playing.reorder_every, "every Nth is sent behind the next one");
}

}  // namespace

void add_replay(CLI::App& app, Action& action) {
    CLI::App* verb = app.add_subcommand("replay", "multicast a recorded feed again, damaged if you like");
    const auto options = std::make_shared<ReplayOptions>();
    Playing& playing = options->playing;
    verb->add_option("FILE", options->file, "a capture, or the folder of a run")->required()->check(CLI::ExistingPath);
    verb->add_option("--group,--mcast", playing.group, "where to")->check(CLI::ValidIPV4)->capture_default_str();
    verb->add_option("--port", playing.port, "UDP port")->capture_default_str();
    verb->add_option("--iface", playing.interface_address, "address of the interface from which it leaves")
        ->check(CLI::ValidIPV4)
        ->capture_default_str();
    verb->add_option("--speed", options->speed, "times the pace of the recording, or max")
        ->check(CLI::Validator(check_speed, "X|max"))
        ->capture_default_str();
    add_damage(*verb, playing);
    verb->add_option("--recovery-port,--retrans-port", options->recovery_port,
                     "TCP port of 127.0.0.1 on which recoveries are answered; 0 for none");
    verb->add_option("--linger", options->linger, "seconds for which they are answered after the end")
        ->check(CLI::NonNegativeNumber)
        ->capture_default_str();
    verb->footer(replay_examples);
    verb->callback([&action, options] { action = [options] { return replay(*options); }; });
}

}  // namespace kavo::companion
