#include "kavo/audit/feed_circumstances.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "kavo/basics/now.h"

namespace kavo::companion {

namespace {

using nlohmann::json;

std::uint64_t number_of(const json& note, const char* key) {
    const auto it = note.find(key);
    if (it == note.end() || !it->is_number()) return 0;
    const auto number = it->get<double>();
    return number > 0 && number < 9e18 ? it->get<std::uint64_t>() : 0;
}

std::string member_text(const json& note, const char* key) {
    const auto it = note.find(key);
    if (it == note.end()) return "";
    return it->is_string() ? it->get<std::string>() : it->dump();
}

void take_drop(const json& note, FeedCircumstances& found) {
    (member_text(note, "socket") == "kavo" ? found.kernel_drops_of_kavo : found.kernel_drops_of_clients) +=
        number_of(note, "drops");
}

void take_socket(std::uint64_t t_ns, const json& note, FeedCircumstances& found) {
    found.sockets_are_watched = true;
    const std::string name = member_text(note, "socket");
    if (name == "kavo") return;
    if (note.value("open", true)) return found.sockets.push_back({t_ns, 0, name});
    for (auto it = found.sockets.rbegin(); it != found.sockets.rend(); ++it) {
        if (it->name == name && it->closed_ns == 0) return void(it->closed_ns = t_ns);
    }
}

void take_end(std::uint64_t t_ns, FeedCircumstances& found) {
    found.ended_ns = found.ended_ns == 0 ? t_ns : std::min(found.ended_ns, t_ns);
}

}  // namespace

bool FeedCircumstances::was_late(std::uint64_t from_ns, std::uint64_t to_ns) const {
    return std::any_of(late.begin(), late.end(),
                       [&](const Spell& it) { return it.from_ns <= to_ns && from_ns <= it.to_ns; });
}

bool FeedCircumstances::socket_opened(std::uint64_t from_ns, std::uint64_t to_ns) const {
    return std::any_of(sockets.begin(), sockets.end(),
                       [&](const FeedSocket& it) { return it.opened_ns >= from_ns && it.opened_ns <= to_ns; });
}

bool FeedCircumstances::socket_open(std::uint64_t from_ns, std::uint64_t to_ns) const {
    return std::any_of(sockets.begin(), sockets.end(), [&](const FeedSocket& it) {
        return it.opened_ns <= from_ns && (it.closed_ns == 0 || it.closed_ns >= to_ns);
    });
}

FeedCircumstances feed_circumstances(const Journal& journal) {
    FeedCircumstances found;
    for (const Note& note : journal.notes) {
        const json all = json::parse(note.json, nullptr, false);
        if (!all.is_object()) continue;
        if (note.event == "late") {
            const std::uint64_t ns = number_of(all, "ms") * ns_per_ms;
            found.late.push_back({note.t_ns - std::min(note.t_ns, ns), note.t_ns});
        }
        if (note.event == "kernel_drop") take_drop(all, found);
        if (note.event == "feed_socket") take_socket(note.t_ns, all, found);
        if (note.event == "command_end" || note.event == "venue_end") take_end(note.t_ns, found);
    }
    return found;
}

}  // namespace kavo::companion
