// Moments at which something is just due, or not quite yet: a clock that only strolls would hardly ever stop there.
#pragma once

#include <cstdint>
#include <optional>
#include <set>

namespace kavo::simulation {

class Agenda {
public:
    void add(std::uint64_t ms) { moments_.insert(ms); }
    // The first moment after now; what lies before is crossed out.
    std::optional<std::uint64_t> next_after(std::uint64_t now_ms) {
        moments_.erase(moments_.begin(), moments_.upper_bound(now_ms));
        if (moments_.empty()) return std::nullopt;
        return *moments_.begin();
    }
    // The latest moment of all.
    std::optional<std::uint64_t> last() const {
        if (moments_.empty()) return std::nullopt;
        return *moments_.rbegin();
    }

private:
    std::set<std::uint64_t> moments_;
};

}  // namespace kavo::simulation
