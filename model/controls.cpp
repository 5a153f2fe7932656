#include "model/controls.h"

#include <algorithm>
#include <array>

#include "model/bench.h"
#include "model/feed.h"
#include "model/texts.h"

namespace kavo::model {

namespace {

struct Word {
    std::string_view word;
    std::uint32_t otherwise = 0;  // stands for an argument that is no number
};
// Of the faults, the bench and the feed have words of their own.
constexpr std::array<Word, 8> words{{
    {"pause"},
    {"resume"},
    {"rate", 40},
    {"disconnect"},
    {"lapse", 20'000},
    {"mark"},
    {"stats"},
    {"stop"},
}};

// Nothing for an unknown word.
std::optional<std::uint32_t> otherwise_of(std::string_view word) {
    const Bench bench;
    if (std::ranges::find(bench.faults, word, &Bench::Fault::control_word) != bench.faults.end()) return 1;
    const Feed feed(1);
    for (const Feed::Fault& fault : feed.faults) {
        if (word == fault.word) return 1;
        if (word == std::string(fault.word) + "_every") return 0;
    }
    const auto known = std::ranges::find(words, word, &Word::word);
    return known == words.end() ? std::nullopt : std::optional(known->otherwise);
}

// The first word of the text, which loses it.
std::string_view first_word(std::string_view& text) {
    constexpr std::string_view between_words = " \t\n\v\f\r";
    while (!text.empty() && between_words.find(text.front()) != std::string_view::npos) text.remove_prefix(1);
    std::size_t size = 0;
    while (size < text.size() && between_words.find(text[size]) == std::string_view::npos) ++size;
    const std::string_view word = text.substr(0, size);
    text.remove_prefix(size);
    return word;
}

}  // namespace

Command read_command(std::string_view datagram) {
    Command command{datagram.substr(0, datagram.find('\0')), {}, {}};
    while (!command.line.empty() && std::string_view("\n\r ").find(command.line.back()) != std::string_view::npos) {
        command.line.remove_suffix(1);
    }
    std::string_view rest = command.line;
    command.word = first_word(rest);
    command.argument = first_word(rest);
    return command;
}

std::optional<std::uint32_t> number_of(const Command& command) {
    const std::optional<std::uint32_t> otherwise = otherwise_of(command.word);
    if (!otherwise) return std::nullopt;
    const auto number = static_cast<std::uint32_t>(leading_unsigned(command.argument).value_or(*otherwise));
    return number == 0 && command.word == "rate" ? otherwise : number;  // as good as none
}

std::string reply_to(const Command& command, const std::string& statistics) {
    if (!number_of(command)) return "err unknown command '" + std::string(command.word) + "'\n";
    if (command.word == "stop") return "ok stopping";
    return "ok " + (command.word == "stats" ? statistics : std::string(command.line)) + "\n";
}

std::string mark_line(std::string_view label, std::uint64_t last_number) {
    return "{\"mark\":\"" + std::string(label) + "\",\"seq\":" + std::to_string(last_number) + "}";
}

}  // namespace kavo::model
