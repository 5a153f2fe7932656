#include "model/bench.h"

#include <algorithm>

namespace kavo::model {

std::vector<Bench::Counter> Bench::counters() const {
    return {
        {"orders", orders},
        {"accepts", accepts},
        {"fills", fills},
        {"partials", partials},
        {"cancels", cancels},
        {"replaces", replaces},
        {"rejects", rejects},
        {"replace_rejects", replace_rejects},
        {"unsolicited_cancels", unsolicited_cancels},
        {"race_fills", race_fills},
        {"late_cancels", late_cancels},
        {"stale_cancels", stale_cancels},
        {"logins", logins},
        {"replays", replays},
        {"replayed", replayed},
    };
}

std::string Bench::statistics() const {
    std::string text;
    for (const Counter& counter : counters()) {
        text += (text.empty() ? "" : " ") + std::string(counter.name) + "=" + std::to_string(counter.value);
    }
    return text;
}

void Bench::command(std::string_view word, std::uint32_t number) {
    for (Fault& fault : faults) {
        if (word == fault.control_word) fault.script.next = number;
    }
}

bool Bench::scripted() const {
    const auto comes = [](const Fault& fault) { return fault.script.every != 0; };
    return disconnect_after != 0 || scenario_lapse_ms != 0 || std::ranges::any_of(faults, comes);
}

std::string Bench::scenario() const {
    std::string text = "name=rough,disconnect_after=" + std::to_string(disconnect_after) +
                       ",lapse_ms=" + std::to_string(scenario_lapse_ms);
    for (const Fault& fault : faults) {
        text += "," + std::string(fault.scenario_key) + "=" + std::to_string(fault.script.every);
    }
    return text;
}

std::string Bench::armed_line() const {
    std::string text = "bench: scenario 'rough' armed (disconnect after " + std::to_string(disconnect_after) +
                       " orders, lapse " + std::to_string(scenario_lapse_ms) + " ms";
    for (const Fault& fault : faults) {
        text += ", " + std::string(fault.said) + " every " + std::to_string(fault.script.every);
    }
    return text + ")";
}

}  // namespace kavo::model
