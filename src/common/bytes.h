// Bytes on the wire: vectors and views of them, and the small vocabulary from which every message layout is written.
// This is the only place that knows the byte order (little-endian, unaligned) and the padding of text fields.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace kavo {

using Bytes = std::vector<std::uint8_t>;
using ByteView = std::span<const std::uint8_t>;
using MutableBytes = std::span<std::uint8_t>;

// A layout is a table of these: each knows where it starts and how many bytes it takes.
template <std::unsigned_integral T>
struct Number {
    std::size_t at;
    static constexpr std::size_t size = sizeof(T);
};
struct Letter {
    std::size_t at;
    static constexpr std::size_t size = 1;
};
struct Text {
    std::size_t at;
    std::size_t size;
};
// Bytes that are there but mean nothing to us: never read, and zero in what we build.
struct Unread {
    std::size_t at;
    std::size_t size;
};

// True when each field starts where the one before it ends: the guard against a slip in a table.
template <typename First, typename... Rest>
constexpr bool adjoin(First first, Rest... rest) {
    [[maybe_unused]] std::size_t next = first.at + first.size;
    return ((rest.at == next ? (next += rest.size, true) : false) && ...);
}

// One past the last byte of a field: the size of a message that ends with it.
template <typename Field>
constexpr std::size_t end_of(Field field) {
    return field.at + field.size;
}

// The caller has checked that the message is long enough for its layout.
template <std::unsigned_integral T>
T get(ByteView message, Number<T> field) {
    T value = 0;
    for (std::size_t i = sizeof(T); i-- > 0;) value = static_cast<T>(value << 8 | message[field.at + i]);
    return value;
}
inline char get(ByteView message, Letter field) {
    return static_cast<char>(message[field.at]);
}

template <std::unsigned_integral T>
void put(MutableBytes message, Number<T> field, T value) {
    for (std::size_t i = 0; i < sizeof(T); ++i) {
        message[field.at + i] = static_cast<std::uint8_t>(value);
        value = static_cast<T>(value >> 8);
    }
}
inline void put(MutableBytes message, Letter field, char value) {
    message[field.at] = static_cast<std::uint8_t>(value);
}

// Writes `text` left-aligned and cut at the field's width; the rest of the field becomes `padding`.
void put_text(MutableBytes message, Text field, std::string_view text, char padding);

// The two ways in which text is padded on the wire. Both lend a view into the message.
//   padded_text      cut behind the last byte that is neither NUL nor blank; NULs before it are kept
//   terminated_text  cut at the first NUL, then stripped of trailing blanks; leading blanks are kept
std::string_view padded_text(ByteView message, Text field);
std::string_view terminated_text(ByteView message, Text field);

// A byte of padding: NUL or blank.
constexpr bool is_padding(char c) {
    return (c & ~0x20) == 0;
}

inline std::string_view as_text(ByteView bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}
inline ByteView as_bytes(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

}  // namespace kavo
