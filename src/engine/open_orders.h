// The open orders of each client, for the day that it leaves.
#pragma once

#include <vector>

#include "engine/book.h"

namespace kavo {

class OpenOrders {
public:
    // Orders are kept by ascending order id, so this one must be the latest of all.
    void add(Order& order);
    void remove(Order& order);

    // The first of the owner's orders; the others follow through `later`.
    Order* first_of(ClientHandle owner);
    const Order* first_of(ClientHandle owner) const;

private:
    struct List {
        Order* first = nullptr;
        Order* last = nullptr;
    };
    std::vector<List> lists_;  // by handle
};

}  // namespace kavo
