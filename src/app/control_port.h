// The control port: one UDP datagram is one command, which steers the running bench.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/commentary.h"
#include "session/order_entry.h"

namespace kavo {

// Commands carried out in a pass: about as many as find room in the socket.
inline constexpr int most_commands_in_a_pass = 256;

// Where commands come from.
struct CommandSource {
    // The next datagram that waits, valid until the next call; nothing when none does.
    std::function<std::optional<std::string_view>()> receive;
    // Goes to the sender of the last one.
    std::function<void(std::string_view text)> reply;
    // Ends the process at once, with status 0: no report and no flushing. In memory it may come back.
    std::function<void()> exit;

    int commands_limit = most_commands_in_a_pass;
};

class ControlPort {
public:
    ControlPort(Bench& bench, Engine& engine, DomFeed& feed, const OrderEntry& order_entry, const Clock& clock,
                const Commentary& commentary, CommandSource source);
    ControlPort(const ControlPort&) = delete;  // its commands refer to it
    ControlPort& operator=(const ControlPort&) = delete;

    bool open = false;  // somebody can reach it, so the bench counts as active

    // Carries out the commands that wait, 256 at most, and replies to their senders.
    void drain();
    // Carries out one command, and gives the reply; "stop" is left to the caller.
    //   received  the datagram's bytes, of which the line is what comes before the first NUL
    std::string handle(std::string_view received);
    // The words that it knows, as the line shows them that tells of the port: "pause | resume | drop N | ...".
    std::string known_words() const;

private:
    using Count = std::uint32_t;
    struct Command {
        std::string_view word;
        std::string_view argument;  // what the list of commands calls it; empty when it takes none
        Count otherwise;            // stands for an argument that is no number
        std::function<void(std::string_view argument, Count number)> act;
    };
    std::vector<Command> make_commands();
    void set_rate(Count rate_ms);
    void pause(bool paused);
    void mark(std::string_view label);

    Bench& bench_;
    Engine& engine_;
    DomFeed& feed_;
    const OrderEntry& order_entry_;
    const Clock& clock_;
    const Commentary& commentary_;
    CommandSource source_;
    std::vector<Command> commands_;
};

// The socket of a control port; -1: nothing ever comes.
//   socket  may be opened later
CommandSource command_socket(const int& socket);

}  // namespace kavo
