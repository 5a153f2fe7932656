#include "engine/book.h"

#include <gtest/gtest.h>

#include <deque>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace kavo {
namespace {

// One side of a book, with the orders that rest on it.
struct Side {
    explicit Side(bool buy_side) : buy(buy_side), side(buy_side) {}

    Order& add(std::uint64_t id, Price price, std::uint32_t leaves) {
        Order& order = orders.emplace_back();
        order.id = id;
        order.buy = buy;
        order.price = price;
        order.leaves = leaves;
        side.add(order);
        return order;
    }
    // Every level, best first, with the orders in their queue: "1900000: 1x100 2x50 | 1899900: 3x10".
    std::string levels() const {
        std::string list;
        for (const auto& [rank, level] : side.levels()) {
            if (!list.empty()) list += " | ";
            list += std::to_string(level.price) + ":";
            std::uint64_t total = 0;
            const Order* ahead = nullptr;
            for (const Order* order = level.first; order != nullptr; ahead = order, order = order->behind) {
                list += " " + std::to_string(order->id) + "x" + std::to_string(order->leaves);
                total += order->leaves;
                EXPECT_EQ(order->ahead, ahead);
                EXPECT_EQ(order->level, &level);
            }
            EXPECT_EQ(level.last, ahead);
            EXPECT_EQ(level.total, total);
        }
        return list;
    }

    bool buy;
    std::deque<Order> orders;
    BookSide side;
};

TEST(BookSide, IsEmptyAtFirst) {
    const Side bids(true);
    EXPECT_EQ(bids.side.best(), nullptr);
    EXPECT_FALSE(bids.side.crossed_by(0));
    EXPECT_FALSE(bids.side.crossed_by(0xFFFFFFFF));
    EXPECT_FALSE(bids.side.holds(1, 0));
    EXPECT_EQ(bids.levels(), "");
}

TEST(BookSide, OfBidsHasItsHighestPriceFirst) {
    Side bids(true);
    bids.add(1, 200, 10);
    bids.add(2, 300, 10);
    bids.add(3, 100, 10);
    EXPECT_EQ(bids.levels(), "300: 2x10 | 200: 1x10 | 100: 3x10");
    EXPECT_EQ(bids.side.best()->price, 300u);
}

TEST(BookSide, OfAsksHasItsLowestPriceFirst) {
    Side asks(false);
    asks.add(1, 200, 10);
    asks.add(2, 300, 10);
    asks.add(3, 100, 10);
    EXPECT_EQ(asks.levels(), "100: 3x10 | 200: 1x10 | 300: 2x10");
    EXPECT_EQ(asks.side.best()->price, 100u);
}

TEST(BookSide, OrdersPricesOverTheirWholeRange) {
    Side bids(true);
    Side asks(false);
    for (const Price price : {0u, 1u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
        bids.add(price, price, 1);
        asks.add(price, price, 1);
    }
    EXPECT_EQ(bids.levels(),
              "4294967295: 4294967295x1 | 2147483648: 2147483648x1 | 2147483647: 2147483647x1 | 1: 1x1 | 0: 0x1");
    EXPECT_EQ(asks.levels(),
              "0: 0x1 | 1: 1x1 | 2147483647: 2147483647x1 | 2147483648: 2147483648x1 | 4294967295: 4294967295x1");
}

TEST(BookSide, ServesOrdersOfOnePriceInTheOrderOfTheirArrival) {
    Side bids(true);
    bids.add(7, 100, 1);
    bids.add(3, 100, 2);
    bids.add(9, 100, 3);
    EXPECT_EQ(bids.levels(), "100: 7x1 3x2 9x3");
    EXPECT_EQ(bids.side.best()->first->id, 7u);
    EXPECT_EQ(bids.side.best()->last->id, 9u);
    EXPECT_EQ(bids.side.best()->total, 6u);
}

TEST(BookSide, ClosesTheQueueWhereAnOrderIsTakenOut) {
    Side bids(true);
    Order& first = bids.add(1, 100, 10);
    Order& second = bids.add(2, 100, 20);
    bids.add(3, 100, 30);
    Order& last = bids.add(4, 100, 40);
    bids.side.remove(second);
    EXPECT_EQ(bids.levels(), "100: 1x10 3x30 4x40");
    bids.side.remove(first);
    EXPECT_EQ(bids.levels(), "100: 3x30 4x40");
    bids.side.remove(last);
    EXPECT_EQ(bids.levels(), "100: 3x30");
}

TEST(BookSide, LosesALevelWithItsLastOrderAtOnce) {
    Side bids(true);
    Order& best = bids.add(1, 200, 10);
    Order& next = bids.add(2, 100, 10);
    bids.side.remove(best);
    EXPECT_EQ(bids.levels(), "100: 2x10");
    EXPECT_EQ(best.level, nullptr);
    bids.side.remove(next);
    EXPECT_EQ(bids.side.best(), nullptr);
    EXPECT_TRUE(bids.side.levels().empty());
}

TEST(BookSide, PutsAnOrderThatComesBackLast) {
    Side bids(true);
    Order& first = bids.add(1, 100, 10);
    bids.add(2, 100, 20);
    bids.side.remove(first);
    bids.side.add(first);
    EXPECT_EQ(bids.levels(), "100: 2x20 1x10");
}

TEST(BookSide, MovesAnOrderToItsNewPrice) {
    Side asks(false);
    Order& order = asks.add(1, 100, 10);
    asks.add(2, 90, 20);
    asks.side.remove(order);
    order.price = 90;
    order.leaves = 15;
    asks.side.add(order);
    EXPECT_EQ(asks.levels(), "90: 2x20 1x15");
}

TEST(BookSide, KeepsTheLevelOfAnOrderThatIsAloneAgain) {
    Side asks(false);
    Order& order = asks.add(1, 100, 10);
    asks.side.remove(order);
    asks.side.add(order);
    EXPECT_EQ(asks.levels(), "100: 1x10");
}

TEST(BookSide, TellsPricesApartWithinACentAndFarFromEachOther) {
    Side asks(false);
    asks.add(1, 10'000, 1);
    asks.add(2, 10'001, 2);
    Order& far = asks.add(3, 10'000 + 32 * price_cent, 3);
    asks.add(4, 10'000, 4);
    asks.side.remove(far);
    asks.add(5, 10'001, 5);
    asks.add(6, 10'000 + 32 * price_cent, 6);
    asks.add(7, 10'000 + 64 * price_cent, 7);
    EXPECT_EQ(asks.levels(), "10000: 1x1 4x4 | 10001: 2x2 5x5 | 13200: 6x6 | 16400: 7x7");
}

TEST(BookSide, LetsAReducedOrderKeepItsPlace) {
    Side bids(true);
    Order& first = bids.add(1, 100, 10);
    bids.add(2, 100, 20);
    bids.side.reduce(first, 4);
    EXPECT_EQ(bids.levels(), "100: 1x6 2x20");
    EXPECT_EQ(bids.side.best()->total, 26u);
    bids.side.reduce(first, 5);
    EXPECT_EQ(bids.levels(), "100: 1x1 2x20");
}

TEST(BookSide, OfBidsIsCrossedAtItsBestPriceAndBelow) {
    Side bids(true);
    bids.add(1, 200, 10);
    bids.add(2, 100, 10);
    EXPECT_FALSE(bids.side.crossed_by(201));
    EXPECT_TRUE(bids.side.crossed_by(200));
    EXPECT_TRUE(bids.side.crossed_by(150));
    EXPECT_TRUE(bids.side.crossed_by(0));
}

TEST(BookSide, OfAsksIsCrossedAtItsBestPriceAndAbove) {
    Side asks(false);
    asks.add(1, 200, 10);
    asks.add(2, 300, 10);
    EXPECT_FALSE(asks.side.crossed_by(199));
    EXPECT_TRUE(asks.side.crossed_by(200));
    EXPECT_TRUE(asks.side.crossed_by(250));
    EXPECT_TRUE(asks.side.crossed_by(0xFFFFFFFF));
}

TEST(BookSide, IsCrossedByNobodyWhileItsBestPriceIsZero) {
    Side asks(false);
    asks.add(1, 0, 10);
    asks.add(2, 100, 10);
    EXPECT_FALSE(asks.side.crossed_by(0));
    EXPECT_FALSE(asks.side.crossed_by(0xFFFFFFFF));

    Side bids(true);
    bids.add(1, 0, 10);
    EXPECT_FALSE(bids.side.crossed_by(0));
    bids.add(2, 100, 10);
    EXPECT_TRUE(bids.side.crossed_by(0));
}

TEST(BookSide, HoldsWhatRestsAtPricesThatALimitReaches) {
    Side asks(false);
    asks.add(1, 100, 10);
    asks.add(2, 100, 5);
    asks.add(3, 200, 20);
    asks.add(4, 300, 40);
    EXPECT_TRUE(asks.side.holds(0, 99));
    EXPECT_FALSE(asks.side.holds(1, 99));
    EXPECT_TRUE(asks.side.holds(1, 100));
    EXPECT_TRUE(asks.side.holds(15, 100));
    EXPECT_FALSE(asks.side.holds(16, 100));
    EXPECT_TRUE(asks.side.holds(15, 199));
    EXPECT_FALSE(asks.side.holds(16, 199));
    EXPECT_TRUE(asks.side.holds(35, 200));
    EXPECT_FALSE(asks.side.holds(36, 299));
    EXPECT_TRUE(asks.side.holds(75, 0xFFFFFFFF));
    EXPECT_FALSE(asks.side.holds(76, 0xFFFFFFFF));

    Side bids(true);
    bids.add(1, 300, 10);
    bids.add(2, 200, 20);
    EXPECT_FALSE(bids.side.holds(1, 301));
    EXPECT_TRUE(bids.side.holds(10, 300));
    EXPECT_FALSE(bids.side.holds(11, 201));
    EXPECT_TRUE(bids.side.holds(30, 0));
    EXPECT_FALSE(bids.side.holds(31, 0));
}

TEST(BookSide, HoldsMoreThanThirtyTwoBits) {
    Side asks(false);
    for (std::uint64_t id = 1; id <= 3; ++id) asks.add(id, 100, 0xFFFFFFFF);
    EXPECT_EQ(asks.side.best()->total, 3 * 0xFFFFFFFFull);
    asks.add(4, 200, 0xFFFFFFFF);
    EXPECT_TRUE(asks.side.holds(4 * 0xFFFFFFFFull, 200));
    EXPECT_FALSE(asks.side.holds(4 * 0xFFFFFFFFull + 1, 200));
}

TEST(BookSide, HoldsWhatIsLeftAfterEveryKindOfChange) {
    Side bids(true);
    Order& first = bids.add(1, 100, 10);
    Order& second = bids.add(2, 90, 20);
    const auto expect_exactly = [&](std::uint64_t quantity) {
        EXPECT_TRUE(bids.side.holds(quantity, 0)) << quantity;
        EXPECT_FALSE(bids.side.holds(quantity + 1, 0)) << quantity;
    };
    expect_exactly(30);
    bids.side.reduce(second, 15);
    expect_exactly(15);
    bids.side.remove(first);
    expect_exactly(5);
    first.leaves = 7;
    bids.side.add(first);
    expect_exactly(12);
    bids.side.remove(first);
    bids.side.remove(second);
    expect_exactly(0);
}

// The same book as plain lists: prices with their ids in order of arrival.
using PlainLists = std::map<Price, std::deque<std::pair<std::uint64_t, std::uint32_t>>>;

std::string listed(const PlainLists& prices, bool buy) {
    std::string list;
    const auto add_level = [&list](Price price, const auto& queue) {
        if (!list.empty()) list += " | ";
        list += std::to_string(price) + ":";
        for (const auto& [id, leaves] : queue) list += " " + std::to_string(id) + "x" + std::to_string(leaves);
    };
    if (buy) {
        for (auto level = prices.rbegin(); level != prices.rend(); ++level) add_level(level->first, level->second);
    } else {
        for (const auto& [price, queue] : prices) add_level(price, queue);
    }
    return list;
}

std::uint64_t sum_within(const PlainLists& prices, bool buy, Price limit) {
    std::uint64_t sum = 0;
    for (const auto& [price, queue] : prices) {
        if (buy ? price < limit : price > limit) continue;
        for (const auto& [id, leaves] : queue) sum += leaves;
    }
    return sum;
}

TEST(BookSide, AgreesWithPlainListsThroughManyChanges) {
    for (const bool buy : {true, false}) {
        Side book(buy);
        PlainLists prices;
        std::vector<Order*> resting;
        std::mt19937 draws(buy ? 1 : 2);
        for (std::uint64_t step = 1; step <= 2000; ++step) {
            const unsigned what = static_cast<unsigned>(draws()) % 8;
            if (what < 4 || resting.empty()) {
                const Price price = 100 + static_cast<Price>(draws()) % 12;
                const std::uint32_t leaves = 1 + static_cast<std::uint32_t>(draws()) % 500;
                resting.push_back(&book.add(step, price, leaves));
                prices[price].emplace_back(step, leaves);
            } else {
                const std::size_t index = draws() % resting.size();
                Order& order = *resting[index];
                auto& queue = prices[order.price];
                auto entry = queue.begin();
                while (entry->first != order.id) ++entry;
                if (what == 7 && order.leaves > 1) {
                    book.side.reduce(order, order.leaves / 2);
                    entry->second -= entry->second / 2;
                } else {
                    book.side.remove(order);
                    queue.erase(entry);
                    if (queue.empty()) prices.erase(order.price);
                    resting.erase(resting.begin() + static_cast<std::ptrdiff_t>(index));
                }
            }
            if (step % 20 != 0) continue;
            ASSERT_EQ(book.levels(), listed(prices, buy)) << "after step " << step;
            for (Price limit = 99; limit <= 112; ++limit) {
                const std::uint64_t sum = sum_within(prices, buy, limit);
                ASSERT_TRUE(book.side.holds(sum, limit)) << limit << " after step " << step;
                ASSERT_FALSE(book.side.holds(sum + 1, limit)) << limit << " after step " << step;
            }
        }
    }
}

TEST(ProductRecord, HasBidsForBuysAndAsksForSells) {
    Product product;
    EXPECT_EQ(&product.side(true), &product.bids);
    EXPECT_EQ(&product.side(false), &product.asks);
}

TEST(OrderRecord, HasALetterForItsSideAndAnOwnerUnlessItIsSynthetic) {
    Order order;
    EXPECT_EQ(order.side(), 'S');
    EXPECT_FALSE(order.has_owner());
    order.buy = true;
    order.owner = 0;
    EXPECT_EQ(order.side(), 'B');
    EXPECT_TRUE(order.has_owner());
}

}  // namespace
}  // namespace kavo
