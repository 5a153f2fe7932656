#include "kavo/bench/vocabulary.h"

#include <algorithm>
#include <array>

#include "kavo/basics/spelling.h"

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
    const auto far = [name](const Word& word) { return spelling_distance(word.name, name); };
    const auto nearest = std::ranges::min_element(words, {}, far);
    const bool near = far(*nearest) * 3 <= nearest->name.size();
    const auto longer = std::ranges::find_if(words, [name](const Word& w) { return w.name.starts_with(name); });
    const auto meant = near ? nearest : name.size() > 3 ? longer : words.end();
    return meant == words.end() ? "" : " Did you mean '" + std::string(meant->name) + "'?";
}

}  // namespace kavo::companion
