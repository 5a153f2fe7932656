// A second statement of the venue, slow and literal: maps and queues as one would describe them on paper, no pooling,
// no running totals, no shared tables. It says what the engine must do without knowing how the engine does it, and is
// compared with it message by message.
//
// Requests and answers are raw bytes. Time is set by the test and stands still while an operation runs. Whatever an
// operation brings about beyond its answers is appended to `outbox`, `feed`, `order_truth` and `book_truth`, which the
// test reads and may clear; the feed's sequence is counted apart, so clearing never renumbers anything.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "model/literal_records.h"
#include "model/literal_wire.h"

namespace kavo::model {

struct Symbol {
    std::string name;
    double reference = 100.0;
};

struct Settings {
    std::vector<Symbol> symbols = {{"AAPL", 190.00}, {"MSFT", 410.00}, {"SPY", 520.00}};
    std::uint8_t session = 1;
    bool acod = false;
    std::uint32_t max_order_size = 25000;
    std::uint64_t seed = 42;
    double step_bps = 0.8;
    double touch_hit = 0.15;
};

struct Outbound {
    int client = 0;
    Bytes message;
    bool operator==(const Outbound&) const = default;
};

using Answers = std::vector<Bytes>;

// From the wire's millionths to ten-thousandths, of which 32 bits are kept.
inline std::uint32_t book_price(std::uint64_t wire_price) {
    return static_cast<std::uint32_t>(wire_price / 100);
}

// A scripted fault fires on every multiple of `every`, which uses up one of `next` as well, and otherwise while any of
// `next` is left.
bool fault_fires(std::uint64_t count, std::uint32_t every, std::uint32_t& next);

class LiteralVenue {
public:
    explicit LiteralVenue(const Settings& settings);

    // The opening messages of the feed, then forty seeding quotes for each product.
    void start_of_day();
    // What a user receives on the very first login.
    Answers start_of_session() const;

    // Requests of a client. Nothing is returned when the bytes are not such a request at all.
    std::optional<Answers> new_order(int client, const Bytes& message);
    std::optional<Answers> modify(int client, const Bytes& message);
    std::optional<Answers> cancel(int client, const Bytes& message);

    void client_dropped(int client);
    void unsolicited_cancels_due();
    void tick();

    // Levels of one side, best first, each with the shares open at its price.
    std::vector<Level> levels(const Product& product, bool buy) const;

    // Time, set by the test.
    std::uint64_t wall_ns = 0;
    std::uint64_t steady_ms = 0;

    // The synthetic market's settings.
    bool paused = false;
    double step_bps;
    double touch_hit;

    // Scripted faults.
    std::uint32_t reject_every = 0, reject_next = 0;
    std::uint32_t partial_fill_every = 0, partial_next = 0;
    std::uint32_t fill_on_cancel_every = 0, fill_on_cancel_next = 0;
    std::uint32_t unsolicited_cancel_every = 0, unsolicited_cancel_next = 0;
    std::uint32_t replace_reject_every = 0, replace_reject_next = 0;

    // Counters that the bench reports ...
    std::uint64_t orders = 0, accepts = 0, fills = 0, partials = 0, cancels = 0, replaces = 0, rejects = 0;
    std::uint64_t replace_rejects = 0, unsolicited_cancels = 0, race_fills = 0, late_cancels = 0, stale_cancels = 0;
    // ... and those that only drive a fault or are kept for nobody.
    std::uint64_t partial_candidates = 0, cancel_requests = 0, modify_requests = 0, disconnect_cancels = 0;

    // What happened.
    std::vector<Outbound> outbox;
    std::vector<Bytes> feed;
    std::uint64_t feed_sequence = 0;  // number of the last feed message
    std::vector<std::string> order_truth;
    std::vector<std::string> book_truth;

    // The state itself.
    std::vector<Product> products;
    std::map<std::uint64_t, Order> live_orders;
    std::unordered_map<std::string, std::uint64_t> live_ids;
    std::unordered_map<std::string, std::uint32_t> executed;
    std::unordered_map<std::string, std::uint32_t> original_size;
    std::unordered_map<std::string, std::uint64_t> closed_ids;  // steady milliseconds of the end
    struct PendingCancel {
        std::string client_order_id;
        std::uint64_t due_ms = 0;
    };
    std::vector<PendingCancel> pending_cancels;
    std::uint64_t next_order_id = 1000;
    std::uint64_t next_match_number = 1;
    std::uint64_t next_execution_id = 1;

private:
    struct Truth {
        std::string_view event = {};
        std::string client_order_id = {};
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
    enum class Direction { random, buy, sell };

    // New orders.
    char reject_reason(const NewOrder& request) const;
    bool price_is_valid(const NewOrder& request) const;
    void accept(int client, const NewOrder& request, Answers& answers);
    bool is_cancelled_unmatched(const Order& order, Answers& answers);
    void settle_remainder(Order& order, Answers& answers);
    void come_to_rest(const Order& order, Answers& answers);
    void schedule_unsolicited_cancel(const Order& order);
    std::uint64_t reachable_shares(const Order& order) const;

    // Replaces and cancels.
    Order* find_own_order(int client, const std::string& client_order_id);
    void refuse_replace(const Modify& request, const Order* order, char reason, std::string_view text,
                        Answers& answers);
    char replace_reject_reason(const Modify& request, const Order& order) const;
    void close_by_replace(const Modify& request, std::uint64_t order_id, Answers& answers);
    void replace(const Modify& request, std::uint64_t order_id, Answers& answers);
    void match_replaced(Order order, Answers& answers);
    void lose_race(int client, const Cancel& request, std::uint64_t order_id, Answers& answers);
    void refuse_unknown_cancel(const Cancel& request, Answers& answers);
    Bytes system_cancel(const Order& order, std::uint32_t quantity, char reason, std::string_view text);
    void cancel_for_owner(std::uint64_t order_id, char reason, std::string_view text);

    // Books.
    const Product& product_of(const Order& order) const { return products.at(order.product_id - 1); }
    Product& product_of(const Order& order) { return products.at(order.product_id - 1); }
    bool reaches_touch(const Order& order) const;
    void match(Order& incoming, Answers* answers);
    void fill_resting(std::uint64_t order_id, std::uint32_t quantity, bool partial_fills_allowed);
    std::uint32_t cut_by_partial_fill_fault(const Order& order, std::uint32_t quantity);
    void report_maker_fill(const Order& order, const Fill& fill);
    void withdraw(std::uint64_t order_id);
    void remove(std::uint64_t order_id);
    void put_on_level(const Order& order);
    void take_off_level(const Order& order);
    void add_to_book(const Order& order);
    void end_client_order_id(const std::string& client_order_id);
    void record_close(const std::string& client_order_id);

    // What the outside is told.
    void publish(const Bytes& message);
    void book_changed(const Product& product);
    std::string book_line(const Product& product) const;
    void write_truth(const Truth& truth);
    void write_order_truth(std::string_view event, const Order& order, const Truth& numbers);

    // The synthetic market.
    double draw_uniform();
    std::uint64_t draw_below(std::uint64_t limit);
    double draw_normal();
    std::vector<std::uint64_t> synthetic_orders(const Product& product) const;
    void tick_product(Product& product);
    void try_withdrawal(const Product& product, std::int64_t mid);
    void hit_touch(const Product& product);
    void place_quote(std::uint32_t product_id, std::int64_t mid, Direction direction);

    std::uint8_t session_;
    bool acod_;
    std::uint32_t max_order_size_;
    std::uint32_t last_feed_second_ = 0;
    std::mt19937_64 generator_;
    std::optional<double> kept_deviate_;
};

}  // namespace kavo::model
