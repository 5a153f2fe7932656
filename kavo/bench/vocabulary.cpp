#include "kavo/bench/vocabulary.h"

#include <algorithm>
#include <array>
#include <numeric>
#include <utility>

namespace kavo::companion {

namespace {

constexpr auto flags = std::to_array<Word>({
    {"--mcast", Kind::group},
    {"--port", Kind::port, "the feed's port is leased, and stands as feed_port in bench.json"},
    {"--iface", Kind::address},
    {"--retrans-port", Kind::port, "the recovery port is leased, and stands as recovery_port in bench.json"},
    {"--meo-port", Kind::port, "the port for orders is leased, and stands as orders_port in bench.json"},
    {"--session", Kind::session},
    {"--symbols", Kind::symbols},
    {"--interval-ms", Kind::integer},
    {"--step-bps", Kind::scale},
    {"--touch-hit", Kind::share},
    {"--book-out", Kind::path},
    {"--bbo-out", Kind::path},
    {"--seed", Kind::count},
    {"--drop-every", Kind::count},
    {"--drop-burst", Kind::burst},
    {"--dup-every", Kind::count},
    {"--reorder-every", Kind::count},
    {"--truth-out", Kind::path, "the truth of the books is always written, to books.jsonl in the run's folder"},
    {"--control-port", Kind::port, "the control port is leased, and stands as control_port in bench.json"},
    {"--acod", Kind::on_off},
    {"--max-order-size", Kind::count},
    {"--quiet", Kind::on_off},
});

constexpr auto keys = std::to_array<Word>({
    {"name", Kind::word},
    {"disconnect_after", Kind::count},
    {"lapse_ms", Kind::integer},
    {"reject_every", Kind::count},
    {"partial_fill_every", Kind::count},
    {"fill_on_cancel_every", Kind::count},
    {"unsolicited_cancel_every", Kind::count},
    {"replace_reject_every", Kind::count},
});

// How many letters must be changed, added or left out to make one word of the other.
std::size_t distance(std::string_view one, std::string_view other) {
    std::vector<std::size_t> row(other.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 1; i <= one.size(); ++i) {
        std::size_t diagonal = std::exchange(row[0], i);
        for (std::size_t j = 1; j <= other.size(); ++j) {
            const std::size_t changed = diagonal + (one[i - 1] == other[j - 1] ? 0 : 1);
            diagonal = row[j];
            row[j] = std::min({changed, row[j] + 1, row[j - 1] + 1});
        }
    }
    return row.back();
}

}  // namespace

std::span<const Word> simulator_flags() {
    return flags;
}

std::span<const Word> scenario_keys() {
    return keys;
}

const Word* find(std::span<const Word> words, std::string_view name) {
    const auto found = std::ranges::find(words, name, &Word::name);
    return found == words.end() ? nullptr : &*found;
}

// A word is near when a third of its letters is wrong at most, or when it is the beginning of the other.
std::string suggestion(std::span<const Word> words, std::string_view name) {
    const auto far = [name](const Word& word) { return distance(word.name, name); };
    const auto nearest = std::ranges::min_element(words, {}, far);
    const bool near = far(*nearest) * 3 <= nearest->name.size();
    const auto longer = std::ranges::find_if(words, [name](const Word& w) { return w.name.starts_with(name); });
    const auto meant = near ? nearest : name.size() > 3 ? longer : words.end();
    return meant == words.end() ? "" : " Did you mean '" + std::string(meant->name) + "'?";
}

}  // namespace kavo::companion
