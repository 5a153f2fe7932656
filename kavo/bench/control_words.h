// Words for the venue's control port, and its replies. Each goes out by a socket of its own, so that no reply is taken
// for another's.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "kavo/basics/loop.h"
#include "kavo/bench/descriptor.h"

namespace kavo::companion {

class ControlWords {
public:
    //   port  UDP, of 127.0.0.1
    ControlWords(Loop& loop, std::uint16_t port) : loop_(loop), port_(port) {}
    ~ControlWords();
    ControlWords(const ControlWords&) = delete;
    ControlWords& operator=(const ControlWords&) = delete;

    // The reply without its line end; "" when there is none within two seconds.
    void send(std::string_view word, std::function<void(std::string reply)> answered);

private:
    struct Asked {
        Descriptor socket;
        Loop::Timer patience = 0;
        std::function<void(std::string)> answered;
    };
    void finish(int socket, std::string reply);

    Loop& loop_;
    std::uint16_t port_;
    std::map<int, Asked> asked_;
};

}  // namespace kavo::companion
