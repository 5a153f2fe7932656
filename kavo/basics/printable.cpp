#include "kavo/basics/printable.h"

#include <array>
#include <cstdint>
#include <cstdio>

namespace kavo::companion {

namespace {

struct Character {
    char32_t code = 0;
    std::size_t size = 0;  // bytes; 0 for what is no character
};

constexpr bool goes_on(unsigned char byte) {
    return (byte & 0xc0) == 0x80;
}

// The character that a text begins with, in its shortest form and below the surrogates or above them.
Character first_character(std::string_view text) {
    const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    if (byte(0) < 0x80) return {byte(0), 1};
    const std::size_t size = byte(0) >= 0xf0 ? 4 : byte(0) >= 0xe0 ? 3 : 2;
    if (byte(0) < 0xc2 || byte(0) > 0xf4 || text.size() < size) return {};
    char32_t code = byte(0) & (0x7fu >> size);
    for (std::size_t i = 1; i < size; ++i) {
        if (!goes_on(byte(i))) return {};
        code = code << 6 | (byte(i) & 0x3fu);
    }
    constexpr std::array<char32_t, 5> least{0, 0, 0x80, 0x800, 0x10000};
    if (code < least[size] || code > 0x10ffff || (code >= 0xd800 && code < 0xe000)) return {};
    return {code, size};
}

// Control characters end lines, and the marks that turn the direction of writing make a text read as another one.
bool shows(char32_t code) {
    if (code < 0x20 || (code >= 0x7f && code < 0xa0)) return false;
    const bool turns_direction = (code >= 0x200b && code <= 0x200f) || (code >= 0x2028 && code <= 0x202e) ||
                                 (code >= 0x2060 && code <= 0x206f) || code == 0xfeff;
    return !turns_direction && (code & 0xfffe) != 0xfffe;
}

void append_hex(std::string& out, std::string_view bytes) {
    for (const char byte : bytes) {
        std::array<char, 5> text{};
        std::snprintf(text.data(), text.size(), "\\x%02x", static_cast<unsigned char>(byte));
        out += text.data();
    }
}

std::string made_printable(std::string_view text, std::string_view backslash) {
    std::string out;
    while (!text.empty()) {
        const Character character = first_character(text);
        const std::size_t size = character.size == 0 ? 1 : character.size;
        if (character.size == 0 || !shows(character.code)) {
            append_hex(out, text.substr(0, size));
        } else if (character.code == '\\') {
            out += backslash;
        } else {
            out += text.substr(0, size);
        }
        text.remove_prefix(size);
    }
    return out;
}

std::string with_entities(const std::string& text) {
    std::string out;
    for (const char letter : text) {
        switch (letter) {
            case '&': out += "&amp;"; break;
            case '<': out += "&lt;"; break;
            case '>': out += "&gt;"; break;
            case '"': out += "&quot;"; break;
            case '\'': out += "&#39;"; break;
            default: out += letter;
        }
    }
    return out;
}

}  // namespace

std::string printable(std::string_view text) {
    return made_printable(text, "\\\\");
}

std::string printable_sentence(std::string_view sentence) {
    return made_printable(sentence, "\\");
}

std::string for_markup(std::string_view text) {
    return with_entities(printable(text));
}

std::string sentence_for_markup(std::string_view sentence) {
    return with_entities(printable_sentence(sentence));
}

std::string since_start(unsigned long long ns, unsigned long long started_ns) {
    if (ns == 0) return {};
    std::array<char, 32> text{};
    const auto difference = static_cast<long long>(ns - started_ns);
    std::snprintf(text.data(), text.size(), "%+.3f s", static_cast<double>(difference) / 1e9);
    return text.data();
}

}  // namespace kavo::companion
