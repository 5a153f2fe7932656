// The client: one thread and one loop over its sockets. Each turn reads all there is before it acts.
#pragma once

#include <cstdint>

#include "beliefs.h"
#include "market_data.h"
#include "order_entry.h"
#include "order_keeper.h"
#include "settings.h"
#include "trader.h"

namespace trading {

class TradingClient {
public:
    explicit TradingClient(const Settings& settings);

    // Trades for as long as the settings say, then cancels what is open, waits for the answers and logs out. False when
    // that could not be done in good order.
    bool run();

private:
    void turn();
    bool wind_down();
    bool heard_of_everything();
    void wait_for_input();

    Settings settings_;
    Beliefs beliefs_;
    OrderKeeper keeper_;
    OrderEntry entry_;
    MarketData market_;
    Trader trader_;
    bool asked_at_the_end_ = false;
};

}  // namespace trading
