// A day told from its tape, for people.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>

#include "tape.h"

namespace kavo::simulation {

// Prints what happened, a line each, with the finding in its place.
//   finding   empty when there is none
//   position  on the tape, where the finding was made
void tell_story(const Tape& tape, const std::string& finding, std::size_t position, std::FILE* out);

}  // namespace kavo::simulation
