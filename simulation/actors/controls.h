// The person at the controls of the bench, who cannot keep their hands off them.
#pragma once

#include <string>

#include "dice.h"

namespace kavo::simulation {

// One command, as it would be typed.
std::string some_command(Dice& dice);

}  // namespace kavo::simulation
