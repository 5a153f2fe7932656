// A login record as it stands on paper, read with plain offsets and nothing of the simulator's own.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "common/bytes.h"

namespace kavo::fuzz {

// A number of as many bytes as there are, the lowest first.
inline std::uint64_t little_endian(ByteView bytes) {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) value |= std::uint64_t{bytes[i]} << (8 * i);
    return value;
}

// Texts are views into the payload.
struct LiteralLogin {
    struct Entry {
        std::uint8_t engine = 0;
        std::uint64_t sequence = 0;
    };
    std::string_view session_protocol;
    std::string_view username;
    std::string_view computer_id;
    std::string_view application_protocol;
    std::vector<Entry> entries;
};

// Nothing when the payload is cut short.
std::optional<LiteralLogin> literal_login(ByteView payload);

}  // namespace kavo::fuzz
