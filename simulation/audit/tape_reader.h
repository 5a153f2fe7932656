// A place on the tape, and the time there.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "tape.h"

namespace kavo::simulation {

class TapeReader {
public:
    explicit TapeReader(const Tape& tape) : tape_(tape) { follow_the_clock(); }

    // The clock's own entries are passed over: they set the time, as soon as what stands before them has been taken.
    bool at_end() const { return at_ == tape_.size(); }
    bool at_datagram() const;
    const Entry& next();  // which is not there at the end
    // The next entry that has nothing to do with a datagram's departure; nothing at the end.
    const Entry* next_beyond_datagrams() const;

    std::uint64_t now_ms() const { return now_ms_; }
    std::uint64_t now_ns() const { return now_ns_; }
    // Of the entry taken last.
    std::size_t position() const { return position_; }

private:
    void follow_the_clock();

    const Tape& tape_;
    std::size_t at_ = 0;
    std::size_t position_ = 0;
    std::uint64_t now_ms_ = 0;
    std::uint64_t now_ns_ = 0;
};

// A datagram, or a fault that befell one.
bool is_departure(const Entry& entry);

// An entry in a few words, for a finding.
std::string in_words(const Entry& entry);

}  // namespace kavo::simulation
