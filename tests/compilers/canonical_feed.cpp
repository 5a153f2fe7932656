#include "compilers/canonical_feed.h"

#include <array>

namespace kavo::test {

void Hash::take(ByteView bytes) {
    for (const std::uint8_t byte : bytes) value_ = (value_ ^ byte) * 0x100000001b3;
}

void CanonicalFeed::take(ByteView message) {
    if (complete() || message.front() == '1') return;
    --left_;
    take_number(++number_);
    take_number(message.size());
    hash_.take(message.first(1));
    hash_.take(std::array<std::uint8_t, 4>{});
    hash_.take(message.subspan(5));
}

void CanonicalFeed::take_number(std::uint64_t value) {
    std::array<std::uint8_t, 8> bytes;
    for (std::uint8_t& byte : bytes) {
        byte = static_cast<std::uint8_t>(value);
        value >>= 8;
    }
    hash_.take(bytes);
}

}  // namespace kavo::test
