// The lines of the control port: which words there are, what number each stands for, and how it is answered.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kavo::model {

// Views into the datagram.
struct Command {
    std::string_view line;  // as it is echoed
    std::string_view word;
    std::string_view argument;
};
Command read_command(std::string_view datagram);

// The number that a command is carried out with, its own where the argument is none; nothing for an unknown word.
std::optional<std::uint32_t> number_of(const Command& command);

//   statistics  the text that "stats" is answered with
std::string reply_to(const Command& command, const std::string& statistics);

std::string mark_line(std::string_view label, std::uint64_t last_number);

}  // namespace kavo::model
