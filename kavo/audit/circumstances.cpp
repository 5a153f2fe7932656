#include "kavo/audit/circumstances.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "kavo/audit/wording.h"

namespace kavo::companion {

namespace {

// The last that was seen of a run whose end nobody has noted.
std::uint64_t last_moment(const Journal& journal) {
    std::uint64_t last = journal.feed.empty() ? 0 : journal.feed.back().at.ns;
    for (const Conversation& conversation : journal.conversations) {
        last = std::max({last, conversation.opened.ns, conversation.closed.ns});
        if (!conversation.with_client.empty()) last = std::max(last, conversation.with_client.back().at.ns);
    }
    for (const Note& note : journal.notes) last = std::max(last, note.t_ns);
    if (!journal.venue.empty()) last = std::max(last, journal.venue.back().t_ns);
    return last;
}

bool is_end(const Note& note) {
    return note.event == "command_end" || note.event == "venue_end";
}

// A relay that has enough of a client's bytes waiting stops reading, and then they count as late.
bool keeps_back(std::string_view what) {
    return what == "held" || what == "delayed" || what == "slowed" || what == "split";
}

}  // namespace

Circumstances::Circumstances(const Journal& journal)
    : start_ns_(journal.facts.started_ns), end_ns_(last_moment(journal)) {
    for (const Note& note : journal.notes) take(note);
}

void Circumstances::take(const Note& note) {
    if (is_end(note)) end_ns_ = std::min(end_ns_, note.t_ns);
    if (note.event != "late" && note.event != "relay_did") return;
    const auto json = nlohmann::json::parse(note.json, nullptr, false);
    if (!json.is_object()) return;
    const auto text = [&](const char* member) {
        const auto found = json.find(member);
        return found != json.end() && found->is_string() ? found->get<std::string>() : std::string();
    };
    if (note.event != "late") {
        if (text("direction") == "up" && keeps_back(text("what"))) {
            relay_.push_back({note.t_ns, text("user"), text("what")});
        }
        return;
    }
    const auto ms = json.find("ms");
    const bool known = ms != json.end() && ms->is_number_integer() && ms->get<std::int64_t>() > 0;
    if (known) late_.push_back({note.t_ns, ms->get<std::uint64_t>() * ns_per_ms});
}

std::string Circumstances::machine(std::uint64_t from_ns, std::uint64_t to_ns, std::uint64_t at_least_ns) const {
    const Late* worst = nullptr;
    std::uint64_t all_ns = 0;
    for (const Late& late : late_) {
        if (late.t_ns + crossing_ns < from_ns || late.t_ns > to_ns + crossing_ns + late.by_ns) continue;
        all_ns += late.by_ns;
        if (worst == nullptr || late.by_ns > worst->by_ns) worst = &late;
    }
    if (worst == nullptr || all_ns < at_least_ns) return {};
    const std::string in_all = all_ns == worst->by_ns ? "" : " in all, most of it";
    return "the machine was late by " + ms_text(all_ns) + in_all + " at " + at(worst->t_ns);
}

std::string Circumstances::relay(std::string_view user, std::uint64_t to_ns) const {
    const auto found = std::find_if(relay_.rbegin(), relay_.rend(), [&](const RelayFault& fault) {
        return fault.user == user && fault.t_ns <= to_ns + crossing_ns;
    });
    if (found == relay_.rend()) return {};
    return "the relay kept back what the client said: " + in_quotes(found->what) + " at " + at(found->t_ns);
}

std::string Circumstances::at(std::uint64_t ns) const {
    const std::uint64_t ms = (ns < start_ns_ ? 0 : ns - start_ns_) / ns_per_ms;
    const std::string fraction = std::to_string(1000 + ms % 1000).substr(1);
    return "+" + std::to_string(ms / 1000) + "." + fraction + " s";
}

}  // namespace kavo::companion
