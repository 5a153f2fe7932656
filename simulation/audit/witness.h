// What must come next on the tape. Datagrams that leave because they are full may come in between, wherever a message
// is published.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "audit/audited_feed.h"
#include "audit/tape_reader.h"

namespace kavo::simulation {

class Witness {
public:
    Witness(TapeReader& tape, AuditedFeed& feed) : tape_(tape), feed_(feed) {}

    // Each throws a finding when something else comes.
    void expect_line(What what, const std::string& line);
    void expect_said(const std::string& line) { expect_line(What::commentary, line); }
    const Entry& expect_bytes(What what, int fd, const Bytes& bytes);
    void expect(What what, int fd);
    const Entry& take(What what);

    // As many as wait are taken one by one, until none is left or so many are; the tape says when none was left.
    void expect_all(What one, What none, int most, const std::function<void(const Entry& entry)>& take_one);

    // Looks ahead, past any datagrams, and takes nothing.
    bool next_is(What what, std::string_view start = {}) const;

    std::uint64_t now_ms() const { return tape_.now_ms(); }
    std::uint64_t now_ns() const { return tape_.now_ns(); }

private:
    TapeReader& tape_;
    AuditedFeed& feed_;
};

}  // namespace kavo::simulation
