// Whoever sits at the controls of the bench: commands in datagrams, and the replies that come back.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

#include "client/dial.h"

namespace kavo::client {

class ControlClient {
public:
    // Talks to a control port of 127.0.0.1. A venue that is not up yet does not hear what is sent.
    explicit ControlClient(std::uint16_t port);
    ~ControlClient();
    ControlClient(const ControlClient&) = delete;
    ControlClient& operator=(const ControlClient&) = delete;

    // Sends one datagram, whatever is in it.
    void send(std::string_view datagram) const;
    // The next reply, byte for byte; "silence" when none comes in time.
    std::string next_reply(std::chrono::milliseconds longest = patience) const;
    // Sends a command and waits for its reply.
    std::string ask(std::string_view command) const;

    // The number that the feed will give to its next message.
    std::uint64_t next_sequence() const;

private:
    int socket_;
};

// The number that stands right behind the first place where `label` is found in a text. Throws when there is none.
std::uint64_t number_behind(std::string_view label, const std::string& text);

}  // namespace kavo::client
