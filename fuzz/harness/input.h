// The bytes of the fuzzer, taken as decisions. When they have run out every number is 0 and every run of bytes is
// empty, so that any input tells a whole story.
#pragma once

#include <algorithm>
#include <array>
#include <concepts>
#include <cstdint>

#include "common/bytes.h"

namespace kavo::fuzz {

class Input {
public:
    explicit Input(ByteView bytes) : rest_(bytes) {}

    bool empty() const { return rest_.empty(); }

    template <std::unsigned_integral T>
    T number() {
        T value = 0;
        for (const std::uint8_t byte : bytes(sizeof(T))) value = static_cast<T>(value << 7 << 1 | byte);
        return value;
    }
    std::uint8_t byte() { return number<std::uint8_t>(); }
    bool one_in(std::uint8_t n) { return byte() % n == 1; }  // never once the bytes have run out

    // From a single byte: 0..limit-1, limit at most 256.
    std::size_t below(std::size_t limit) { return byte() % limit; }

    template <typename T, std::size_t size>
    const T& pick(const std::array<T, size>& choices) {
        return choices[below(size)];
    }

    // The next bytes, as far as there are any.
    ByteView bytes(std::size_t size) {
        const ByteView taken = rest_.first(std::min(size, rest_.size()));
        rest_ = rest_.subspan(taken.size());
        return taken;
    }
    ByteView rest() { return bytes(rest_.size()); }

private:
    ByteView rest_;
};

}  // namespace kavo::fuzz
