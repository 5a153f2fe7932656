// A feed stripped of the time of its day, and told in one number: whoever plays the same market gets the same number.
#pragma once

#include <cstdint>

#include "common/bytes.h"

namespace kavo::test {

// FNV-1a with 64 bits.
class Hash {
public:
    void take(ByteView bytes);
    std::uint64_t value() const { return value_; }

private:
    std::uint64_t value_ = 0xcbf29ce484222325;
};

// The first so many messages of a feed in canonical form: System Time is left out, timestamps are blanked, and what
// remains is numbered from 1. Each message enters the hash behind its number and its length.
class CanonicalFeed {
public:
    explicit CanonicalFeed(std::uint64_t messages) : left_(messages) {}

    // Takes the next message of the feed; once complete, nothing more.
    void take(ByteView message);
    bool complete() const { return left_ == 0; }
    std::uint64_t hash() const { return hash_.value(); }

private:
    void take_number(std::uint64_t value);

    std::uint64_t left_;
    std::uint64_t number_ = 0;
    Hash hash_;
};

}  // namespace kavo::test
