#include "kavo/scene/script.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <exception>
#include <optional>
#include <sstream>
#include <utility>

#include "client/requests.h"
#include "kavo/basics/problem.h"

namespace kavo::companion {

namespace {

using Words = std::vector<std::string>;

[[noreturn]] void refuse(const std::string& sentence) {
    throw Problem(Status::usage, sentence);
}

Words words_of(std::string_view text) {
    std::istringstream in{std::string(text)};
    Words words;
    for (std::string word; in >> word;) words.push_back(word);
    return words;
}

struct EventWords {
    std::string_view words;  // behind the user
    SceneEvent::Kind kind;
    bool of_an_order;
};
constexpr std::array event_words{
    EventWords{"logs in", SceneEvent::Kind::logs_in, false},
    EventWords{"leaves", SceneEvent::Kind::leaves, false},
    EventWords{"enters", SceneEvent::Kind::enters, true},
    EventWords{"is accepted", SceneEvent::Kind::accepted, true},
    EventWords{"rests", SceneEvent::Kind::rests, true},
    EventWords{"is filled", SceneEvent::Kind::filled, true},
    EventWords{"cancels", SceneEvent::Kind::cancels, true},
    EventWords{"replaces", SceneEvent::Kind::replaces, true},
    EventWords{"ends", SceneEvent::Kind::ends, true},
};

SceneEvent read_event(const Words& words) {
    for (const EventWords& known : event_words) {
        Words expected = words_of(known.words);
        const std::size_t size = 1 + expected.size() + (known.of_an_order ? 1 : 0);
        if (words.size() != size || !std::equal(expected.begin(), expected.end(), words.begin() + 1)) continue;
        return {known.kind, words.front(), known.of_an_order ? words.back() : ""};
    }
    refuse(
        "no such event; these are known: USER logs in, USER leaves, and USER with enters, is accepted, rests, is "
        "filled, "
        "cancels, replaces or ends, and an order id or any");
}

bool is_price(const std::string& text) {
    try {
        client::wire_price(text);
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

void check_house(const Words& action) {
    const bool enters = action.size() >= 6 && action.size() <= 7 && (action[1] == "buy" || action[1] == "sell");
    if (enters) {
        read_count(action[3]);
        if (action[4] != "market" && !is_price(action[4]))
            refuse("'" + action[4] + "' is no price: write 189.95, or market");
        if (action.size() == 7 && action[6] != "ioc" && action[6] != "fok" && action[6] != "post") {
            refuse("an order of the house ends with ioc, fok, post, or nothing");
        }
        return;
    }
    if (action.size() == 3 && action[1] == "cancel") return;
    if (action.size() == 5 && action[1] == "take" && action[3] == "of") {
        read_count(action[2]);
        return;
    }
    refuse("the house can: buy|sell ID QUANTITY PRICE|market SYMBOL [ioc|fok|post], cancel ID, take QUANTITY of it|ID");
}

void check_relay(Words action) {
    if (action.size() > 4 && (action[3] == "up" || action[3] == "down")) action.erase(action.begin() + 3);
    const bool named = action.size() >= 4 && (action[2] == "orders" || action[2] == "recovery");
    const std::string& what = named ? action[3] : action.front();
    const auto is = [&](std::initializer_list<std::string_view> known) {
        return std::find(known.begin(), known.end(), what) != known.end();
    };
    if (named && action.size() == 4 && is({"hold", "release", "half", "cut", "reset", "abandon"})) return;
    if (named && action.size() == 5 && what == "latency") {
        read_time(action[4]);
        return;
    }
    if (named && action.size() == 5 && is({"bandwidth", "piece", "swallow"})) {
        read_count(action[4]);
        return;
    }
    refuse(
        "the relay can: relay USER orders|recovery [up|down] latency TIME, bandwidth BYTES, piece BYTES, hold, "
        "release, "
        "swallow PACKETS, half, cut, reset, abandon");
}

void check_action(const Words& action) {
    if (action.empty()) refuse("a step needs an action: control, house, relay or note");
    if (action[0] == "control" && action.size() >= 2) return;
    if (action[0] == "note") return;
    if (action[0] == "house") return check_house(action);
    if (action[0] == "relay") return check_relay(action);
    refuse("no such action '" + action[0] + "'; these are known: control WORD..., house ..., relay ..., note TEXT");
}

using Trigger = ScriptStep::Trigger;

std::optional<Trigger> trigger_of(const std::string& word) {
    constexpr std::array<std::pair<std::string_view, Trigger>, 4> known{
        {{"at", Trigger::at}, {"after", Trigger::after}, {"when", Trigger::when}, {"whenever", Trigger::whenever}}};
    for (const auto& [name, trigger] : known) {
        if (name == word) return trigger;
    }
    return {};
}

// The trigger ends with a colon and a blank, so that a colon inside an id is none.
ScriptStep read_step(std::string_view line) {
    ScriptStep step;
    step.text = line;
    const Words first = words_of(line);
    const auto trigger = trigger_of(first.front());
    std::string_view action = line;
    if (trigger) {
        const auto colon = line.find(": ");
        if (colon == std::string_view::npos)
            refuse("a trigger ends with a colon and a blank, and then the action follows");
        Words words = words_of(line.substr(0, colon));
        words.erase(words.begin());
        step.trigger = *trigger;
        if (*trigger == Trigger::when || *trigger == Trigger::whenever) {
            step.event = read_event(words);
        } else if (words.size() == 1) {
            step.time = read_time(words.front());
        } else {
            refuse("at and after are followed by a time, such as 200ms or 1.5s");
        }
        action = line.substr(colon + 2);
    }
    step.action = words_of(action);
    check_action(step.action);
    return step;
}

// A comment begins with a # that stands behind a blank or at the beginning.
std::string_view without_comment(std::string_view line) {
    for (std::size_t i = 0; i < line.size(); ++i) {
        if (line[i] == '#' && (i == 0 || line[i - 1] == ' ' || line[i - 1] == '\t')) return line.substr(0, i);
    }
    return line;
}

std::string_view trimmed(std::string_view line) {
    while (!line.empty() && std::string_view(" \t\r").find(line.back()) != std::string_view::npos)
        line.remove_suffix(1);
    while (!line.empty() && std::string_view(" \t").find(line.front()) != std::string_view::npos) line.remove_prefix(1);
    return line;
}

}  // namespace

std::vector<ScriptStep> read_script(std::string_view text) {
    std::vector<ScriptStep> steps;
    for (std::size_t number = 1; !text.empty(); ++number) {
        const auto end = text.find('\n');
        const std::string_view line = trimmed(without_comment(text.substr(0, end)));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        if (line.empty()) continue;
        try {
            steps.push_back(read_step(line));
        } catch (const Problem& problem) {
            refuse("line " + std::to_string(number) + " of the script: " + problem.what());
        }
        steps.back().line = number;
    }
    return steps;
}

std::chrono::milliseconds read_time(std::string_view text) {
    double number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const std::string_view unit = text.substr(static_cast<std::size_t>(end - text.data()));
    const double ms = unit == "ms" ? number : unit == "s" ? number * 1000 : -1;
    if (error != std::errc{} || !(ms >= 0 && ms <= 86'400'000)) {
        refuse("'" + std::string(text) + "' is no time: write 200ms or 1.5s");
    }
    return std::chrono::milliseconds{static_cast<std::int64_t>(ms)};
}

std::uint32_t read_count(std::string_view text) {
    std::uint32_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc{} || end != text.data() + text.size()) {
        refuse("'" + std::string(text) + "' is no whole number between 0 and 4294967295");
    }
    return number;
}

}  // namespace kavo::companion
