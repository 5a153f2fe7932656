// What the user's command finds in its environment, and what the simulator finds in its own.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "kavo/basics/folder.h"

namespace kavo::companion {

struct Variable {
    std::string_view name;
    std::string_view tells;
    std::string (*value)(const BenchFacts& facts, const RunFolder& folder);
};

// The variables of the user's command: one table, for help texts as well.
std::span<const Variable> command_variables();

// Environments as execve takes them: kavo's own, with some variables set anew.
std::vector<std::string> command_environment(const BenchFacts& facts, const RunFolder& folder);
std::vector<std::string> venue_environment(const BenchFacts& facts, const RunFolder& folder);

}  // namespace kavo::companion
