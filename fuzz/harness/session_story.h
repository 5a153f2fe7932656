// A day of the venue's sessions, told by the fuzzer's bytes: clients come, log in, trade, talk nonsense, fall silent,
// vanish and return, on a clock that moves when the story says so. An audit follows every step.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "harness/input.h"
#include "harness/session_audit.h"
#include "support/venue.h"

namespace kavo::fuzz {

class SessionStory {
public:
    explicit SessionStory(ByteView bytes);

    void tell();

private:
    static constexpr unsigned most_steps = 400;  // which keeps the slowest input well below its limit
    static constexpr std::size_t most_clients = 24;

    void arm_scenario();
    void step();
    void say_something();
    void let_time_pass();
    void steer();

    // What a client may have to say, in bytes.
    Bytes words();
    Bytes login();
    Bytes new_order();
    Bytes replace();
    Bytes cancel();
    Bytes any_packet();
    std::string id();
    WirePrice price();
    std::uint64_t next_wait_ms();

    ClientHandle connect();
    ClientHandle some_client();
    void deliver(ClientHandle client, ByteView bytes);
    void lose(ClientHandle client);
    void pass();
    void end();

    Input input_;
    test::VenueSettings settings_;
    test::Venue venue_{settings_};
    SessionAudit audit_{venue_, settings_.engine.session};
    std::vector<Bytes> unsaid_;  // by client: what waits to arrive together with its next words
    unsigned steps_ = 0;
};

}  // namespace kavo::fuzz
