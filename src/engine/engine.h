// The matching engine: every request, what it is answered, and what happens to orders without one.
#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>

#include "app/bench.h"
#include "common/clock.h"
#include "common/commentary.h"
#include "engine/books.h"
#include "engine/closed_ids.h"
#include "engine/live_ids.h"
#include "engine/open_orders.h"
#include "engine/order_truth.h"
#include "engine/outbound.h"
#include "engine/settings.h"
#include "engine/synthetic_market.h"

namespace kavo {

// Requests are answered at once: the answers are appended to `answers`. What other clients must hear, and what happens
// without a request, goes to `outbox`. No request can fail, throw or end a session.
//
// Handlers read the wall clock once, and stamp every response and every line of order truth with it, so that each line
// is found beside its response; each feed message takes a reading of its own.
class Engine {
public:
    Engine(DomFeed& feed, Generator& generator, const EngineSettings& settings, Bench& bench, const Clock& clock,
           const Commentary& commentary);

    // Publishes the start-of-day messages, seeds the books and flushes the feed.
    void start_day();

    // What a user hears first of all, once in a lifetime: the session, then every product.
    void start_session(ClientHandle client, OutboundMessages& answers) const;

    void new_order(ClientHandle client, const meo::NewOrderRequest& request, OutboundMessages& answers);
    void replace(ClientHandle client, const meo::ReplaceRequest& request, OutboundMessages& answers);
    void cancel(ClientHandle client, const meo::CancelRequest& request, OutboundMessages& answers);

    // The engine's part when a connection is dropped: cancels the client's orders, or says that they stay.
    void client_dropped(ClientHandle client, const std::string& username);

    // One step of the synthetic market. Flushes the feed.
    void tick();
    // The same once in every interval, counted from the start of the day.
    void tick_when_due(std::uint64_t now_ms);

    // Carries out the scripted unsolicited cancels that have fallen due.
    void cancel_unsolicited();

    Books books;
    SyntheticMarket market;
    OrderTruth order_truth;
    OutboundMessages outbox;
    ClosedIds closed_ids;

private:
    struct PendingCancel {
        meo::ClientOrderId client_order_id;
        std::uint64_t due_ms;
    };
    // One request, or one thing that happens by itself: what it brings about carries one stamp, and is told in one
    // place.
    struct Event {
        std::uint64_t now_ns;
        OutboundMessages& answers;
    };
    static constexpr std::uint64_t unsolicited_cancel_delay_ms = 300;
    static constexpr std::uint64_t late_limit_ms = 2000;  // a request for an order that ended longer ago lost no race

    // The live order of this client with this id; nothing for another client's.
    Order* find_own(ClientHandle client, const meo::ClientOrderId& id);

    // new_order.cpp
    meo::NewOrderReason check(const meo::NewOrderRequest& request, std::uint64_t now_ns) const;
    bool scripted_to_reject(const meo::NewOrderRequest& request, std::uint64_t now_ns);
    Order& accept(ClientHandle client, const meo::NewOrderRequest& request, Event event);
    bool cancelled_before_matching(Order& order, Event event);
    void rest_remainder(Order& order, Event event);
    void schedule_unsolicited_cancel(const Order& order);

    // matching.cpp
    enum class PartialFills { allowed, never };
    static Price reach(const Order& order);
    void match(Order& incoming, Event event);
    Trade fill_resting(Order& order, std::uint32_t quantity, std::uint64_t now_ns, PartialFills faults);
    std::uint32_t cut_by_fault(const Order& order, std::uint32_t quantity, PartialFills faults);
    void report_fill(Order& order, const Trade& trade, meo::Liquidity liquidity, Event event);

    // replace.cpp
    meo::ReplaceReason check(const meo::ReplaceRequest& request, const Order& order) const;
    bool scripted_to_reject(const meo::ReplaceRequest& request);
    void record_missed_replace(const meo::ReplaceRequest& request, std::uint64_t now_ns);
    void apply(const meo::ReplaceRequest& request, Order& order);
    void match_replaced(Order& order, Event event);
    void write_replace_truth(const meo::ReplaceRequest& request, const Order& order, std::uint64_t now_ns);
    void write_replace_reject(const meo::ReplaceRequest& request, const Order* order, std::string_view text,
                              std::uint64_t now_ns);

    // cancel.cpp
    void lose_race(ClientHandle client, Order& order, Event event);
    void record_missed_cancel(const meo::CancelRequest& request, std::uint64_t now_ns);
    void cancel_resting(Order& order, meo::SystemCancelReason reason, std::string_view text, Event event);
    void system_cancel(const Order& order, std::uint32_t quantity, meo::SystemCancelReason reason,
                       std::string_view text, Event event);
    void end(Order& order);
    void record_close(const meo::ClientOrderId& id);
    bool closed_lately(const meo::ClientOrderId& id) const;

    // market.cpp
    void tick(Product& product, NormalDraws& normal, std::uint64_t now_ns);
    void place_quote(Product& product, SyntheticMarket::QuoteSide side, std::uint64_t now_ns);
    void hit_touch(Product& product, std::uint64_t now_ns);

    EngineSettings settings_;
    Bench& bench_;
    const Clock& clock_;
    const Commentary& commentary_;

    LiveIds live_ids_;
    OpenOrders open_orders_;                     // of the clients
    std::deque<PendingCancel> pending_cancels_;  // the next one that falls due is in front
    std::uint64_t next_execution_id_ = 1;
    std::uint64_t last_tick_ms_;
};

}  // namespace kavo
