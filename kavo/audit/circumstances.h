// What a client's timing must not be held against it for: the machine stood still, the relay was told to misbehave, or
// the run was over.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "kavo/basics/now.h"
#include "kavo/journal/journal.h"

namespace kavo::companion {

// What crosses on the wire, and what a machine needs to wake a process: below this nothing is late.
inline constexpr std::uint64_t crossing_ns = 250 * ns_per_ms;

class Circumstances {
public:
    explicit Circumstances(const Journal& journal);

    // Why nothing certain can be said about the time between these moments, some 250 ms around them included: "the
    // machine was late by 400 ms at +1.250 s". Empty when all that it was late there is less than `at_least_ns`.
    std::string machine(std::uint64_t from_ns, std::uint64_t to_ns, std::uint64_t at_least_ns = crossing_ns) const;
    // The same for a relay that was told not to pass on at once what this user says, until then.
    std::string relay(std::string_view user, std::uint64_t to_ns) const;

    // From here on nobody had time for anything: the command under test or the venue had ended.
    std::uint64_t end_ns() const { return end_ns_; }
    // "+1.250 s" since the beginning of the run.
    std::string at(std::uint64_t ns) const;

private:
    struct Late {
        std::uint64_t t_ns = 0;  // when kavo woke at last
        std::uint64_t by_ns = 0;
    };
    struct RelayFault {
        std::uint64_t t_ns = 0;
        std::string user;
        std::string what;
    };
    void take(const Note& note);

    std::uint64_t start_ns_;
    std::uint64_t end_ns_ = 0;
    std::vector<Late> late_;
    std::vector<RelayFault> relay_;
};

}  // namespace kavo::companion
