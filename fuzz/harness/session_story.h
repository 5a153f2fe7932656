// A day of the venue, told by the fuzzer's bytes: clients come, log in, trade, talk nonsense, fall silent, vanish and
// return, on a clock that moves when the story says so. The auditor of the simulated days judges it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "common/price.h"
#include "day.h"
#include "harness/input.h"

namespace kavo::fuzz {

class SessionStory {
public:
    explicit SessionStory(ByteView bytes);

    void tell();

private:
    static constexpr unsigned most_steps = 400;  // which keeps the slowest input well below its limit
    static constexpr std::size_t most_clients = 24;

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

    // A client, and what it has said that waits to arrive together with its next words.
    struct Client {
        simulation::Peer* peer = nullptr;
        Bytes unsaid;

        bool open() const { return !peer->gone && !peer->closed; }
    };
    Client& connect();
    Client& some_client();
    void deliver(Client& client, ByteView bytes);
    void pass_after(std::uint64_t ms);
    void end();

    Input input_;
    simulation::Day day_;
    std::vector<Client> clients_;
    std::size_t read_ = 0;  // of the tape
    std::uint64_t silent_until_ms_ = 0;
    unsigned steps_ = 0;
};

}  // namespace kavo::fuzz
