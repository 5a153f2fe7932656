#include "app/control_port.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <utility>

#include "app/statistics.h"
#include "common/text.h"

namespace kavo {

namespace {

constexpr std::size_t longest_line_bytes = 511;  // the rest of a longer datagram is lost
constexpr std::uint32_t default_rate_ms = 40;    // deliberately not the interval that the process was started with
constexpr std::uint32_t default_lapse_ms = 20'000;
constexpr std::string_view white_space = " \t\n\v\f\r";
constexpr std::string_view stopping = "ok stopping";

std::string_view without_line_end(std::string_view line) {
    return line.substr(0, line.find_last_not_of("\n\r ") + 1);
}

// Takes the first word off the text; empty when there is none.
std::string_view take_word(std::string_view& text) {
    text.remove_prefix(std::min(text.find_first_not_of(white_space), text.size()));
    const std::string_view word = text.substr(0, text.find_first_of(white_space));
    text.remove_prefix(word.size());
    return word;
}

std::uint32_t number_or(std::string_view word, std::uint32_t otherwise) {
    try {
        return static_cast<std::uint32_t>(std::stoul(std::string(word)));
    } catch (const std::logic_error&) {  // no number, or one out of range
        return otherwise;
    }
}

}  // namespace

ControlPort::ControlPort(Bench& bench, Engine& engine, DomFeed& feed, const OrderEntry& order_entry, const Clock& clock,
                         const Commentary& commentary, CommandSource source)
    : bench_(bench),
      engine_(engine),
      feed_(feed),
      order_entry_(order_entry),
      clock_(clock),
      commentary_(commentary),
      source_(std::move(source)),
      commands_(make_commands()) {}

// The two that replace the reply are not in here: "stats" and "stop".
std::vector<ControlPort::Command> ControlPort::make_commands() {
    std::vector<Command> all;
    const auto add = [&all](std::string_view word, std::string_view argument, Count otherwise, auto act) {
        all.push_back({word, argument, otherwise, std::move(act)});
    };
    add("pause", "", 0, [this](std::string_view, Count) { pause(true); });
    add("resume", "", 0, [this](std::string_view, Count) { pause(false); });
    for (const FeedFault& fault : feed_faults) {
        add(fault.next_word, "N", 1, [this, fault](std::string_view, Count n) { feed_.faults.*fault.next = n; });
    }
    for (const FeedFault& fault : feed_faults) {
        add(fault.every_word, "N", 0, [this, fault](std::string_view, Count n) { feed_.faults.*fault.every = n; });
    }
    add("rate", "MS", default_rate_ms, [this](std::string_view, Count ms) { set_rate(ms); });
    add("disconnect", "", 0, [this](std::string_view, Count) { bench_.disconnect_requested = true; });
    add("lapse", "MS", default_lapse_ms,
        [this](std::string_view, Count ms) { bench_.start_lapse(clock_.steady_ms(), ms); });
    for (const ScriptedFault& fault : scripted_faults) {
        add(fault.control_word, "N", 1, [this, fault](std::string_view, Count n) { bench_.*fault.next = n; });
    }
    add("mark", "LABEL", 0, [this](std::string_view label, Count) { mark(label); });
    return all;
}

std::string ControlPort::known_words() const {
    std::string words;
    for (const Command& command : commands_) {
        words.append(command.word);
        if (!command.argument.empty()) words.append(" ").append(command.argument);
        words += " | ";
    }
    return words + "stats | stop";
}

// An empty datagram ends the draining like a port on which nothing waits; what is behind it comes in the next pass. So
// does what is more than can have waited when the pass began: whoever floods the port holds up nobody.
void ControlPort::drain() {
    for (int handled = 0; handled < source_.commands_limit; ++handled) {
        const std::optional<std::string_view> received = source_.receive();
        if (!received || received->empty()) return;
        const std::string reply = handle(*received);
        source_.reply(reply);
        if (reply != stopping) continue;
        commentary_.say("%s\n", fault_summary(feed_.counters).c_str());
        source_.exit();
    }
}

std::string ControlPort::handle(std::string_view received) {
    const std::string line(without_line_end(received.substr(0, received.find('\0'))));
    std::string_view rest = line;
    const std::string_view word = take_word(rest);
    const std::string_view argument = take_word(rest);
    if (word == "stats") return "ok " + bench_report(bench_, feed_, order_entry_) + "\n";
    if (word == "stop") return std::string(stopping);
    const auto command = std::ranges::find(commands_, word, &Command::word);
    if (command == commands_.end()) return "err unknown command '" + std::string(word) + "'\n";
    command->act(argument, number_or(argument, command->otherwise));
    return "ok " + line + "\n";
}

void ControlPort::pause(bool paused) {
    engine_.market.paused = paused;
    commentary_.say("bench: %s at seq %llu\n", paused ? "paused" : "resumed", printable(feed_.last_sequence()));
}

void ControlPort::set_rate(Count rate_ms) {
    engine_.market.interval_ms = static_cast<std::int32_t>(rate_ms == 0 ? default_rate_ms : rate_ms);
}

// A place in the book truth that a test can find again. Labels are expected to be plain words: nothing is escaped.
void ControlPort::mark(std::string_view label) {
    const std::string text(label);
    if (LineLog& truth = engine_.books.truth; truth.is_on()) {
        truth.write("{\"mark\":\"" + text + "\",\"seq\":" + std::to_string(feed_.last_sequence()) + "}\n");
        truth.flush();
    }
    commentary_.say("bench: mark %s at seq %llu orders %llu\n", text.c_str(), printable(feed_.last_sequence()),
                    printable(bench_.counters.orders));
}

CommandSource command_socket(const int& socket) {
    struct Exchange {
        std::array<char, longest_line_bytes> received;
        sockaddr_in sender{};
        sockaddr* address() { return reinterpret_cast<sockaddr*>(&sender); }
    };
    const auto exchange = std::make_shared<Exchange>();
    const auto receive = [&socket, exchange]() -> std::optional<std::string_view> {
        if (socket == no_socket) return std::nullopt;
        socklen_t size = sizeof exchange->sender;
        const ssize_t count =
            recvfrom(socket, exchange->received.data(), exchange->received.size(), 0, exchange->address(), &size);
        if (count < 0) return std::nullopt;
        return std::string_view(exchange->received.data(), static_cast<std::size_t>(count));
    };
    const auto reply = [&socket, exchange](std::string_view text) {
        sendto(socket, text.data(), text.size(), 0, exchange->address(), sizeof exchange->sender);
    };
    return {receive, reply, [] { _exit(EXIT_SUCCESS); }};
}

}  // namespace kavo
