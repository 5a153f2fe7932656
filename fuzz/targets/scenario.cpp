// The scenario's text: whatever it says, every knob has the value that stands on paper, and only a value that is no
// number is an error.
#include <algorithm>
#include <array>
#include <stdexcept>

#include "app/bench.h"
#include "harness/harness.h"
#include "model/bench.h"
#include "model/texts.h"

namespace kavo::fuzz {
namespace {

struct Knobs {
    std::string name;
    std::uint32_t disconnect_after = 0;
    std::int32_t lapse_ms = 0;
    std::array<std::uint32_t, scripted_faults.size()> every{};
    bool operator==(const Knobs&) const = default;
};

Knobs knobs_of(const Bench& bench) {
    Knobs knobs{bench.name, bench.disconnect_after, bench.lapse_ms};
    for (std::size_t i = 0; i < knobs.every.size(); ++i) knobs.every[i] = bench.*scripted_faults[i].every;
    return knobs;
}

std::uint32_t* count_named(Knobs& knobs, std::string_view key) {
    if (key == "disconnect_after") return &knobs.disconnect_after;
    const auto faults = model::Bench().faults;
    const auto named = std::ranges::find(faults, key, &model::Bench::Fault::scenario_key);
    return named == faults.end() ? nullptr : &knobs.every.at(static_cast<std::size_t>(named - faults.begin()));
}

// False when the value is no number where it must be one.
bool set(Knobs& knobs, std::string_view key, std::string_view value) {
    if (key == "name") knobs.name = value;
    if (key == "lapse_ms") {
        const std::optional<std::int32_t> ms = model::leading_int(value);
        knobs.lapse_ms = ms.value_or(knobs.lapse_ms);
        return ms.has_value();
    }
    if (std::uint32_t* knob = count_named(knobs, key); knob != nullptr) {
        const std::optional<std::uint64_t> count = model::leading_unsigned(value);
        *knob = static_cast<std::uint32_t>(count.value_or(*knob));
        return count.has_value();
    }
    return true;
}

// The knobs as they are when the first bad item is met, or at the end.
bool read_literally(std::string_view text, Knobs& knobs) {
    for (const std::string_view item : model::comma_list(text)) {
        const std::size_t equals = item.find('=');
        if (equals == std::string_view::npos) continue;
        if (!set(knobs, item.substr(0, equals), item.substr(equals + 1))) return false;
    }
    return true;
}

bool is_armed(Bench& bench, const std::string& text) {
    try {
        bench.arm_scenario(text, Commentary([](std::string_view) {}));
    } catch (const std::logic_error&) {  // a number that is none, deliberately caught by nobody in the simulator
        return false;
    }
    return true;
}

void arm(ByteView input) {
    const std::string text(as_text(input));
    Bench bench;
    Knobs expected;
    const bool armed = is_armed(bench, text);
    require(read_literally(text, expected) == armed, "a scenario is armed unless a value is no number");
    require(knobs_of(bench) == expected, "every knob is set as written");
    if (!armed) return;
    Knobs nameless = expected;
    nameless.name.clear();
    require(bench.scripted() == (nameless != Knobs{}), "a bench is scripted when any knob but the name is set");
}

}  // namespace
}  // namespace kavo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    return kavo::fuzz::run({data, size}, kavo::fuzz::arm);
}
