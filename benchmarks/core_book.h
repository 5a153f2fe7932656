// The simulator's own book core, alone: the pool, the sides and the table of client order ids, put together as the
// engine does it, without messages, feed or truth.
#pragma once

#include "engine/client_orders.h"
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
    BookSide& side(bool buy) { return buy ? bids_ : asks_; }

    OrderPool pool_;
    ClientOrders client_orders_{pool_};
    BookSide bids_{true};
    BookSide asks_{false};
    std::uint64_t next_id_ = 1;
};

}  // namespace kavo::benchmarks
