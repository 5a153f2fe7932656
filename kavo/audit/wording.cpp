#include "kavo/audit/wording.h"

#include "kavo/basics/now.h"

namespace kavo::companion {

std::string in_quotes(std::string_view text) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string shown = "\"";
    for (const char c : text) {
        if (c >= ' ' && c <= '~' && c != '"' && c != '\\') {
            shown += c;
            continue;
        }
        const auto byte = static_cast<unsigned char>(c);
        shown += "\\x";
        shown += digits[byte >> 4];
        shown += digits[byte & 15];
    }
    return shown + "\"";
}

std::string ms_text(std::uint64_t ns) {
    return std::to_string(ns / ns_per_ms) + " ms";
}

std::string counted(std::uint64_t count, std::string_view thing) {
    return std::to_string(count) + " " + std::string(thing) + (count == 1 ? "" : "s");
}

}  // namespace kavo::companion
