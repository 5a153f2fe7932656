// The matching engine: the books, the orders, and everything that can happen to them.
#pragma once

#include <cstdint>
#include <deque>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "app/bench.h"
#include "common/clock.h"
#include "engine/closed_ids.h"
#include "engine/draws.h"
#include "engine/live_ids.h"
#include "engine/open_orders.h"
#include "engine/order_pool.h"
#include "feed/dom_feed.h"

namespace kavo {

struct EngineSettings {
    double step_bps = 0.8;    // scale of the reference's random steps, basis points
    double touch_hit = 0.15;  // how likely a synthetic order takes liquidity in a tick, 0..1
    bool quiet = false;       // kept for the record: the engine's commentary is never silenced
    std::uint8_t session = 1;
    bool acod = false;  // cancel a client's open orders when its connection goes away
    std::uint32_t max_order_size = 25'000;
};

// One line of the order truth log. Texts are written as they are.
struct OrderEvent {
    std::string_view event;
    std::uint64_t timestamp;  // the one on the responses that tell of the event
    std::string_view client_order_id;
    std::uint64_t order_id = 0;  // 0 when none was assigned
    std::string_view symbol = {};
    char side = ' ';  // 'B', 'S', or a blank when there is none
    std::uint32_t quantity = 0;
    Price price = 0;
    std::uint32_t executed = 0;
    std::uint32_t leaves = 0;
    std::uint32_t last_quantity = 0;
    std::string_view text = {};
    std::string_view reference = {};  // the key is left out when empty
};

enum class QuoteSide { random, buy, sell };

// Requests are answered at once: the answers are appended to `answers`. What other clients must hear, and what happens
// without a request, goes to `outbox`. Every change of a book is published on the feed, and followed by one line of
// book truth. No request can fail, throw or end a session.
//
// Handlers read the wall clock once, and stamp every response and every line of order truth with it, so that each line
// is found beside its response; each feed message takes a reading of its own.
class Engine {
public:
    bool paused = false;  // the synthetic market stands still

    Engine(DomFeed& feed, Generator& generator, const EngineSettings& settings, Bench& bench, const Clock& clock);
    Engine(const Engine&) = delete;  // the feed's state builders point here
    Engine& operator=(const Engine&) = delete;

    // Before the day starts: the product gets the next id. `reference` is in currency units.
    void add_product(std::string_view symbol, double reference);
    // Publishes the start-of-day messages, seeds the books and flushes the feed.
    void start_day();

    // What a user hears first of all, once in a lifetime: the session, then every product.
    void start_session(ClientHandle client, OutboundMessages& answers) const;

    void new_order(ClientHandle client, const meo::NewOrderRequest& request, OutboundMessages& answers);
    void modify(ClientHandle client, const meo::ModifyRequest& request, OutboundMessages& answers);
    void cancel(ClientHandle client, const meo::CancelRequest& request, OutboundMessages& answers);

    // The engine's part when a connection is dropped: cancels the client's orders, or says that they stay.
    void client_dropped(ClientHandle client, const std::string& username);

    // One step of the synthetic market. Flushes the feed.
    void tick();

    // Carries out the scripted unsolicited cancels that have fallen due.
    void cancel_unsolicited();

    // The orders of all books.
    std::size_t resting_orders() const { return resting_orders_; }
    const std::vector<Product>& products() const { return products_; }

    OutboundMessages outbox;
    std::ofstream book_truth;  // one JSON line for each change of a book; not open: none

private:
    struct PendingCancel {
        meo::ClientOrderId client_order_id;
        std::uint64_t due_ms;
    };
    static constexpr std::uint64_t unsolicited_cancel_delay_ms = 300;
    static constexpr std::uint64_t late_limit_ms = 2000;  // a request for an order that ended longer ago lost no race
    static constexpr std::uint64_t first_order_id = 1000;
    static constexpr unsigned seeding_quotes = 40;

    // One meeting of a resting and an incoming order, as one of them is told of it.
    struct Trade {
        std::uint64_t now_ns;
        std::uint64_t match_number;
        Price price;
        std::uint32_t quantity;
        meo::Liquidity liquidity;
    };

    Product& product_of(const Order& order) { return products_[order.product_id - 1]; }
    const Product& product_of(const Order& order) const { return products_[order.product_id - 1]; }
    const Product* find_product(std::uint32_t product_id) const;  // nothing for an id that no product has
    // The live order of this client with this id; nothing for another client's.
    Order* find_own(ClientHandle client, const meo::ClientOrderId& id);

    // new_order.cpp
    meo::NewOrderReason check(const meo::NewOrderRequest& request, std::uint64_t now_ns) const;
    bool scripted_to_reject(const meo::NewOrderRequest& request, std::uint64_t now_ns);
    Order& accept(ClientHandle client, const meo::NewOrderRequest& request, std::uint64_t now_ns,
                  OutboundMessages& answers);
    bool cancelled_before_matching(Order& order, std::uint64_t now_ns, OutboundMessages& answers);
    void rest_remainder(Order& order, std::uint64_t now_ns, OutboundMessages& answers);
    void schedule_unsolicited_cancel(const Order& order);

    // matching.cpp
    static Price reach(const Order& order);
    void match(Product& product, Order& incoming, std::uint64_t now_ns, OutboundMessages& answers);

    // fills.cpp
    enum class PartialFills { allowed, never };
    std::uint64_t fill_resting(Order& order, std::uint32_t quantity, std::uint64_t now_ns, PartialFills faults);
    std::uint32_t cut_by_fault(const Order& order, std::uint32_t quantity, PartialFills faults);
    void report_fill(Order& order, const Trade& trade, std::uint32_t leaves, OutboundMessages& reports);
    void withdraw_resting(Order& order);
    void rest(Order& order);
    void take_off_book(Order& order);
    void end_resting(Order& order);
    void end(Order& order);
    void record_close(const meo::ClientOrderId& id);
    bool closed_lately(const meo::ClientOrderId& id) const;

    // modify.cpp
    meo::ModifyReason check(const meo::ModifyRequest& request, const Order& order) const;
    bool scripted_to_reject(const meo::ModifyRequest& request);
    void record_missed_replace(const meo::ModifyRequest& request, std::uint64_t now_ns);
    void replace(const meo::ModifyRequest& request, Order& order);
    void match_replaced(Order& order, std::uint64_t now_ns, OutboundMessages& answers);
    void write_replace_truth(const meo::ModifyRequest& request, const Order& order, std::uint64_t now_ns);
    void write_replace_reject(const meo::ModifyRequest& request, const Order* order, std::string_view text,
                              std::uint64_t now_ns);

    // cancel.cpp
    void lose_race(ClientHandle client, Order& order, std::uint64_t now_ns, OutboundMessages& answers);
    void record_missed_cancel(const meo::CancelRequest& request, std::uint64_t now_ns);
    void cancel_resting(Order& order, meo::SystemCancelReason reason, std::string_view text, std::uint64_t now_ns,
                        OutboundMessages& answers);
    void system_cancel(const Order& order, std::uint32_t quantity, meo::SystemCancelReason reason,
                       std::string_view text, std::uint64_t now_ns, OutboundMessages& answers);

    // synthetic_market.cpp
    void tick(Product& product, NormalDraws& normal, std::uint64_t now_ns);
    void withdraw_one(Product& product, std::int64_t mid);
    void place_quote(Product& product, std::int64_t mid, QuoteSide wanted, std::uint64_t now_ns);
    void hit_touch(Product& product, std::uint64_t now_ns);

    // market_data.cpp
    void publish_definitions();
    void publish_added(const Order& order);
    void publish_modified(const Order& order, bool lost_priority);
    void publish_deleted(const Order& order);
    void publish_executed(const Order& order, const Trade& trade);
    void install_state_builders();

    // order_truth.cpp
    OrderEvent event_of(std::string_view event, const Order& order, std::uint64_t now_ns) const;
    void write_order_truth(const OrderEvent& event);

    // book_truth.cpp
    void write_book_truth(const Product& product);

    DomFeed& feed_;
    Generator& generator_;
    EngineSettings settings_;
    Bench& bench_;
    const Clock& clock_;

    std::vector<Product> products_;
    OrderPool orders_;
    LiveIds live_ids_{orders_};
    OpenOrders open_orders_;  // of the clients
    ClosedIds closed_ids_;
    std::deque<PendingCancel> pending_cancels_;  // the next one that falls due is in front
    std::size_t resting_orders_ = 0;
    std::uint64_t next_order_id_ = first_order_id;
    std::uint64_t next_match_number_ = 1;
    std::uint64_t next_execution_id_ = 1;
    std::string line_;  // of a truth log, while it is put together
};

}  // namespace kavo
