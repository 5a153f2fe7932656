// Commands under audit: what each changes, says and replies.
#include <algorithm>
#include <charconv>
#include <string>

#include "audit/auditor.h"

namespace kavo::simulation {

namespace {

constexpr std::uint32_t default_rate_ms = 40;
constexpr std::uint32_t default_lapse_ms = 20'000;
constexpr std::string_view all_words =
    "|pause|resume|drop|dup|reorder|drop_every|dup_every|reorder_every|rate|disconnect|lapse|reject|partial|"
    "fill_on_cancel|unsolicited_cancel|replace_reject|mark|stats|";

std::string_view word_at(std::string_view line, std::size_t& at) {
    at = std::min(line.find_first_not_of(" \t\r\n", at), line.size());
    const std::size_t start = at;
    at = std::min(line.find_first_of(" \t\r\n", at), line.size());
    return line.substr(start, at - start);
}

std::uint32_t number_or(std::string_view word, std::uint32_t otherwise) {
    std::uint32_t number = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
    return error == std::errc() && end != word.data() ? number : otherwise;
}

}  // namespace

void Auditor::carry_out(const Entry& command) {
    std::string line = command.text;
    while (!line.empty() && std::string_view("\n\r ").find(line.back()) != std::string_view::npos) line.pop_back();
    std::size_t at = 0;
    const std::string_view word = word_at(line, at);
    const std::string_view argument = word_at(line, at);
    carry_out(word, argument);
    std::string reply = "ok " + line;
    if (word == "stats") {
        reply = "ok " + bench_.statistics() + " next_seq=" + next_sequence() + " " + feed_.fault_summary() +
                sessions_.session_state();
    }
    if (all_words.find("|" + std::string(word) + "|") == std::string_view::npos) {
        reply = "err unknown command '" + std::string(word) + "'";
    }
    witness_.expect_line(What::command_reply, reply + "\n");
}

void Auditor::carry_out(std::string_view word, std::string_view argument) {
    const std::uint32_t once = number_or(argument, 1);
    const std::uint32_t every = number_or(argument, 0);
    if (word == "drop") feed_.drop.next = once;
    if (word == "dup") feed_.duplicate.next = once;
    if (word == "reorder") feed_.reorder.next = once;
    if (word == "drop_every") feed_.drop.every = every;
    if (word == "dup_every") feed_.duplicate.every = every;
    if (word == "reorder_every") feed_.reorder.every = every;
    bench_.command(word, once);
    if (word == "disconnect") bench_.disconnect_requested = true;
    if (word == "mark") mark(argument);
    if (word == "rate") {
        const std::uint32_t rate_ms = number_or(argument, default_rate_ms);
        tick_interval_ms_ = static_cast<std::int32_t>(rate_ms == 0 ? default_rate_ms : rate_ms);
    }
    if (word == "lapse") {
        bench_.lapse_until_ms = tape_.now_ms() + number_or(argument, default_lapse_ms);
        bench_.lapse_announced = false;
    }
    if (word == "pause" || word == "resume") {
        orders_.venue.paused = word == "pause";
        witness_.expect_said("bench: " + std::string(word) + "d at seq " + std::to_string(feed_.last_sequence()));
    }
}

void Auditor::mark(std::string_view label) {
    const std::string text(label);
    const std::string sequence = std::to_string(feed_.last_sequence());
    witness_.expect_line(What::book_truth, "{\"mark\":\"" + text + "\",\"seq\":" + sequence + "}");
    witness_.expect_said("bench: mark " + text + " at seq " + sequence + " orders " + std::to_string(bench_.orders));
}

}  // namespace kavo::simulation
