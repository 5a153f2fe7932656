#include "app/bench.h"

#include <algorithm>
#include <cstdio>

namespace kavo {

namespace {

struct CountKnob {
    std::string_view key;
    std::uint32_t Bench::*value;
};
constexpr std::array<CountKnob, 6> count_knobs{{
    {"disconnect_after", &Bench::disconnect_after},
    {"reject_every", &Bench::reject_every},
    {"partial_fill_every", &Bench::partial_fill_every},
    {"fill_on_cancel_every", &Bench::fill_on_cancel_every},
    {"unsolicited_cancel_every", &Bench::unsolicited_cancel_every},
    {"replace_reject_every", &Bench::replace_reject_every},
}};

void set_knob(Bench& bench, std::string_view key, const std::string& value) {
    if (key == "name") bench.name = value;
    if (key == "lapse_ms") bench.lapse_ms = std::stoi(value);
    for (const CountKnob& knob : count_knobs) {
        if (key == knob.key) bench.*knob.value = static_cast<std::uint32_t>(std::stoul(value));
    }
}

}  // namespace

void Bench::open_order_truth(const std::string& path) {
    order_truth.open(path, std::ios::out | std::ios::app);
}

void Bench::arm_scenario(const std::string& text) {
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t comma = std::min(text.find(',', start), text.size());
        const std::string item = text.substr(start, comma - start);
        const std::size_t equals = item.find('=');
        if (equals != std::string::npos) set_knob(*this, item.substr(0, equals), item.substr(equals + 1));
        start = comma + 1;
    }
    std::fprintf(stderr,
                 "bench: scenario '%s' armed (disconnect after %u orders, lapse %d ms, reject every %u, partial every "
                 "%u, fill-on-cancel every %u, unsolicited cancel every %u, replace reject every %u)\n",
                 name.c_str(), disconnect_after, lapse_ms, reject_every, partial_fill_every, fill_on_cancel_every,
                 unsolicited_cancel_every, replace_reject_every);
}

void Bench::start_lapse(std::uint64_t now_ms, std::uint64_t length_ms) {
    lapse_until_ms = now_ms + length_ms;
    lapse_announced = false;
}

bool Bench::scripted() const {
    if (lapse_ms != 0) return true;
    for (const CountKnob& knob : count_knobs) {
        if (this->*knob.value != 0) return true;
    }
    return false;
}

}  // namespace kavo
