// Exact bytes as people write them down, and bytes as text whose difference a failed comparison shows row by row.
#pragma once

#include <string>
#include <string_view>

#include "common/bytes.h"

namespace kavo::test {

// The bytes that a text spells as pairs of hexadecimal digits. Blanks and line ends may stand between the pairs, and a
// '#' begins a comment that runs to the end of its line. Anything else throws std::invalid_argument.
Bytes from_hex(std::string_view text);

// Rows of eight bytes, each behind the decimal offset of its first byte: "   8: 46 49 52 4D".
std::string to_hex(ByteView bytes);

// What to_hex gives for the bytes that a text spells.
std::string hex_rows(std::string_view text);

}  // namespace kavo::test
