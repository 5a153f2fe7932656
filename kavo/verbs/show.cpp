#include <CLI/CLI.hpp>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>

#include "kavo/basics/printable.h"
#include "kavo/basics/problem.h"
#include "kavo/journal/scan.h"
#include "kavo/journal/story.h"
#include "kavo/verbs/verbs.h"

namespace kavo::companion {

namespace {

constexpr const char* show_examples =
    "Examples:\n"
    "  kavo show runs/42                          who said what, what it was answered, and why it was rejected\n"
    "  kavo show runs/42 --user c01 --rejected    nothing, when this client has never sent anything wrong\n"
    "  kavo show runs/42 --order b1               the life of an order, through its replaces, and on the feed\n"
    "  kavo show runs/42 --feed 100..120          messages of the feed\n"
    "  kavo show runs/42 --from 1.5 --to 2        half a second of the run\n"
    "  kavo show runs/42 --json | jq -r 'select(.rejected) | .why'\n"
    "Times are seconds since the start. Heartbeats, and the feed, are shown with --all. Bytes that do not print are\n"
    "shown as \\xNN, in JSON too.";

struct ShowOptions {
    std::string folder;
    std::string user, order, feed;
    double from_s = 0, to_s = -1;
    bool rejected = false, all = false, json = false;
};

// "17" or "17..20".
std::pair<std::uint64_t, std::uint64_t> read_range(const std::string& text) {
    std::uint64_t first = 0;
    Scan scan(text);
    if (scan.number(first)) {
        std::uint64_t last = first;
        const bool open = scan.skip("..");
        if ((!open || scan.number(last)) && scan.at_end() && first <= last) return {first, last};
    }
    throw Problem(Status::usage, "--feed takes a number, or two as in 17..20, and not '" + text + "'");
}

std::uint64_t moment(const Journal& journal, double seconds) {
    return journal.facts.started_ns + static_cast<std::uint64_t>(std::llround(seconds * 1e9));
}

std::string who(const StoryEntry& entry) {
    using Kind = StoryEntry::Kind;
    if (entry.kind == Kind::feed) return "feed";
    if (entry.kind == Kind::venue_line) return "venue says";
    if (entry.kind == Kind::note) return "kavo";
    const std::string user = entry.user.empty() ? "somebody" : printable(entry.user);
    return user + (entry.by_user ? " ->" : " <-");
}

void show_line(const StoryEntry& entry, const Journal& journal) {
    std::cout << since_start(entry.at.ns, journal.facts.started_ns) << "  " << who(entry) << " "
              << printable(entry.what);
    if (!entry.why.empty()) std::cout << "  (" << printable(entry.why) << ")";
    std::cout << "\n";
}

const char* kind_word(StoryEntry::Kind kind) {
    using Kind = StoryEntry::Kind;
    switch (kind) {
        case Kind::opened: return "opened";
        case Kind::closed: return "closed";
        case Kind::packet: return "packet";
        case Kind::feed: return "feed";
        case Kind::venue_line: return "venue";
        case Kind::note: return "note";
    }
    return "";
}

void show_json(const StoryEntry& entry, const Journal& journal) {
    const auto ns = static_cast<std::int64_t>(entry.at.ns - journal.facts.started_ns);
    nlohmann::ordered_json line{{"t", entry.at.ns}, {"since_s", static_cast<double>(ns) / 1e9}};
    line["kind"] = kind_word(entry.kind);
    const auto add_text = [&line](const char* key, const std::string& text) {
        if (!text.empty()) line[key] = printable(text);
    };
    const auto add_number = [&line](const char* key, std::uint64_t number) {
        if (number != 0) line[key] = number;
    };
    add_text("user", entry.user);
    if (entry.kind == StoryEntry::Kind::packet) line["by"] = entry.by_user ? "client" : "venue";
    add_text("text", entry.what);
    if (entry.rejected) line["rejected"] = true;
    add_text("why", entry.why);
    add_text("order", entry.order);
    add_text("original", entry.original);
    add_number("order_id", entry.order_id);
    add_number("stream_number", entry.stream_number);
    add_number("feed_number", entry.feed_number);
    add_number("packet", entry.at.packet);
    std::cout << line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) << "\n";
}

Status show(const ShowOptions& options) {
    StoryWishes wishes;
    if (!options.feed.empty()) wishes.feed = read_range(options.feed);
    const Journal journal = read_journal(options.folder);
    for (const std::string& defect : journal.defects) std::cerr << "kavo: " << printable(defect) << "\n";
    if (!options.user.empty()) wishes.user = options.user;
    if (!options.order.empty()) wishes.order = options.order;
    if (options.from_s > 0) wishes.from_ns = moment(journal, options.from_s);
    if (options.to_s >= 0) wishes.to_ns = moment(journal, options.to_s);
    wishes.rejected = options.rejected;
    wishes.all = options.all;
    tell_story(journal, wishes, [&](const StoryEntry& entry) {
        if (options.json) {
            show_json(entry, journal);
        } else {
            show_line(entry, journal);
        }
    });
    std::cout.flush();
    return Status::right;
}

}  // namespace

void add_show(CLI::App& app, Action& action) {
    CLI::App* verb = app.add_subcommand("show", "the journal of a run: who said what, and why it was rejected");
    const auto options = std::make_shared<ShowOptions>();
    verb->add_option("DIR", options->folder, "the folder of a run")->required();
    verb->add_option("--user", options->user, "what this user said and heard");
    verb->add_option("--order", options->order, "an order, by any of its client order ids");
    verb->add_option("--feed", options->feed, "messages of the feed: N or N..M");
    verb->add_option("--from", options->from_s, "seconds since the start")->check(CLI::Range(0.0, 1e8));
    verb->add_option("--to", options->to_s, "seconds since the start")->check(CLI::Range(0.0, 1e8));
    verb->add_flag("--rejected", options->rejected, "what was rejected, and nothing else");
    verb->add_flag("--all", options->all, "heartbeats, and the whole feed, as well");
    verb->add_flag("--json", options->json, "a JSON object a line");
    verb->footer(show_examples);
    verb->callback([&action, options] { action = [options] { return show(*options); }; });
}

}  // namespace kavo::companion
