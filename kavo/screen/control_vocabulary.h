// The words of the control port, and what `stats` replies: one table each.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kavo::companion {

struct ControlWord {
    std::string_view word;
    enum class Argument { none, count, number, label } argument;  // a count is not negative
};
std::span<const ControlWord> control_words();

// Why the simulator would not do what this line seems to ask for: it takes an unknown word for a mistake, and passes
// over everything else in silence. Empty for a line that means what it says.
std::string objection_to(std::string_view line);

// The word that is most like this one; empty when none is.
std::string_view nearest_word(std::string_view word);

struct Counter {
    std::string_view name;  // as `stats` names it
    std::string_view help;
    bool falls = false;  // a gauge, and no counter
};
// In the order in which `stats` tells them.
std::span<const Counter> known_counters();

// The reply to `stats`, taken apart.
struct Statistics {
    std::vector<std::pair<std::string, std::uint64_t>> counters;
    bool session_up = false;

    std::uint64_t at(std::string_view name) const;  // 0 when it was not told
};
// Nothing when the reply is no such thing.
std::optional<Statistics> read_statistics(std::string_view reply);

std::string statistics_json(const Statistics& statistics);
// In the text format of OpenMetrics: kavo_me_orders_total and so on, up to "# EOF".
std::string statistics_openmetrics(const Statistics& statistics);

}  // namespace kavo::companion
