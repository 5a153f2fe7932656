#include "app/control_port.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include "app/statistics.h"
#include "common/socket.h"
#include "common/text.h"

namespace kavo {

namespace {

constexpr std::size_t longest_line_bytes = 511;  // the rest of a longer datagram is lost
constexpr int most_commands_in_a_pass = 256;     // about as many as find room in the socket
constexpr std::uint32_t default_rate_ms = 40;    // deliberately not the interval that the process was started with
constexpr std::uint32_t default_lapse_ms = 20'000;
constexpr std::string_view white_space = " \t\n\v\f\r";

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

struct ControlPort::Command {
    std::string_view word;
    std::string_view argument;  // what the list of commands calls it; empty when it takes none
    std::uint32_t otherwise;    // stands for an argument that is no number
    void (*act)(ControlPort& port, std::string_view argument, std::uint32_t number);
};

// The two that replace the reply are not in here: "stats" and "stop".
constexpr std::array<ControlPort::Command, 17> ControlPort::commands{{
    {"pause", "", 0, [](ControlPort& port, Word, Count) { port.pause(true); }},
    {"resume", "", 0, [](ControlPort& port, Word, Count) { port.pause(false); }},
    {"drop", "N", 1, [](ControlPort& port, Word, Count n) { port.feed_.faults.drop_next = n; }},
    {"dup", "N", 1, [](ControlPort& port, Word, Count n) { port.feed_.faults.dup_next = n; }},
    {"reorder", "N", 1, [](ControlPort& port, Word, Count n) { port.feed_.faults.reorder_next = n; }},
    {"drop_every", "N", 0, [](ControlPort& port, Word, Count n) { port.feed_.faults.drop_every = n; }},
    {"dup_every", "N", 0, [](ControlPort& port, Word, Count n) { port.feed_.faults.dup_every = n; }},
    {"reorder_every", "N", 0, [](ControlPort& port, Word, Count n) { port.feed_.faults.reorder_every = n; }},
    {"rate", "MS", default_rate_ms, [](ControlPort& port, Word, Count ms) { port.set_rate(ms); }},
    {"disconnect", "", 0, [](ControlPort& port, Word, Count) { port.bench_.disconnect_requested = true; }},
    {"lapse", "MS", default_lapse_ms, [](ControlPort& port, Word, Count ms) { port.start_lapse(ms); }},
    {"reject", "N", 1, [](ControlPort& port, Word, Count n) { port.bench_.reject_next = n; }},
    {"partial", "N", 1, [](ControlPort& port, Word, Count n) { port.bench_.partial_next = n; }},
    {"fill_on_cancel", "N", 1, [](ControlPort& port, Word, Count n) { port.bench_.fill_on_cancel_next = n; }},
    {"unsolicited_cancel", "N", 1, [](ControlPort& port, Word, Count n) { port.bench_.unsolicited_cancel_next = n; }},
    {"replace_reject", "N", 1, [](ControlPort& port, Word, Count n) { port.bench_.replace_reject_next = n; }},
    {"mark", "LABEL", 0, [](ControlPort& port, Word label, Count) { port.mark(label); }},
}};

ControlPort::ControlPort(Bench& bench, Engine& engine, DomFeed& feed, const Clock& clock, const OrderEntry& order_entry,
                         std::int32_t& tick_interval_ms)
    : bench_(bench),
      engine_(engine),
      feed_(feed),
      clock_(clock),
      order_entry_(order_entry),
      tick_interval_ms_(tick_interval_ms) {}

// An empty datagram ends the draining like a port on which nothing waits; what is behind it comes in the next pass. So
// does what is more than can have waited when the pass began: whoever floods the port holds up nobody.
void ControlPort::drain(int socket) {
    if (socket == no_socket) return;
    char received[longest_line_bytes];
    for (int handled = 0; handled < most_commands_in_a_pass; ++handled) {
        sockaddr_in sender{};
        socklen_t sender_size = sizeof sender;
        auto* const address = reinterpret_cast<sockaddr*>(&sender);
        const ssize_t size = recvfrom(socket, received, sizeof received, 0, address, &sender_size);
        if (size <= 0) return;
        const Reply reply = handle({received, static_cast<std::size_t>(size)});
        sendto(socket, reply.text.data(), reply.text.size(), 0, address, sender_size);
        if (!reply.stop) continue;
        std::fprintf(stderr, "%s\n", fault_summary(feed_.counters).c_str());
        _exit(EXIT_SUCCESS);
    }
}

ControlPort::Reply ControlPort::handle(std::string_view received) {
    const std::string line(without_line_end(received.substr(0, received.find('\0'))));
    std::string_view rest = line;
    const Word word = take_word(rest);
    const Word argument = take_word(rest);
    if (word == "stats") return {"ok " + bench_report(bench_, feed_, order_entry_) + "\n"};
    if (word == "stop") return {"ok stopping", true};
    const auto* command =
        std::find_if(commands.begin(), commands.end(), [&](const Command& c) { return c.word == word; });
    if (command == commands.end()) return {"err unknown command '" + std::string(word) + "'\n"};
    command->act(*this, argument, number_or(argument, command->otherwise));
    return {"ok " + line + "\n"};
}

void ControlPort::pause(bool paused) {
    engine_.paused = paused;
    std::fprintf(stderr, "bench: %s at seq %llu\n", paused ? "paused" : "resumed", printable(feed_.last_sequence()));
}

void ControlPort::set_rate(Count rate_ms) {
    tick_interval_ms_ = static_cast<std::int32_t>(rate_ms == 0 ? default_rate_ms : rate_ms);
}

void ControlPort::start_lapse(Count length_ms) {
    bench_.start_lapse(clock_.steady_ms(), length_ms);
}

// A place in the book truth that a test can find again. Labels are expected to be plain words: nothing is escaped.
void ControlPort::mark(Word label) {
    const std::string text(label);
    if (engine_.book_truth.is_open() && engine_.book_truth.good()) {
        engine_.book_truth << "{\"mark\":\"" << text << "\",\"seq\":" << std::to_string(feed_.last_sequence()) << "}\n"
                           << std::flush;
    }
    std::fprintf(stderr, "bench: mark %s at seq %llu orders %llu\n", text.c_str(), printable(feed_.last_sequence()),
                 printable(bench_.counters.orders));
}

int open_control_port(std::uint16_t port) {
    const int socket = open_local_datagrams(port, "kavo_me: control port");
    if (socket == no_socket) return no_socket;
    std::string words;
    for (const ControlPort::Command& command : ControlPort::commands) {
        words.append(command.word);
        if (!command.argument.empty()) words.append(" ").append(command.argument);
        words += " | ";
    }
    std::fprintf(stderr, "bench: control on 127.0.0.1:%u (%sstats | stop)\n", port, words.c_str());
    return socket;
}

}  // namespace kavo
