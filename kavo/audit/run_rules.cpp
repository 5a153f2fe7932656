// What the run says about itself, in the notes that kavo took: how the venue and the user's command ended, and whether
// the script was played. A provocation that never came about proves nothing, so nothing is certain then.
#include <algorithm>
#include <array>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "kavo/audit/audit.h"

namespace kavo::companion {

namespace {

constexpr std::array run_table{
    Rule{"bench.lives", "The venue runs until it is told to stop, and then ends with status 0.",
         "docs/bench.md#exit-status"},
    Rule{"command.succeeds", "The command under test ends by itself, with status 0.", "docs/kavo.md#kavo-test"},
    Rule{"command.takes-part",
         "The command under test logs in, asks for a recovery, listens, or says what it believes.",
         "docs/kavo.md#kavo-test"},
    Rule{"command.leaves-feed-alone", "Nobody but the venue sends to the group and port of the feed.",
         "docs/kavo.md#the-bench-of-a-run"},
    Rule{"command.own-name", "No client logs in as the house, who is kavo's own user and judged by nobody.",
         "docs/kavo.md#scripts"},
    Rule{"script.played", "Every step of the script is carried out while the command runs.", "docs/kavo.md#scripts"},
};
constexpr const Rule& venue_lives = run_table[0];
constexpr const Rule& command_succeeds = run_table[1];
constexpr const Rule& command_takes_part = run_table[2];
constexpr const Rule& leaves_feed_alone = run_table[3];
constexpr const Rule& own_name = run_table[4];
constexpr const Rule& script_played = run_table[5];

struct Ending {
    int status = 0;
    int signal = 0;
    bool timed_out = false;
    bool stopped = false;
    std::string text;
};

Ending read_ending(const Note& note) {
    const auto facts = nlohmann::json::parse(note.json, nullptr, false);
    if (!facts.is_object()) return {};
    try {
        return {facts.value("status", 0), facts.value("signal", 0), facts.value("timed_out", false),
                facts.value("stopped", false), facts.value("text", "")};
    } catch (const nlohmann::json::exception&) {
        return {};
    }
}

// Kavo itself is no part of it: neither its house, nor what it fetches.
bool somebody_came(const Journal& journal) {
    const bool connected = std::ranges::any_of(journal.conversations,
                                               [&](const Conversation& it) { return it.user != journal.facts.house; });
    const bool listened = std::ranges::any_of(journal.notes, [](const Note& it) { return it.event == "feed_socket"; });
    std::error_code error;
    const auto told = std::filesystem::file_size(journal.folder.beliefs(), error);
    return connected || listened || (!error && told != 0);
}

std::string told(const Ending& ending) {
    if (ending.signal != 0) return "ended by signal " + std::to_string(ending.signal);
    return "status " + std::to_string(ending.status);
}

void add(Verdict& verdict, const Rule& rule, Grade grade, const Note& note, std::string expected, std::string got,
         std::string because = {}) {
    Finding finding;
    finding.rule = &rule;
    finding.grade = grade;
    finding.expected = std::move(expected);
    finding.got = std::move(got);
    finding.because = std::move(because);
    finding.where.moment.ns = note.t_ns;
    verdict.findings.push_back(std::move(finding));
}

// Of all that strangers have sent, the first is told.
void audit_strangers(const Journal& journal, Verdict& verdict) {
    const auto is_one = [](const Note& note) { return note.event == "stranger"; };
    const auto first = std::ranges::find_if(journal.notes, is_one);
    if (first == journal.notes.end()) return;
    const auto count = std::ranges::count_if(journal.notes, is_one);
    add(verdict, leaves_feed_alone, Grade::inconclusive, *first, "datagrams of the venue alone",
        std::to_string(count) + " from somebody else",
        "whoever listened heard what the venue never said: whatever sends to KAVO_FEED is to be taken out of the test");
}

// The house comes with the script, so without a step of its own it is somebody else. Beside a bench that was run by
// hand it is whoever is to be judged by nobody.
void audit_name_of_house(const Journal& journal, Verdict& verdict) {
    const auto is_command = [](const Note& note) { return note.event == "command" || note.event == "command_end"; };
    if (std::ranges::none_of(journal.notes, is_command)) return;
    const auto has_house = [](const Note& note) {
        return note.event == "script" && note.json.find("house") != std::string::npos;
    };
    if (std::ranges::any_of(journal.notes, has_house)) return;
    for (const Conversation& conversation : journal.conversations) {
        if (conversation.service != Service::orders || conversation.user != journal.facts.house) continue;
        Finding finding;
        finding.rule = &own_name;
        finding.grade = Grade::inconclusive;
        finding.expected = "a client of another name";
        finding.got = "a login as " + conversation.user;
        finding.because = "what " + conversation.user + " does is not looked at: give the client another name";
        finding.where.moment = conversation.opened;
        finding.where.user = conversation.user;
        verdict.findings.push_back(std::move(finding));
        return;
    }
}

}  // namespace

std::span<const Rule> run_rules() {
    return run_table;
}

void audit_run(const Journal& journal, Verdict& verdict) {
    audit_strangers(journal, verdict);
    audit_name_of_house(journal, verdict);
    for (const Note& note : journal.notes) {
        const Ending ending = read_ending(note);
        const bool badly = ending.status != 0 || ending.signal != 0;
        if (note.event == "venue_end" && (badly || !ending.stopped)) {
            add(verdict, venue_lives, Grade::bench, note, "status 0, when it is told to stop",
                told(ending) + (ending.stopped ? "" : ", by itself"));
        }
        if (note.event == "command_end" && ending.timed_out) {
            add(verdict, command_succeeds, Grade::finding, note, "an end by itself",
                "still running when its time was up");
        } else if (note.event == "command_end" && badly) {
            add(verdict, command_succeeds, Grade::finding, note, "status 0", told(ending));
        }
        if (note.event == "command_end" && !somebody_came(journal)) {
            add(verdict, command_takes_part, Grade::inconclusive, note, "somebody who comes to the bench", "nobody",
                "the command never came near the bench, so there is nothing to judge: does it connect to KAVO_ORDERS, "
                "and listen to KAVO_FEED on KAVO_IFACE?");
        }
        if (note.event == "script_left") {
            add(verdict, script_played, Grade::inconclusive, note, ending.text,
                "nothing of the kind while the command ran",
                "the script was not played to its end, so it has not tried the client as it was meant to");
        }
    }
}

}  // namespace kavo::companion
