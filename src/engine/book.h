// One product's limit order book: orders in levels, best price first, first come first served within a level.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "engine/outbound.h"

namespace kavo {

struct Level;

// A live order. All that is known about it stands here, its places in the queue of its level and among its owner's
// orders included; who finds it in another way keeps nothing but a pointer or its slot.
struct alignas(64) Order {
    // The first cache line is all that the book needs, of this order and of its neighbours.
    meo::ClientOrderId client_order_id;
    Level* level = nullptr;   // while it rests
    Order* ahead = nullptr;   // the one served before it at its level
    Order* behind = nullptr;  // the one served after it
    Price price = 0;          // 0 is no price, except where an absurd limit has wrapped to it
    std::uint32_t leaves = 0;
    std::uint32_t slot = 0;  // where its record lies in the pool
    bool buy = false;

    // The second is for the reports, and for the owner's departure.
    meo::TimeInForce tif = meo::TimeInForce::day;
    meo::OrderType order_type = meo::OrderType::limit;
    std::uint64_t id = 0;
    std::uint32_t product_id = 0;
    std::uint32_t executed = 0;       // of a client's order, its life before a replace included
    std::uint32_t original_size = 0;  // of a client's order
    ClientHandle owner = no_client;
    meo::Mpid mpid;
    meo::OrderFlags flags;
    Order* earlier = nullptr;  // its owner's orders by ascending id
    Order* later = nullptr;

    bool has_owner() const { return owner != no_client; }
    char side() const { return buy ? 'B' : 'S'; }
};

// The orders resting at one price. Never empty.
struct Level {
    Price price = 0;
    std::uint64_t total = 0;  // sum of the leaves
    Order* first = nullptr;
    Order* last = nullptr;
};

// The levels of one side, keyed so that the best price always comes first: an ask by its price, a bid by the complement
// of it. What is true of one side then reads the same for the other.
class BookSide {
public:
    using Rank = std::uint32_t;  // the smaller, the better
    using Levels = std::map<Rank, Level>;

    explicit BookSide(bool buy) : buy_(buy) {}
    BookSide(BookSide&&) = default;  // a copy's orders would lie on the levels of the original
    BookSide& operator=(BookSide&&) = default;

    // Puts the order last in the queue of its price.
    void add(Order& order);
    // Takes a resting order off its level, and an empty level off the side.
    void remove(Order& order);
    // Takes `quantity`, less than its leaves, off a resting order; it keeps its place.
    void reduce(Order& order, std::uint32_t quantity);

    // The best level; nothing when the side is empty.
    const Level* best() const { return levels_.empty() ? nullptr : &levels_.begin()->second; }
    // True when an incoming order of the other side that goes as far as `limit` would trade here at once. A best level
    // at price 0, which only a quote near zero or a limit that wrapped can make, trades with nobody.
    bool crossed_by(Price limit) const;
    // True when so much rests at prices that `limit` reaches.
    bool holds(std::uint64_t quantity, Price limit) const;

    const Levels& levels() const { return levels_; }

private:
    static constexpr std::size_t recent_levels = 32;

    Rank rank(Price price) const { return buy_ ? ~price : price; }
    // The level at this price, a new one when nothing rests there.
    Level& level_at(Price price);
    // A direct-mapped cache over levels_, keyed by the cents of a price: most orders are spared the search.
    Level*& recent(Price price) { return recent_[price / price_cent % recent_levels]; }

    bool buy_;
    std::uint64_t total_ = 0;  // of all levels
    Levels levels_;
    std::array<Level*, recent_levels> recent_{};
};

struct Product {
    std::string symbol;
    std::uint32_t id = 0;  // 1-based position in the symbol list; "secid" on the feed
    char listing_market = 'Q';
    double reference = 0;  // currency units: where the synthetic market thinks the price is
    BookSide bids{true};
    BookSide asks{false};
    std::vector<Order*> synthetic;  // the synthetic market's resting orders, by ascending id
    Price last = 0;                 // price of the last trade
    std::uint64_t volume = 0;       // shares taken from resting orders

    // A table, because a branch would be mispredicted for every other order, and late: when `buy` comes from memory.
    BookSide& side(bool buy) {
        static constexpr BookSide Product::*sides[] = {&Product::asks, &Product::bids};
        return this->*sides[buy];
    }
};

}  // namespace kavo
