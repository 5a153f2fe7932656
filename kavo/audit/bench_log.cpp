#include "kavo/audit/bench_log.h"

#include <nlohmann/json.hpp>

#include "kavo/journal/scan.h"

namespace kavo::companion {

namespace {

using Json = nlohmann::json;

// A client has a say in these lines by its ids. They have 20 bytes at most, and nothing that is recognised here is as
// short, so no id can forge a line.
void read_fault(std::string_view text, BenchLog& log) {
    Scan scan(text);
    if (!scan.skip("kavo_me fault: ")) return;
    std::uint64_t first = 0;
    std::uint64_t packet = 0;
    std::uint64_t messages = 0;
    if (scan.skip("dropped seq ")) {
        if (scan.number(first) && scan.skip(" (packet ") && scan.number(packet) && scan.skip(", ") &&
            scan.number(messages)) {
            log.dropped[first] = messages;
        }
    } else if (scan.skip("duplicated seq ")) {
        if (scan.number(first)) ++log.doubled[first];
    } else if (scan.skip("reordered seq ")) {
        if (scan.number(first)) ++log.held[first];
    }
}

// " requested seq R (stream next N): accepted at A, replaying K message(s)": the end of the line alone, since a name
// may hold a line end.
void read_login(std::string_view text, BenchLog& log) {
    const std::size_t at = text.rfind("): accepted at ");
    if (at == std::string_view::npos) return;
    Scan scan(text.substr(at));
    std::uint64_t accepted = 0;
    std::uint64_t messages = 0;
    if (!scan.skip("): accepted at ") || !scan.number(accepted) || !scan.skip(", replaying ") ||
        !scan.number(messages) || !scan.skip(" message(s)")) {
        return;
    }
    ++log.logins;
    if (messages != 0) ++log.replays;
    log.replayed += messages;
}

void read_commentary(std::string_view text, BenchLog& log) {
    constexpr std::string_view race = " loses the race to a fill (executed in full; the cancel is rejected 'D')";
    read_fault(text, log);
    read_login(text, log);
    if (text.starts_with("bench: partial fill of ")) ++log.partial_fills;
    if (text.ends_with(race)) ++log.lost_races;
}

// "orders=12 accepts=11 ..." and "sent 728 dropped 3 ...".
std::map<std::string, std::uint64_t> read_counters(std::string_view text, char between) {
    std::map<std::string, std::uint64_t> counters;
    while (!text.empty()) {
        const std::size_t middle = text.find(between);
        if (middle == std::string_view::npos) break;
        const std::string label(text.substr(0, middle));
        Scan scan(text.substr(middle + 1));
        std::uint64_t value = 0;
        if (!scan.number(value)) break;
        counters[label] = value;
        scan.skip(" ");
        text = scan.rest();
    }
    return counters;
}

// The last three lines of a venue that was asked to stop.
void read_report(const std::vector<VenueLine>& lines, BenchLog& log) {
    constexpr std::string_view faults = "kavo_me faults: ";
    constexpr std::string_view counters = "bench: stats ";
    if (lines.size() < 3 || lines.back().text != "[kavo_me] stopped") return;
    const std::string_view third = lines[lines.size() - 3].text;
    const std::string_view second = lines[lines.size() - 2].text;
    if (!third.starts_with(faults) || !second.starts_with(counters)) return;
    log.report = read_counters(second.substr(counters.size()), '=');
    log.report->merge(read_counters(third.substr(faults.size()), ' '));
}

void read_note(const Note& note, BenchLog& log) {
    const Json json = Json::parse(note.json, nullptr, false);
    if (!json.is_object()) return;
    if (note.event == "kernel_drop") {
        const auto socket = json.find("socket");
        if (socket == json.end() || *socket != "kavo") return;
        log.feed_lost_here = "the machine was late: its kernel dropped datagrams of kavo's own copy of the feed";
    } else if (note.event == "relay" || note.event == "relay_did") {
        log.relay_meddled = "the relay was told to disturb connections";
    }
}

std::string defect_of(const Journal& journal, std::string_view file) {
    for (const std::string& defect : journal.defects) {
        if (defect.starts_with(file)) return defect;
    }
    return {};
}

}  // namespace

BenchLog read_bench_log(const Journal& journal) {
    BenchLog log;
    for (const VenueLine& line : journal.venue) read_commentary(line.text, log);
    for (const Note& note : journal.notes) read_note(note, log);
    read_report(journal.venue, log);
    if (const std::string unknown = defect_of(journal, "kavo.jsonl"); !unknown.empty()) {
        log.feed_lost_here = log.relay_meddled = "what the machine and the relay did is not known: " + unknown;
    }
    log.venue_log_incomplete = defect_of(journal, "venue.log");
    log.wire_incomplete = defect_of(journal, "wire.pcapng");
    log.orders_incomplete = defect_of(journal, "orders.jsonl");
    log.books_incomplete = defect_of(journal, "books.jsonl");
    if (log.books_incomplete.empty() && !log.report) {
        log.books_incomplete = "the venue did not come to its final report, so the last lines were never written";
    }
    return log;
}

}  // namespace kavo::companion
