#include "kavo/screen/control_vocabulary.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <nlohmann/json.hpp>
#include <sstream>

#include "kavo/basics/spelling.h"

namespace kavo::companion {

namespace {

using Argument = ControlWord::Argument;

constexpr std::size_t longest_line_bytes = 511;  // the simulator takes no more of a datagram

constexpr std::array all_words{
    ControlWord{"pause", Argument::none},
    ControlWord{"resume", Argument::none},
    ControlWord{"drop", Argument::count},
    ControlWord{"dup", Argument::count},
    ControlWord{"reorder", Argument::count},
    ControlWord{"drop_every", Argument::count},
    ControlWord{"dup_every", Argument::count},
    ControlWord{"reorder_every", Argument::count},
    ControlWord{"rate", Argument::number},
    ControlWord{"disconnect", Argument::none},
    ControlWord{"lapse", Argument::count},
    ControlWord{"reject", Argument::count},
    ControlWord{"partial", Argument::count},
    ControlWord{"fill_on_cancel", Argument::count},
    ControlWord{"unsolicited_cancel", Argument::count},
    ControlWord{"replace_reject", Argument::count},
    ControlWord{"mark", Argument::label},
    ControlWord{"stats", Argument::none},
    ControlWord{"stop", Argument::none},
};

constexpr std::array all_counters{
    Counter{"orders", "New orders that passed every check, scripted rejects included"},
    Counter{"accepts", "New orders accepted"},
    Counter{"fills", "Executions told to clients, one for each side that is a client"},
    Counter{"partials", "Scripted partial fills"},
    Counter{"cancels", "Orders cancelled, whatever the cause"},
    Counter{"replaces", "Replaces accepted, but not those that closed the order"},
    Counter{"rejects", "Scripted rejects"},
    Counter{"replace_rejects", "Replaces rejected for what they asked"},
    Counter{"unsolicited_cancels", "Scripted unsolicited cancels"},
    Counter{"race_fills", "Cancels that lost the scripted race"},
    Counter{"late_cancels", "Cancels of an order that ended less than two seconds ago"},
    Counter{"stale_cancels", "Cancels of an order that ended longer ago, or is unknown"},
    Counter{"logins", "Logins accepted on order entry"},
    Counter{"replays", "Logins that replayed at least one message"},
    Counter{"replayed", "Messages replayed"},
    Counter{"next_seq", "The number that the feed gives to its next message", true},
    Counter{"sent", "Datagrams of the feed sent, or held back for later"},
    Counter{"dropped", "Datagrams of the feed dropped on purpose"},
    Counter{"duplicated", "Datagrams of the feed sent twice on purpose"},
    Counter{"reordered", "Datagrams of the feed held back on purpose"},
};

std::optional<std::int64_t> number_of(std::string_view text) {
    std::int64_t number = 0;
    const auto read = std::from_chars(text.data(), text.data() + text.size(), number);
    if (read.ec != std::errc() || read.ptr != text.data() + text.size()) return std::nullopt;
    return number;
}

std::string objection_to_argument(const ControlWord& word, const std::string& argument) {
    const std::string name(word.word);
    if (word.argument == Argument::none) return argument.empty() ? "" : name + " takes no argument";
    if (word.argument == Argument::label || argument.empty()) return {};
    const auto number = number_of(argument);
    const std::int64_t least = word.argument == Argument::count ? 0 : -1;
    if (number && *number >= least && *number <= INT32_MAX) return {};
    return name + " takes a number from " + std::to_string(least) + " on, and '" + argument + "' is none";
}

}  // namespace

std::span<const ControlWord> control_words() {
    return all_words;
}

std::string objection_to(std::string_view line) {
    std::istringstream rest{std::string(line)};
    std::string name;
    std::string argument;
    std::string more;
    rest >> name >> argument >> more;
    const auto word = std::ranges::find(all_words, name, &ControlWord::word);
    if (word == all_words.end()) {
        const std::string_view nearest = nearest_word(name);
        return "there is no control word '" + name + "'" +
               (nearest.empty() ? "" : "; is it " + std::string(nearest) + "?");
    }
    if (!more.empty()) return name + " takes one argument, and '" + more + "' would be passed over";
    if (line.size() > longest_line_bytes) return "a command has at most 511 bytes";
    return objection_to_argument(*word, argument);
}

std::string_view nearest_word(std::string_view word) {
    const auto nearest = std::ranges::min_element(
        all_words, {}, [word](const ControlWord& known) { return spelling_distance(word, known.word); });
    return spelling_distance(word, nearest->word) * 2 <= nearest->word.size() ? nearest->word : std::string_view();
}

std::span<const Counter> known_counters() {
    return all_counters;
}

std::uint64_t Statistics::at(std::string_view name) const {
    const auto found = std::ranges::find(counters, name, &std::pair<std::string, std::uint64_t>::first);
    return found == counters.end() ? 0 : found->second;
}

// "ok orders=12 ... next_seq=5121 kavo_me faults: sent 728 ... reordered 0 session=up"
std::optional<Statistics> read_statistics(std::string_view reply) {
    std::istringstream rest{std::string(reply)};
    std::string word;
    if (!(rest >> word) || word != "ok") return std::nullopt;
    Statistics statistics;
    while (rest >> word) {
        if (word.starts_with("session=")) statistics.session_up = word == "session=up";
        const std::size_t equals = word.find('=');
        const std::string name = word.substr(0, equals);
        if (std::ranges::find(all_counters, name, &Counter::name) == all_counters.end()) continue;
        std::string value;
        if (equals != std::string::npos) {
            value = word.substr(equals + 1);
        } else if (!(rest >> value)) {
            return std::nullopt;
        }
        const auto number = number_of(value);
        if (!number || *number < 0) return std::nullopt;
        statistics.counters.emplace_back(name, static_cast<std::uint64_t>(*number));
    }
    if (statistics.counters.size() != all_counters.size()) return std::nullopt;
    return statistics;
}

std::string statistics_json(const Statistics& statistics) {
    nlohmann::ordered_json json;
    for (const auto& [name, value] : statistics.counters) json[name] = value;
    json["session"] = statistics.session_up ? "up" : "down";
    return json.dump();
}

std::string statistics_openmetrics(const Statistics& statistics) {
    std::ostringstream text;
    const auto add = [&text](std::string_view name, std::string_view help, bool gauge, std::uint64_t value) {
        const std::string metric = "kavo_me_" + std::string(name);
        text << "# TYPE " << metric << (gauge ? " gauge\n" : " counter\n") << "# HELP " << metric << " " << help
             << ".\n"
             << metric << (gauge ? " " : "_total ") << value << "\n";
    };
    for (const Counter& counter : all_counters)
        add(counter.name, counter.help, counter.falls, statistics.at(counter.name));
    add("session_up", "Whether any client is logged in", true, statistics.session_up ? 1 : 0);
    text << "# EOF\n";
    return text.str();
}

}  // namespace kavo::companion
