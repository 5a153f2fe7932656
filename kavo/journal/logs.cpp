#include "kavo/journal/logs.h"

#include <nlohmann/json.hpp>
#include <optional>

#include "kavo/journal/scan.h"

namespace kavo::companion {

namespace {

using Json = nlohmann::json;

// Takes the next line off. One without an end is cut short, and is given all the same.
std::string_view take_line(std::string_view& left, bool& whole) {
    const std::size_t size = left.find('\n');
    whole = size != std::string_view::npos;
    const std::string_view line = left.substr(0, size);
    left.remove_prefix(whole ? size + 1 : left.size());
    return line;
}

bool read_time(Scan& scan, std::uint64_t& t_ns) {
    constexpr std::uint64_t most_seconds = 18'000'000'000;  // as many as nanoseconds can tell
    std::uint64_t seconds = 0;
    std::uint64_t nanoseconds = 0;
    if (!scan.number(seconds) || seconds > most_seconds || !scan.skip(".")) return false;
    std::string_view digits;
    if (!scan.text(digits, 9)) return false;
    Scan fraction(digits);
    if (!fraction.number(nanoseconds) || !fraction.at_end() || !scan.skip(" ")) return false;
    t_ns = seconds * 1'000'000'000 + nanoseconds;
    return true;
}

std::optional<Note> read_note(std::string_view line) {
    const Json json = Json::parse(line, nullptr, false);
    if (!json.is_object()) return std::nullopt;
    const auto t = json.find("t");
    const auto event = json.find("ev");
    if (t == json.end() || !t->is_number_unsigned() || event == json.end() || !event->is_string()) return std::nullopt;
    return Note{t->get<std::uint64_t>(), event->get<std::string>(), std::string(line)};
}

}  // namespace

std::vector<VenueLine> read_venue_log(std::string_view content, std::size_t& unread) {
    std::vector<VenueLine> lines;
    unread = 0;
    while (!content.empty()) {
        bool whole = false;
        Scan scan(take_line(content, whole));
        VenueLine line;
        if (read_time(scan, line.t_ns)) {
            line.text = scan.rest();
            lines.push_back(line);
        } else {
            whole = false;
        }
        if (!whole) ++unread;
    }
    return lines;
}

std::vector<Note> read_notes(std::string_view content, std::size_t& unread) {
    std::vector<Note> notes;
    unread = 0;
    while (!content.empty()) {
        bool whole = false;
        auto note = read_note(take_line(content, whole));
        if (note) {
            notes.push_back(std::move(*note));
        } else {
            whole = false;
        }
        if (!whole) ++unread;
    }
    return notes;
}

}  // namespace kavo::companion
