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
    const std::uint64_t looked_ns = t_ns - std::min(t_ns, number_of(note, "ms") * ns_per_ms);
    const auto open = note.find("open");
    if (open == note.end() || *open != false) return found.sockets.push_back({looked_ns, t_ns, 0, name});
    for (auto it = found.sockets.rbegin(); it != found.sockets.rend(); ++it) {
        if (it->name == name && it->last_seen_ns == 0) return void(it->last_seen_ns = looked_ns);
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
                       [&](const FeedSocket& it) { return it.seen_ns >= from_ns && it.not_there_ns <= to_ns; });
}

bool FeedCircumstances::socket_open(std::uint64_t from_ns, std::uint64_t to_ns) const {
    const auto there = [](const FeedSocket& it, std::uint64_t begin_ns, std::uint64_t end_ns) {
        return it.seen_ns <= end_ns && (it.last_seen_ns == 0 || it.last_seen_ns >= begin_ns);
    };
    for (const FeedSocket& it : sockets) {
        const std::uint64_t end_ns = it.last_seen_ns == 0 ? UINT64_MAX : it.last_seen_ns;
        const auto beside = std::count_if(sockets.begin(), sockets.end(),
                                          [&](const FeedSocket& other) { return there(other, it.seen_ns, end_ns); });
        if (it.seen_ns <= from_ns && end_ns >= to_ns && beside == 1) return true;
    }
    return false;
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
