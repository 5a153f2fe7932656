// The simulator's own book core, alone: the pool, the sides, the table of client order ids and the lists of open
// orders, put together as the engine does it, without messages, feed or truth.
#pragma once

#include "engine/live_ids.h"
#include "engine/open_orders.h"
#include "flow.h"

namespace kavo::benchmarks {

class CoreBook {
public:
    void apply(const Operation& operation);

    std::vector<FlowTrade> trades;
    std::vector<FlowLevel> levels() const;

private:
    void add(const Operation& operation);
    void cancel(Order& order);
    void replace(Order& order, const Operation& operation);
    void take(const Operation& operation);
    void end(Order& order);

    OrderPool pool_;
    LiveIds live_ids_{pool_};
    OpenOrders open_orders_;
    Product product_;
    std::uint64_t next_id_ = 1;
};

}  // namespace kavo::benchmarks
