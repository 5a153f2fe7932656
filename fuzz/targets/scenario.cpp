// The scenario's text: whatever it says, every knob has the value that stands on paper, and only a value that is no
// number is an error.
#include <stdexcept>

#include "app/bench.h"
#include "harness/harness.h"
#include "model/texts.h"

namespace kavo::fuzz {
namespace {

struct Knobs {
    std::string name;
    std::uint32_t disconnect_after = 0;
    std::uint32_t reject_every = 0;
    std::uint32_t partial_fill_every = 0;
    std::uint32_t fill_on_cancel_every = 0;
    std::uint32_t unsolicited_cancel_every = 0;
    std::uint32_t replace_reject_every = 0;
    std::int32_t lapse_ms = 0;
    bool operator==(const Knobs&) const = default;
};

Knobs knobs_of(const Bench& bench) {
    return {bench.name,
            bench.disconnect_after,
            bench.reject_every,
            bench.partial_fill_every,
            bench.fill_on_cancel_every,
            bench.unsolicited_cancel_every,
            bench.replace_reject_every,
            bench.lapse_ms};
}

std::uint32_t* count_named(Knobs& knobs, std::string_view key) {
    if (key == "disconnect_after") return &knobs.disconnect_after;
    if (key == "reject_every") return &knobs.reject_every;
    if (key == "partial_fill_every") return &knobs.partial_fill_every;
    if (key == "fill_on_cancel_every") return &knobs.fill_on_cancel_every;
    if (key == "unsolicited_cancel_every") return &knobs.unsolicited_cancel_every;
    if (key == "replace_reject_every") return &knobs.replace_reject_every;
    return nullptr;
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
