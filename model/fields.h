// Fields of a message, each named by the number of the byte it begins at. The model's own alphabet: the simulator
// has another.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "model/records.h"

namespace kavo::model {

// Integers are little-endian and packed; `width` is in bytes.
inline void put(Bytes& message, std::size_t at, std::size_t width, std::uint64_t value) {
    for (std::size_t i = 0; i < width; ++i) message.at(at + i) = static_cast<std::uint8_t>(value >> (8 * i));
}

inline std::uint64_t get(const Bytes& message, std::size_t at, std::size_t width) {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < width; ++i) value |= static_cast<std::uint64_t>(message.at(at + i)) << (8 * i);
    return value;
}

inline std::uint32_t get32(const Bytes& message, std::size_t at) {
    return static_cast<std::uint32_t>(get(message, at, 4));
}
inline std::uint8_t get8(const Bytes& message, std::size_t at) {
    return message.at(at);
}

inline void put_char(Bytes& message, std::size_t at, char value) {
    message.at(at) = static_cast<std::uint8_t>(value);
}

inline void put_text(Bytes& message, std::size_t at, std::size_t width, std::string_view text, char fill) {
    for (std::size_t i = 0; i < width; ++i) put_char(message, at + i, i < text.size() ? text[i] : fill);
}

// Without a fill: whatever lies behind the text stays.
inline void put_text(Bytes& message, std::size_t at, std::string_view text) {
    for (std::size_t i = 0; i < text.size(); ++i) put_char(message, at + i, text[i]);
}

inline void put_blank_filled(Bytes& message, std::size_t at, std::size_t width, std::string_view text) {
    put_text(message, at, width, text, ' ');
}

inline void put_zero_filled(Bytes& message, std::size_t at, std::size_t width, std::string_view text) {
    put_text(message, at, width, text, '\0');
}

// From ten-thousandths to the millionths of the wire.
inline std::uint64_t wire_price(std::uint32_t price) {
    return static_cast<std::uint64_t>(price) * 100;
}

}  // namespace kavo::model
