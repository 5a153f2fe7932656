#include "support/bytes_hex.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <stdexcept>
#include <system_error>

namespace kavo::test {

namespace {

constexpr std::string_view between_pairs = " \t\r\n#";
constexpr std::size_t bytes_in_a_row = 8;

std::uint8_t byte_of(std::string_view pair) {
    unsigned value = 0;
    const auto [end, error] = std::from_chars(pair.begin(), pair.end(), value, 16);
    if (pair.size() != 2 || error != std::errc{} || end != pair.end()) {
        throw std::invalid_argument("no pair of hexadecimal digits: " + std::string(pair));
    }
    return static_cast<std::uint8_t>(value);
}

}  // namespace

Bytes from_hex(std::string_view text) {
    Bytes bytes;
    while (!text.empty()) {
        if (text.front() == '#') {
            text.remove_prefix(std::min(text.find('\n'), text.size()));
        } else if (between_pairs.find(text.front()) != std::string_view::npos) {
            text.remove_prefix(1);
        } else {
            const std::size_t size = std::min(text.find_first_of(between_pairs), text.size());
            bytes.push_back(byte_of(text.substr(0, size)));
            text.remove_prefix(size);
        }
    }
    return bytes;
}

std::string to_hex(ByteView bytes) {
    std::string rows;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        char text[32];
        if (i % bytes_in_a_row == 0) {
            std::snprintf(text, sizeof text, "%s%4zu:", i == 0 ? "" : "\n", i);
            rows += text;
        }
        std::snprintf(text, sizeof text, " %02X", static_cast<unsigned>(bytes[i]));
        rows += text;
    }
    return rows;
}

std::string hex_rows(std::string_view text) {
    return to_hex(from_hex(text));
}

}  // namespace kavo::test
