// The life of each order as its user was told it, step by step.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "kavo/audit/user_streams.h"

namespace kavo::companion {

// How an order stands behind one message of the stream.
struct OrderStep {
    enum class State { working, filled, cancelled, rejected };

    std::uint64_t sequence = 0;
    Moment given;
    std::uint64_t read_ns = 0;
    State state = State::working;
    bool fresh = false;     // no more is known than that it was accepted, so it may as well be called pending
    bool between = false;   // half of an answer: what the next message says may be known already
    bool replaced = false;  // it goes on under another id
    bool refused = false;   // another order under its id has just been rejected
    std::uint64_t executed = 0;
    std::uint64_t executed_as_this = 0;  // before it was replaced
    std::uint64_t leaves = 0;            // its size less what has executed
    std::uint64_t leaves_told = 0;       // as the last answer to a replace has it, less what executed later
    bool all_executed = false;           // of its size, however it ended
    bool sizes_known = true;             // false when its acceptance was never given
    unsigned lives = 0;                  // how often the id had been accepted or rejected as a new order's
};

using OrderSteps = std::map<std::string, std::vector<OrderStep>>;  // by client order id

// In the order of `told`.
OrderSteps order_steps(const std::vector<ToldMessage>& told);

// Tells which ids have meant one and the same order.
class OrderNames {
public:
    explicit OrderNames(const std::vector<ToldMessage>& told);
    // The one id that stands for all of an order's.
    std::string one_for(std::string id) const;

private:
    std::map<std::string, std::string> earlier_;  // of a replacement, the id that it replaced
};

// "working, leaves 200, executed 100, after message 57"
std::string text_of(const OrderStep& step);

}  // namespace kavo::companion
