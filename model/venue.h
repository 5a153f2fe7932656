// A second statement of the venue, slow and literal: maps and queues as one would describe them on paper, no pooling,
// no running totals, no shared tables. It says what the simulator must do without knowing how it does it, and whoever
// judges the simulator compares the two message by message.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "model/bench.h"
#include "model/books.h"
#include "model/draws.h"
#include "model/wire.h"

namespace kavo::model {

struct Settings {
    std::vector<Symbol> symbols = {{"AAPL", 190.00}, {"MSFT", 410.00}, {"SPY", 520.00}};
    std::uint8_t session = 1;
    bool acod = false;  // cancel a client's open orders when its connection goes away
    std::uint32_t max_order_size = 25000;
    std::uint64_t seed = 42;
    double step_bps = 0.8;
    double touch_hit = 0.15;
    Limits limits = {};
};

// What surrounds the venue: its clocks, its feed, and those who write down what it says. Time may go by while a request
// is handled, so each clock is asked at the very moment at which the venue reads it.
struct World {
    std::function<std::uint64_t()> steady_ms;
    std::function<std::uint64_t()> wall_ns;
    // The feed stamps a message, and gives it its number: that of the System Time in front is passed over.
    std::function<std::uint64_t()> stamp_ns;
    std::function<std::uint64_t(const Bytes& message)> publish;
    // Lines, without their ends: of the two truth logs, and of the commentary on standard error.
    std::function<void(const std::string& line)> order_truth;
    std::function<void(const std::string& line)> book_truth;
    std::function<void(const std::string& line)> commentary;
};

using Answers = std::vector<Bytes>;

class Venue {
public:
    Venue(const Settings& settings, World world);

    // The opening messages of the feed, then forty seeding quotes for each product.
    void start_of_day();
    // What a user hears first of all, once in a lifetime.
    Answers start_of_session() const;
    // A request of a client. Nothing is returned when the bytes are none.
    std::optional<Answers> handle(int client, const Bytes& message);
    void client_dropped(int client, const std::string& username);
    void cancel_unsolicited();
    void tick();

    // The state that a refresh gives out, as feed messages.
    std::vector<Bytes> definitions() const;
    std::vector<Bytes> trading_statuses() const;
    std::vector<Bytes> resting_orders() const;

    bool paused = false;  // the synthetic market stands still
    Bench bench;
    Books books;
    std::unordered_map<std::string, std::uint64_t> live_ids;  // order ids, by the clients' own

    struct Outbound {
        int client = 0;
        Bytes message;
        bool operator==(const Outbound&) const = default;
    };
    // What clients must hear without having asked, in this order. Whoever delivers it takes it from here.
    std::vector<Outbound> outbox;

private:
    // A line of the order truth log, but for its time.
    struct Truth {
        std::string_view event;
        std::string client_order_id;
        std::uint64_t order_id = 0;
        std::string symbol = {};
        char side = ' ';
        std::uint32_t quantity = 0;
        std::uint32_t price = 0;
        std::uint32_t executed = 0;
        std::uint32_t leaves = 0;
        std::uint32_t last_quantity = 0;
        std::string_view text = {};
        std::string reference = {};
    };
    struct PendingCancel {
        std::string client_order_id;
        std::uint64_t due_ms = 0;
    };
    // Why a replace is refused, on the wire and in the truth log; none of the latter leaves no line.
    struct Refusal {
        char reason = ' ';
        std::string_view text = {};
    };
    enum class Direction { random, buy, sell };

    // venue.cpp
    const Order* find_own(int client, const std::string& client_order_id) const;
    void close(const std::string& client_order_id);
    bool closed_lately(const std::string& client_order_id) const;
    void publish(const Bytes& message) { last_number_ = world_.publish(message); }
    void book_changed(std::uint32_t product_id);
    void come_to_rest(const Order& order);
    void withdraw(std::uint64_t order_id);
    Truth truth_of(std::string_view event, const Order& order) const;
    void write(const Truth& truth);

    // new_orders.cpp
    void new_order(int client, const NewOrder& request, Answers& answers);
    char reject_reason(const NewOrder& request) const;
    void write_scripted_reject(const NewOrder& request);
    Order accept(int client, const NewOrder& request, Answers& answers);
    bool ends_before_matching(const Order& order, Answers& answers);
    void rest(const Order& order, Answers& answers);

    // replaces.cpp
    void replace(int client, const Replace& request, Answers& answers);
    Refusal refusal_of(const Replace& request, const Order* order);
    void replace(const Replace& request, Order order, Answers& answers);
    void match_replaced(Order order, Answers& answers);

    // cancels.cpp
    void cancel(int client, const Cancel& request, Answers& answers);
    void lose_race(int client, const Order& order, Answers& answers);
    void record_missed_cancel(const Cancel& request);
    Bytes system_cancel(const Order& order, std::uint32_t leaves, char reason, std::string_view text);
    Bytes cancel_resting(const Order& order, char reason, std::string_view text);

    // trades.cpp
    bool reaches_touch(const Order& order) const;
    void match(Order& incoming, Answers& answers);
    void fill_resting(Order maker, std::uint32_t quantity, bool may_be_cut);
    std::uint32_t cut_by_fault(const Order& order, std::uint32_t quantity);
    Bytes report_fill(const Order& order, const Fill& fill);

    // market.cpp
    void tick(Product& product);
    std::vector<std::uint64_t> synthetic_orders(std::uint32_t product_id) const;
    void try_withdrawal(std::uint32_t product_id, std::int64_t mid);
    void place_quote(std::uint32_t product_id, std::int64_t mid, Direction direction);
    void hit_touch(std::uint32_t product_id);

    Settings settings_;
    World world_;
    Draws draws_;
    std::unordered_map<std::string, std::uint64_t> closed_ms_;  // when orders ended, by the clients' ids
    std::deque<PendingCancel> pending_cancels_;                 // the next one that falls due is in front
    std::uint64_t next_order_id_ = 1000;
    std::uint64_t next_match_number_ = 1;
    std::uint64_t next_execution_id_ = 1;
    std::uint64_t last_number_ = 0;  // of a feed message
    std::uint64_t now_ns_ = 0;       // when the present request began: what its answers and its truth show
};

}  // namespace kavo::model
