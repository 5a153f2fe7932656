// What to send next. An order a step, each of the kind that its place in a round says, and what becomes of it follows
// from its answers: so a short while tries everything that a client does.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>

#include "market_data.h"
#include "order_entry.h"
#include "order_keeper.h"
#include "settings.h"

namespace trading {

class Trader {
public:
    Trader(const Settings& settings, const MarketData& market, OrderKeeper& keeper, OrderEntry& entry)
        : settings_(settings), market_(market), keeper_(keeper), entry_(entry) {}

    // At most one request, and none before the last one is answered.
    void act(std::uint64_t now_ms);
    // Cancels what is open. True when nothing is left of which this connection could hear.
    bool wind_down();
    // All orders have been sent that were wanted.
    bool done() const { return entered_ >= settings_.orders_at_most; }

private:
    enum class Then { stays, is_cancelled, is_replaced };
    struct Touch {
        kavo::WirePrice bid = 0;
        kavo::WirePrice ask = 0;
    };
    bool tend(const std::vector<Order*>& mine);
    void enter();
    void cancel(Order& order);
    void replace(Order& order);
    void cancel_an_ended_one();
    const Touch& look_at_touch(std::uint32_t product, const kavo::client::ReceivedBook::Book& book);
    std::string fresh_id();
    std::string id_for_order();
    unsigned life();

    Settings settings_;
    const MarketData& market_;
    OrderKeeper& keeper_;
    OrderEntry& entry_;
    std::map<std::uint32_t, Touch> touch_;  // by product: the last one that had two sides
    std::map<std::string, Then> plans_;     // by client order id
    std::set<const Order*> topped_up_;      // that have been replaced when a part of them had executed
    unsigned entered_ = 0;
    unsigned life_ = 0;  // of this user; 0 before it is known
    unsigned ids_ = 0;
    std::uint64_t next_step_ms_ = 0;
};

}  // namespace trading
