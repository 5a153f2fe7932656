// A small trading client: it keeps one order on each side of one product, and knows its position whatever happens to
// its connection. It does no input or output of its own, so it runs on a socket as well as in a test.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "client/session.h"

class PositionKeeper {
public:
    PositionKeeper(kavo::WirePrice bid, kavo::WirePrice offer) : bid_(bid), offer_(offer) {}

    // Acts on what the venue said.
    void take(const kavo::client::Session::Arrival& arrival);
    // Says what is to be said now: a fresh order for a side that has none.
    void act(kavo::client::Session& session);

    std::int64_t position() const { return position_; }  // shares bought less shares sold
    std::uint32_t open_shares() const;                   // of all orders that it believes in
    std::uint64_t orders() const { return orders_; }     // sent so far

private:
    struct Order {
        bool buy = false;
        std::uint32_t leaves = 0;
    };
    void take_message(kavo::ByteView message);
    bool quotes(bool buy) const;
    void enter(kavo::client::Session& session, bool buy);

    kavo::WirePrice bid_;
    kavo::WirePrice offer_;
    std::map<std::string, Order> open_;  // by client order id
    std::int64_t position_ = 0;
    std::uint64_t orders_ = 0;
};
