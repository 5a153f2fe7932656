// Orders under audit. Each request of a client is followed through the truth log, the feed and the book-change lines,
// which must agree with each other and with what the venue promises; what the client must have been told comes out.
//
// The auditor knows an order by what left the venue about it, and a book by what the feed has published.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "audit/audited_bench.h"
#include "audit/published_books.h"
#include "audit/witness.h"
#include "model/literal_wire.h"

namespace kavo::simulation {

class AuditedOrders {
public:
    AuditedOrders(Witness& witness, AuditedFeed& feed, PublishedBooks& books, AuditedBench& bench, const Plan& plan);

    using Answers = std::vector<Bytes>;
    struct Outbound {
        int client = 0;
        Bytes message;
    };

    void start_day();
    void tick();
    // False when the message is no request at all.
    bool handle(int client, const Bytes& message, Answers& answers);
    void client_dropped(int client, const std::string& username);
    void cancel_unsolicited();

    // The state that a refresh gives out.
    std::vector<Bytes> resting_orders() const;
    std::vector<Bytes> definitions() const;
    std::vector<Bytes> trading_statuses() const;
    model::Product product(std::uint32_t product_id) const;

    // What clients must hear without having asked, in this order.
    std::vector<Outbound> outbox;

private:
    struct ClientOrder {
        model::Order order;
        std::uint32_t executed = 0;
        std::uint32_t size = 0;  // as the client asked for it
    };
    // What meets the book.
    struct Taker {
        std::uint32_t product_id = 0;
        bool buy = false;
        std::uint32_t limit = 0;  // 0 goes anywhere
    };
    struct Pending {
        std::string id;
        std::uint64_t due_ms = 0;
    };
    // A line of the order truth log, but for its time.
    struct Truth {
        std::string_view event;
        std::string id;
        std::uint64_t order_id = 0;
        std::string symbol;
        char side = ' ';
        std::uint32_t quantity = 0;
        std::uint32_t price = 0;
        std::uint32_t executed = 0;
        std::uint32_t leaves = 0;
        std::uint32_t last = 0;
        std::string text;
        std::string reference;
    };

    // new_orders.cpp
    void new_order(int client, const model::NewOrder& request, Answers& answers);
    char reject_reason(const model::NewOrder& request) const;
    bool scripted_reject(const model::NewOrder& request);
    ClientOrder& accept(int client, const model::NewOrder& request, Answers& answers);
    bool ends_before_matching(ClientOrder& entered, Answers& answers);
    void rest(const ClientOrder& entered, Answers& answers);

    // replaces.cpp
    void modify(int client, const model::Modify& request, Answers& answers);
    char reject_reason(const model::Modify& request, const ClientOrder& order);
    void reject(const model::Modify& request, const ClientOrder& order, char reason, Answers& answers);
    void replace(const model::Modify& request, ClientOrder& order, Answers& answers);
    void match_replaced(ClientOrder& order, Answers& answers);

    // cancels.cpp
    void cancel(int client, const model::Cancel& request, Answers& answers);
    void lose_race(int client, ClientOrder& order, Answers& answers);
    void reject_late_or_stale(const model::Cancel& request);
    Bytes system_cancel(const ClientOrder& order, std::uint32_t leaves, char reason, const std::string& text);
    Bytes cancel_resting(ClientOrder& order, char reason, const std::string& text);

    // trades.cpp
    void match(ClientOrder& taker, Answers& answers);
    void fill_resting(std::uint64_t order_id, std::uint32_t quantity, bool partial_fills);
    std::uint32_t cut_by_fault(const ClientOrder& order, std::uint32_t quantity);
    Bytes report_fill(ClientOrder& order, const model::Fill& fill);
    void expect_change_line(std::uint32_t product_id);

    // synthetic_market.cpp
    void take_changes(std::uint32_t product_id);
    void take_quote(std::uint32_t product_id);
    void take_withdrawal(std::uint32_t product_id);
    void take_trade(std::uint32_t product_id);
    void take_order_id(std::uint64_t id);

    // ledger.cpp
    ClientOrder* find_own(int client, const std::string& id);
    bool is_live(const std::string& id) const { return live_ids_.contains(id); }
    void end(const ClientOrder& order);
    void close(const std::string& id) { closed_ms_[id] = witness_.now_ms(); }
    bool closed_lately(const std::string& id) const;
    Truth truth_of(std::string_view event, const ClientOrder& order) const;
    void expect_truth(const Truth& truth);
    void expect_uncrossed();

    Witness& witness_;
    AuditedFeed& feed_;
    PublishedBooks& books_;
    AuditedBench& bench_;
    const Plan& plan_;

    std::map<std::uint64_t, ClientOrder> orders_;  // live ones, by order id
    std::map<std::string, std::uint64_t> live_ids_;
    std::map<std::string, std::uint64_t> closed_ms_;
    std::vector<Pending> pending_;
    std::set<std::uint32_t> barred_;  // products whose best offer is, or has been, one at price 0
    // Order ids of quotes that never rest are not seen, so the next id is known between two bounds.
    std::uint64_t least_order_id_ = 1000;
    std::uint64_t most_order_id_ = 1000;
    std::uint64_t next_match_number_ = 1;
    std::uint64_t next_execution_id_ = 1;
    std::uint64_t request_ns_ = 0;  // when the present request began
};

}  // namespace kavo::simulation
