// Text put together in a buffer that is used again, without locale and without format strings.
#pragma once

#include <charconv>
#include <concepts>
#include <cstdint>
#include <string>

namespace kavo {

// Appends the number in plain decimal.
template <std::integral T>
void append_number(std::string& out, T number) {
    char digits[24];
    const auto end = std::to_chars(digits, digits + sizeof digits, number);
    out.append(digits, end.ptr);
}

// A 64-bit number as the printf family wants it, under "%llu".
constexpr unsigned long long printable(std::uint64_t number) {
    return number;
}

}  // namespace kavo
