#include "harness/literal_login.h"

namespace kavo::fuzz {

namespace {

// What is left when NULs and blanks are taken off the end.
std::string_view trimmed(ByteView payload, std::size_t at, std::size_t width) {
    std::string_view text = as_text(payload.subspan(at, width));
    while (!text.empty() && (text.back() == '\0' || text.back() == ' ')) text.remove_suffix(1);
    return text;
}

}  // namespace

std::optional<LiteralLogin> literal_login(ByteView payload) {
    if (payload.size() < 27) return std::nullopt;
    const std::size_t count = payload[26];
    if (payload.size() < 27 + 9 * count) return std::nullopt;
    LiteralLogin login{
        trimmed(payload, 0, 5), trimmed(payload, 5, 5), trimmed(payload, 10, 8), trimmed(payload, 18, 8), {}};
    for (std::size_t i = 0; i < count; ++i) {
        login.entries.push_back({payload[27 + 9 * i], little_endian(payload.subspan(28 + 9 * i, 8))});
    }
    return login;
}

}  // namespace kavo::fuzz
