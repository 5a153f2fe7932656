// Words that were meant, for whoever has mistyped one.
#pragma once

#include <cstddef>
#include <string_view>

namespace kavo::companion {

// How many letters must be put in, left out or changed to make one word of the other.
std::size_t spelling_distance(std::string_view from, std::string_view to);

}  // namespace kavo::companion
