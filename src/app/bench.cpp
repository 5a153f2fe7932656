#include "app/bench.h"

#include <algorithm>

#include "common/fault_rule.h"

namespace kavo {

namespace {

std::uint32_t to_count(const std::string& value) {
    return static_cast<std::uint32_t>(std::stoul(value));
}

void set_knob(Bench& bench, std::string_view key, const std::string& value) {
    if (key == "name") bench.name = value;
    if (key == "lapse_ms") bench.lapse_ms = std::stoi(value);
    if (key == "disconnect_after") bench.disconnect_after = to_count(value);
    for (const ScriptedFault& fault : scripted_faults) {
        if (key == fault.scenario_key) bench.*fault.every = to_count(value);
    }
}

}  // namespace

void Bench::arm_scenario(const std::string& text, const Commentary& commentary) {
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t comma = std::min(text.find(',', start), text.size());
        const std::string item = text.substr(start, comma - start);
        const std::size_t equals = item.find('=');
        if (equals != std::string::npos) set_knob(*this, item.substr(0, equals), item.substr(equals + 1));
        start = comma + 1;
    }
    std::string every;
    for (const ScriptedFault& fault : scripted_faults) {
        every.append(", ").append(fault.said).append(" every ").append(std::to_string(this->*fault.every));
    }
    commentary.say("bench: scenario '%s' armed (disconnect after %u orders, lapse %d ms%s)\n", name.c_str(),
                   disconnect_after, lapse_ms, every.c_str());
}

bool Bench::scripted() const {
    return lapse_ms != 0 || disconnect_after != 0 ||
           std::ranges::any_of(scripted_faults, [this](const ScriptedFault& fault) { return this->*fault.every != 0; });
}

bool Bench::fires(Scripted fault) {
    const ScriptedFault& row = scripted_faults[static_cast<std::size_t>(fault)];
    return fault_fires(counters.*row.occasions, this->*row.every, this->*row.next);
}

void Bench::start_lapse(std::uint64_t now_ms, std::uint64_t length_ms) {
    lapse_until_ms = now_ms + length_ms;
    lapse_announced = false;
}

std::optional<std::uint64_t> Bench::lapse_to_announce(std::uint64_t now_ms) {
    if (lapse_announced || !in_lapse(now_ms)) return std::nullopt;
    lapse_announced = true;
    return lapse_until_ms - now_ms;
}

void Bench::client_logged_in(std::uint64_t now_ms) {
    ++counters.logins;
    if (lapse_ms <= 0 || scenario_lapse_started) return;
    scenario_lapse_started = true;
    start_lapse(now_ms, static_cast<std::uint64_t>(lapse_ms));
}

bool Bench::takes_disconnect() {
    const bool due = disconnect_after != 0 && counters.orders >= disconnect_after && !disconnect_done;
    if (!due && !disconnect_requested) return false;
    disconnect_done = true;
    disconnect_requested = false;
    return true;
}

}  // namespace kavo
