// A counterparty of the script's: a user of the venue like any other, whose orders are entered by kavo. It logs in with
// its first order, keeps its session alive, and comes back when its connection breaks.
#pragma once

#include <cstdint>
#include <string>

#include "client/requests.h"
#include "client/session.h"
#include "kavo/basics/loop.h"

namespace kavo::companion {

class House {
public:
    //   port  of order entry, in front of the relay, so that the house is on the record like everybody else
    House(Loop& loop, const std::string& user, std::uint16_t port);
    ~House();
    House(const House&) = delete;
    House& operator=(const House&) = delete;

    void enter(const client::NewOrder& order);
    void cancel(const client::Cancel& request);
    // An id that the house has not used before.
    std::string fresh_id();

private:
    void connect();
    void hang_up();
    void exchange();
    void write_what_waits();
    void live();

    Loop& loop_;
    std::uint16_t port_;
    client::Session session_;
    int socket_ = -1;
    Loop::Timer timer_ = 0;
    Bytes waiting_;  // packets that wait for the login
    unsigned ids_ = 0;
};

}  // namespace kavo::companion
