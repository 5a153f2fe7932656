#include "engine/order_pool.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>
#include <vector>

namespace kavo {
namespace {

TEST(OrderPool, IsEmptyAtFirst) {
    const OrderPool pool;
    EXPECT_EQ(pool.size(), 0u);
}

TEST(OrderPool, CountsTheLiveOrders) {
    OrderPool pool;
    Order& first = pool.take(1000);
    EXPECT_EQ(first.id, 1000u);
    EXPECT_EQ(pool.size(), 1u);
    Order& second = pool.take(1001);
    EXPECT_EQ(second.id, 1001u);
    EXPECT_EQ(pool.size(), 2u);
    pool.give_back(first);
    EXPECT_EQ(pool.size(), 1u);
    pool.give_back(second);
    EXPECT_EQ(pool.size(), 0u);
}

TEST(OrderPool, ReusesTheRecordThatWasGivenBackLast) {
    OrderPool pool;
    Order& first = pool.take(1000);
    Order& second = pool.take(1001);
    pool.give_back(first);
    pool.give_back(second);
    EXPECT_EQ(&pool.take(1002), &second);
    EXPECT_EQ(&pool.take(1003), &first);
}

TEST(OrderPool, HandsOutAFreshRecordHoweverItWasLeft) {
    OrderPool pool;
    Order& order = pool.take(1000);
    const std::uint32_t slot = order.slot;
    Level level;
    order.product_id = 3;
    order.price = 100;
    order.leaves = 5;
    order.executed = 6;
    order.original_size = 7;
    order.owner = 2;
    order.flags = {0xFFFF};
    order.buy = true;
    order.tif = meo::TimeInForce::timed;
    order.order_type = meo::OrderType::market;
    order.mpid = meo::Mpid("FIRM");
    order.client_order_id = meo::ClientOrderId("left behind");
    order.level = &level;
    order.ahead = order.behind = order.earlier = order.later = &order;
    pool.give_back(order);

    const Order& again = pool.take(1001);
    ASSERT_EQ(&again, &order);
    EXPECT_EQ(again.id, 1001u);
    EXPECT_EQ(again.slot, slot);
    EXPECT_EQ(again.product_id, 0u);
    EXPECT_EQ(again.price, 0u);
    EXPECT_EQ(again.leaves, 0u);
    EXPECT_EQ(again.executed, 0u);
    EXPECT_EQ(again.original_size, 0u);
    EXPECT_EQ(again.owner, no_client);
    EXPECT_EQ(again.flags.bits, 0u);
    EXPECT_FALSE(again.buy);
    EXPECT_EQ(again.tif, meo::TimeInForce::day);
    EXPECT_EQ(again.order_type, meo::OrderType::limit);
    EXPECT_EQ(again.mpid, meo::Mpid());
    EXPECT_TRUE(again.client_order_id.empty());
    EXPECT_EQ(again.level, nullptr);
    EXPECT_EQ(again.ahead, nullptr);
    EXPECT_EQ(again.behind, nullptr);
    EXPECT_EQ(again.earlier, nullptr);
    EXPECT_EQ(again.later, nullptr);
}

TEST(OrderPool, NeverMovesARecord) {
    OrderPool pool;
    std::vector<Order*> orders;
    for (std::uint64_t id = 1000; id < 51'000; ++id) orders.push_back(&pool.take(id));
    EXPECT_EQ(pool.size(), 50'000u);
    for (std::uint64_t id = 1000; id < 51'000; ++id) ASSERT_EQ(orders[id - 1000]->id, id);
}

TEST(OrderPool, GivesEachLiveOrderASlotOfItsOwn) {
    OrderPool pool;
    std::set<std::uint32_t> slots;
    for (std::uint64_t id = 1000; id < 51'000; ++id) {
        const Order& order = pool.take(id);
        ASSERT_TRUE(slots.insert(order.slot).second) << id;
        ASSERT_EQ(&pool.at(order.slot), &order) << id;
    }
}

TEST(OrderPool, NeedsNoMoreRecordsThanAreLiveAtOnce) {
    OrderPool pool;
    std::set<const Order*> records;
    std::vector<Order*> live;
    for (std::uint64_t id = 1000; id < 21'000; ++id) {
        live.push_back(&pool.take(id));
        records.insert(live.back());
        if (live.size() < 100) continue;
        pool.give_back(*live.front());
        live.erase(live.begin());
    }
    EXPECT_EQ(records.size(), 100u);
}

TEST(OrderPool, KeepsLiveOrdersApartThroughManyChanges) {
    OrderPool pool;
    std::map<std::uint64_t, Order*> live;
    std::mt19937_64 draws(3);
    std::uint64_t next_id = 1000;
    for (int step = 0; step < 20'000; ++step) {
        if (live.empty() || draws() % 100 < (step % 4000 < 2000 ? 70u : 30u)) {
            live.emplace(next_id, &pool.take(next_id));
            ++next_id;
        } else {
            auto ended = live.lower_bound(1000 + draws() % (next_id - 1000));
            if (ended == live.end()) ended = live.begin();
            pool.give_back(*ended->second);
            live.erase(ended);
        }
        ASSERT_EQ(pool.size(), live.size());
    }
    for (const auto& [id, order] : live) {
        ASSERT_EQ(order->id, id);
        ASSERT_EQ(&pool.at(order->slot), order);
    }
}

}  // namespace
}  // namespace kavo
