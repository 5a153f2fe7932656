// Small words of which findings are made. Ids come from the wire and may hold any byte; none of it gets into a sentence
// as it is.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kavo::companion {

// "b1" in quotes, with \xNN for whatever is not printable ASCII, a quote or a backslash.
std::string in_quotes(std::string_view text);

// "250 ms", rounded down.
std::string ms_text(std::uint64_t ns);

// "1 login", "2 logins".
std::string counted(std::uint64_t count, std::string_view thing);

}  // namespace kavo::companion
