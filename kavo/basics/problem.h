// What kavo cannot do, in words for whoever called it: what is wrong, and what to try next.
#pragma once

#include <stdexcept>
#include <string>

#include "kavo/basics/status.h"

namespace kavo::companion {

// Ends the verb. The sentence is all that the user sees, after "kavo: ".
class Problem : public std::runtime_error {
public:
    Problem(Status ends_with, const std::string& sentence) : std::runtime_error(sentence), status(ends_with) {}

    Status status;
};

}  // namespace kavo::companion
