// What a user wants of the simulator, checked before it starts.
#pragma once

#include <string>
#include <vector>

#include "kavo/basics/folder.h"

namespace kavo::companion {

// Checks the user's flags, and keeps what they say in `facts`: group, interface, seed, session, symbols, acod, largest
// order; what they do not say is the simulator's default. Throws Problem, status usage, for a flag that there is not or
// that is the bench's own, and for a value that cannot be meant.
void read_flags(const std::vector<std::string>& flags, BenchFacts& facts);

// Throws Problem, status usage, for a key that there is not, one that is given twice, and a value that cannot be meant.
void check_scenario(const std::string& scenario);

// Throws Problem when the environment would steer the simulator past the command line.
void check_environment();

// Throws Problem, status bench, unless an interface that is up has this address.
void check_interface(const std::string& address);

}  // namespace kavo::companion
