// The control port: one UDP datagram is one command, which steers the running bench.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "session/order_entry.h"

namespace kavo {

class ControlPort {
public:
    //   tick_interval_ms  the main loop's, which "rate" changes
    ControlPort(Bench& bench, Engine& engine, DomFeed& feed, const Clock& clock, const OrderEntry& order_entry,
                std::int32_t& tick_interval_ms);

    // Carries out the commands that wait, 256 at most, and replies to their senders. "stop" ends the process from in
    // here, at once: status 0, no report and no flushing.
    //   socket  -1: no control port
    void drain(int socket);

    struct Reply {
        std::string text;
        bool stop = false;
    };
    // Carries out one command; "stop" is left to the caller.
    //   received  the datagram's bytes, of which the line is what comes before the first NUL
    Reply handle(std::string_view received);

private:
    using Word = std::string_view;
    using Count = std::uint32_t;
    struct Command;
    static const std::array<Command, 17> commands;
    friend int open_control_port(std::uint16_t port);

    void pause(bool paused);
    void set_rate(Count rate_ms);
    void start_lapse(Count length_ms);
    void mark(Word label);

    Bench& bench_;
    Engine& engine_;
    DomFeed& feed_;
    const Clock& clock_;
    const OrderEntry& order_entry_;
    std::int32_t& tick_interval_ms_;
};

// Opens the port on 127.0.0.1 and says which commands there are. When it cannot be bound, says why and gives -1.
int open_control_port(std::uint16_t port);

}  // namespace kavo
