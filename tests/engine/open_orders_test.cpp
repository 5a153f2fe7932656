#include "engine/open_orders.h"

#include <gtest/gtest.h>

#include <array>
#include <deque>
#include <random>
#include <string>
#include <vector>

namespace kavo {
namespace {

// The open orders of some clients. Each ended order stays where it was, as the pool's do for a while.
struct Clients {
    Order& enter(ClientHandle owner) {
        Order& order = records.emplace_back();
        order.id = next_id++;
        order.owner = owner;
        open.add(order);
        return order;
    }
    // The ids of one owner's orders, as they are walked.
    std::string orders_of(ClientHandle owner) const {
        std::string list;
        const Order* earlier = nullptr;
        for (const Order* order = open.first_of(owner); order != nullptr; earlier = order, order = order->later) {
            if (!list.empty()) list += ' ';
            list += std::to_string(order->id);
            EXPECT_EQ(order->earlier, earlier);
        }
        return list;
    }

    std::deque<Order> records;
    OpenOrders open;
    std::uint64_t next_id = 1;
};

TEST(OpenOrders, AreNoneAtFirst) {
    const Clients clients;
    EXPECT_EQ(clients.orders_of(0), "");
    EXPECT_EQ(clients.orders_of(1000), "");
}

TEST(OpenOrders, StandByAscendingOrderIdForEachOwner) {
    Clients clients;
    clients.enter(0);
    clients.enter(1);
    clients.enter(0);
    clients.enter(0);
    EXPECT_EQ(clients.orders_of(0), "1 3 4");
    EXPECT_EQ(clients.orders_of(1), "2");
    EXPECT_EQ(clients.orders_of(2), "");
}

TEST(OpenOrders, StayTogetherWhereOneEnds) {
    Clients clients;
    Order& first = clients.enter(0);
    Order& second = clients.enter(0);
    clients.enter(0);
    Order& last = clients.enter(0);
    clients.open.remove(second);
    EXPECT_EQ(clients.orders_of(0), "1 3 4");
    clients.open.remove(first);
    EXPECT_EQ(clients.orders_of(0), "3 4");
    clients.open.remove(last);
    EXPECT_EQ(clients.orders_of(0), "3");
    clients.enter(0);
    EXPECT_EQ(clients.orders_of(0), "3 5");
}

TEST(OpenOrders, BeginAnewOnceTheLastOfAnOwnerHasEnded) {
    Clients clients;
    clients.open.remove(clients.enter(3));
    EXPECT_EQ(clients.orders_of(3), "");
    clients.enter(3);
    EXPECT_EQ(clients.orders_of(3), "2");
}

TEST(OpenOrders, AreNoneForTheSyntheticMarket) {
    Clients clients;
    clients.enter(0);
    EXPECT_EQ(clients.orders_of(no_client), "");
}

TEST(OpenOrders, AreWalkedFromTheFirstWhileTheyEnd) {
    Clients clients;
    for (int i = 0; i < 3; ++i) clients.enter(0);
    std::vector<std::uint64_t> ended;
    while (Order* order = clients.open.first_of(0)) {
        ended.push_back(order->id);
        clients.open.remove(*order);
    }
    EXPECT_EQ(ended, (std::vector<std::uint64_t>{1, 2, 3}));
}

TEST(OpenOrders, AgreeWithPlainListsThroughManyChanges) {
    Clients clients;
    std::array<std::vector<Order*>, 4> lists;
    std::mt19937_64 draws(5);
    for (int step = 0; step < 20'000; ++step) {
        const std::size_t owner = draws() % lists.size();
        std::vector<Order*>& list = lists[owner];
        if (list.empty() || draws() % 100 < (step % 4000 < 2000 ? 60u : 40u)) {
            list.push_back(&clients.enter(static_cast<ClientHandle>(owner)));
        } else {
            const auto ended = list.begin() + static_cast<std::ptrdiff_t>(draws() % list.size());
            clients.open.remove(**ended);
            list.erase(ended);
        }
        if (step % 500 != 0) continue;
        std::string expected;
        for (const Order* order : list) expected += (expected.empty() ? "" : " ") + std::to_string(order->id);
        ASSERT_EQ(clients.orders_of(static_cast<ClientHandle>(owner)), expected) << "after step " << step;
    }
}

}  // namespace
}  // namespace kavo
