#include "engine/client_orders.h"

#include <gtest/gtest.h>

#include <array>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace kavo {
namespace {

using meo::ClientOrderId;

// The orders of some clients, in a pool as the engine keeps them.
struct Clients {
    Order& enter(ClientHandle owner, const std::string& id) {
        Order& order = pool.take(next_id++);
        order.owner = owner;
        order.client_order_id = ClientOrderId(id);
        orders.add(order);
        return order;
    }
    void end(Order& order) {
        orders.remove(order);
        pool.give_back(order);
    }
    const Order* find(const std::string& id) const { return orders.find(ClientOrderId(id)); }
    // The client order ids of one owner's orders, as they are walked.
    std::string orders_of(ClientHandle owner) const {
        std::string list;
        const Order* earlier = nullptr;
        for (const Order* order = orders.first_of(owner); order != nullptr; earlier = order, order = order->later) {
            if (!list.empty()) list += ' ';
            list += order->client_order_id.view();
            EXPECT_EQ(order->earlier, earlier);
        }
        return list;
    }

    OrderPool pool;
    ClientOrders orders{pool};
    std::uint64_t next_id = 1000;
};

TEST(ClientOrders, FindNothingAtFirst) {
    const Clients clients;
    EXPECT_EQ(clients.find("a"), nullptr);
    EXPECT_EQ(clients.find(""), nullptr);
    EXPECT_EQ(clients.orders_of(0), "");
    EXPECT_EQ(clients.orders_of(1000), "");
}

TEST(ClientOrders, FindAnOrderByTheIdItsClientGaveIt) {
    Clients clients;
    const Order& order = clients.enter(0, "a");
    EXPECT_EQ(clients.find("a"), &order);
    EXPECT_EQ(clients.find("A"), nullptr);
    EXPECT_EQ(clients.find("a "), nullptr);
    EXPECT_EQ(clients.find("aa"), nullptr);
}

TEST(ClientOrders, TellIdsApartInEachOfTheirCharacters) {
    Clients clients;
    std::vector<std::pair<std::string, const Order*>> entered;
    for (std::size_t at = 0; at < 20; ++at) {
        for (const char letter : {'0', '1', 'z'}) {
            std::string id(20, '-');
            id[at] = letter;
            entered.emplace_back(id, &clients.enter(0, id));
        }
    }
    for (std::size_t size = 1; size < 20; ++size) {
        const std::string id(size, '-');
        entered.emplace_back(id, &clients.enter(0, id));
    }
    for (const auto& [id, order] : entered) EXPECT_EQ(clients.find(id), order) << id;
}

// Among a million ids there are two of one hash, more than a hundred times over: some eighty thousand will do.
std::pair<std::string, std::string> two_ids_of_one_hash() {
    std::unordered_map<std::uint32_t, std::string> ids;
    for (int i = 0; i < 1'000'000; ++i) {
        const std::string id = "order-" + std::to_string(i);
        const auto [entry, is_new] = ids.try_emplace(ClientOrderId(id).hash, id);
        if (!is_new) return {entry->second, id};
    }
    throw std::runtime_error("a million ids without two of one hash");
}

TEST(ClientOrders, TellIdsApartWhoseHashesAreTheSame) {
    const auto [one, other] = two_ids_of_one_hash();
    Clients clients;
    Order& first = clients.enter(0, one);
    EXPECT_EQ(clients.find(other), nullptr);
    const Order& second = clients.enter(0, other);
    EXPECT_EQ(clients.find(one), &first);
    EXPECT_EQ(clients.find(other), &second);
    clients.end(first);
    EXPECT_EQ(clients.find(one), nullptr);
    EXPECT_EQ(clients.find(other), &second);
}

TEST(ClientOrders, EndEitherOfTwoWhoseHashesAreTheSame) {
    const auto [one, other] = two_ids_of_one_hash();
    for (const bool later_first : {false, true}) {
        Clients clients;
        Order& earlier = clients.enter(0, one);
        Order& later = clients.enter(0, other);
        clients.end(later_first ? later : earlier);
        EXPECT_EQ(clients.find(one), later_first ? &earlier : nullptr);
        EXPECT_EQ(clients.find(other), later_first ? nullptr : &later);
        clients.end(later_first ? earlier : later);
        EXPECT_EQ(clients.find(one), nullptr);
        EXPECT_EQ(clients.find(other), nullptr);
    }
}

TEST(ClientOrders, FindNoOrderThatHasEnded) {
    Clients clients;
    Order& first = clients.enter(0, "a");
    const Order& second = clients.enter(0, "b");
    clients.end(first);
    EXPECT_EQ(clients.find("a"), nullptr);
    EXPECT_EQ(clients.find("b"), &second);
}

TEST(ClientOrders, FindTheSecondLifeOfAnId) {
    Clients clients;
    clients.end(clients.enter(0, "a"));
    const Order& again = clients.enter(1, "a");
    EXPECT_EQ(clients.find("a"), &again);
    EXPECT_EQ(clients.find("a")->owner, 1);
}

TEST(ClientOrders, FindARenamedOrderByItsNewIdAlone) {
    Clients clients;
    Order& order = clients.enter(0, "old");
    clients.orders.rename(order, ClientOrderId("new"));
    EXPECT_EQ(clients.find("old"), nullptr);
    EXPECT_EQ(clients.find("new"), &order);
    EXPECT_EQ(order.client_order_id.view(), "new");
}

TEST(ClientOrders, MayTakeTheNameThatAnotherHasGivenUp) {
    Clients clients;
    Order& first = clients.enter(0, "a");
    clients.orders.rename(first, ClientOrderId("b"));
    const Order& second = clients.enter(0, "a");
    EXPECT_EQ(clients.find("a"), &second);
    EXPECT_EQ(clients.find("b"), &first);
}

TEST(ClientOrders, ListAnOwnersOrdersByAscendingOrderId) {
    Clients clients;
    clients.enter(0, "z");
    clients.enter(1, "other");
    clients.enter(0, "a");
    clients.enter(0, "m");
    EXPECT_EQ(clients.orders_of(0), "z a m");
    EXPECT_EQ(clients.orders_of(1), "other");
    EXPECT_EQ(clients.orders_of(2), "");
}

TEST(ClientOrders, KeepTheListTogetherWhereAnOrderEnds) {
    Clients clients;
    Order& first = clients.enter(0, "a");
    Order& second = clients.enter(0, "b");
    clients.enter(0, "c");
    Order& last = clients.enter(0, "d");
    clients.end(second);
    EXPECT_EQ(clients.orders_of(0), "a c d");
    clients.end(first);
    EXPECT_EQ(clients.orders_of(0), "c d");
    clients.end(last);
    EXPECT_EQ(clients.orders_of(0), "c");
    clients.enter(0, "e");
    EXPECT_EQ(clients.orders_of(0), "c e");
}

TEST(ClientOrders, ListNothingOnceTheLastOrderOfAnOwnerHasEnded) {
    Clients clients;
    clients.end(clients.enter(3, "a"));
    EXPECT_EQ(clients.orders_of(3), "");
    clients.enter(3, "b");
    EXPECT_EQ(clients.orders_of(3), "b");
}

TEST(ClientOrders, KeepARenamedOrderInItsPlace) {
    Clients clients;
    clients.enter(0, "a");
    Order& order = clients.enter(0, "b");
    clients.enter(0, "c");
    clients.orders.rename(order, ClientOrderId("z"));
    EXPECT_EQ(clients.orders_of(0), "a z c");
}

TEST(ClientOrders, ListNobodysOrdersForTheSyntheticMarket) {
    Clients clients;
    clients.enter(0, "a");
    EXPECT_EQ(clients.orders_of(no_client), "");
}

TEST(ClientOrders, HaveNoLimit) {
    Clients clients;
    for (int i = 0; i < 30'000; ++i) clients.enter(0, "order-" + std::to_string(i));
    for (int i = 0; i < 30'000; ++i) {
        const Order* order = clients.find("order-" + std::to_string(i));
        ASSERT_NE(order, nullptr) << i;
        ASSERT_EQ(order->id, 1000u + static_cast<unsigned>(i));
    }
    EXPECT_EQ(clients.find("order-30000"), nullptr);
}

// Random entries, ends and renames beside a plain hash map and plain ordered sets.
class SideBySide {
public:
    static constexpr int owners = 4;

    SideBySide(std::uint64_t seed, unsigned names) : draws_(seed), names_(names) {}

    void enter() {
        const std::string id = draw_name();
        if (by_name_.count(id) != 0) return;
        const auto owner = static_cast<ClientHandle>(draws_() % owners);
        Order& order = clients_.enter(owner, id);
        by_name_.emplace(id, &order);
        live_.push_back(&order);
        ids_of_[static_cast<std::size_t>(owner)].insert(order.id);
    }
    void end() {
        if (live_.empty()) return;
        const std::size_t index = draws_() % live_.size();
        Order& order = *live_[index];
        by_name_.erase(order.client_order_id.str());
        ids_of_[static_cast<std::size_t>(order.owner)].erase(order.id);
        live_[index] = live_.back();
        live_.pop_back();
        clients_.end(order);
    }
    void rename() {
        if (live_.empty()) return;
        Order& order = *live_[draws_() % live_.size()];
        const std::string id = draw_name();
        if (by_name_.count(id) != 0) return;
        by_name_.erase(order.client_order_id.str());
        by_name_.emplace(id, &order);
        clients_.orders.rename(order, ClientOrderId(id));
    }
    std::size_t live() const { return live_.size(); }

    // One name, asked for at random, whether it is live or not.
    void compare_one() {
        const std::string id = draw_name();
        const auto found = by_name_.find(id);
        ASSERT_EQ(clients_.find(id), found == by_name_.end() ? nullptr : found->second) << id;
    }
    void compare_all() const {
        for (const auto& [id, order] : by_name_) ASSERT_EQ(clients_.find(id), order) << id;
        for (ClientHandle owner = 0; owner < owners; ++owner) {
            std::vector<std::uint64_t> walked;
            for (const Order* order = clients_.orders.first_of(owner); order != nullptr; order = order->later) {
                walked.push_back(order->id);
            }
            const auto& expected = ids_of_[static_cast<std::size_t>(owner)];
            ASSERT_EQ(walked, std::vector<std::uint64_t>(expected.begin(), expected.end())) << owner;
        }
    }

private:
    std::string draw_name() { return "client-order-" + std::to_string(draws_() % names_); }

    std::mt19937_64 draws_;
    unsigned names_;
    Clients clients_;
    std::unordered_map<std::string, Order*> by_name_;
    std::vector<Order*> live_;
    std::array<std::set<std::uint64_t>, owners> ids_of_;
};

TEST(ClientOrders, AgreeWithAHashMapWhenFewNamesComeAndGoOften) {
    SideBySide both(5, 3000);
    for (int step = 0; step < 60'000; ++step) {
        const bool growing = step % 10'000 < 5000;
        both.enter();
        if (!growing || step % 3 == 0) both.end();
        if (!growing) both.end();
        if (step % 4 == 0) both.rename();
        both.compare_one();
        if (HasFatalFailure()) return;
        if (step % 5000 != 0) continue;
        both.compare_all();
        if (HasFatalFailure()) return;
    }
    both.compare_all();
}

TEST(ClientOrders, AgreeWithAHashMapWhenManyAreLiveAtOnce) {
    SideBySide both(6, 1'000'000);
    for (int step = 0; step < 40'000; ++step) {
        both.enter();
        if (step % 5 == 0) both.end();
        if (step % 3 == 0) both.rename();
    }
    EXPECT_GT(both.live(), 30'000u);
    both.compare_all();
    while (both.live() > 100) both.end();
    both.compare_all();
}

std::string nth_id(int n) {
    return "id-" + std::to_string(n);
}

void close(ClosedIds& closed, int first, int last, std::uint64_t now_ms) {
    for (int n = first; n <= last; ++n) closed.close(ClientOrderId(nth_id(n)), now_ms);
}

TEST(ClosedIds, RememberWhenAnOrderEnded) {
    ClosedIds closed;
    EXPECT_EQ(closed.closed_at_ms(ClientOrderId("a")), std::nullopt);
    closed.close(ClientOrderId("a"), 1234);
    EXPECT_EQ(closed.closed_at_ms(ClientOrderId("a")), 1234u);
    EXPECT_EQ(closed.closed_at_ms(ClientOrderId("b")), std::nullopt);
    EXPECT_EQ(closed.closed_at_ms(ClientOrderId("")), std::nullopt);
}

TEST(ClosedIds, TellIdsApartWhoseHashesAreTheSame) {
    const auto [one_text, other_text] = two_ids_of_one_hash();
    const ClientOrderId one(one_text);
    const ClientOrderId other(other_text);
    ClosedIds closed;
    closed.close(one, 1);
    EXPECT_EQ(closed.closed_at_ms(other), std::nullopt);
    closed.close(other, 2);
    EXPECT_EQ(closed.closed_at_ms(one), 1u);
    EXPECT_EQ(closed.closed_at_ms(other), 2u);
}

TEST(ClosedIds, RememberAnOrderThatEndedAtTimeZero) {
    ClosedIds closed;
    closed.close(ClientOrderId("a"), 0);
    EXPECT_EQ(closed.closed_at_ms(ClientOrderId("a")), 0u);
}

TEST(ClosedIds, RememberTheLatestEndOfAnId) {
    ClosedIds closed;
    closed.close(ClientOrderId("a"), 1000);
    closed.close(ClientOrderId("a"), 2000);
    EXPECT_EQ(closed.closed_at_ms(ClientOrderId("a")), 2000u);
}

TEST(ClosedIds, RememberFiftyThousand) {
    ClosedIds closed;
    for (int n = 1; n <= 50'000; ++n) closed.close(ClientOrderId(nth_id(n)), static_cast<std::uint64_t>(n));
    for (int n = 1; n <= 50'000; ++n) {
        ASSERT_EQ(closed.closed_at_ms(ClientOrderId(nth_id(n))), static_cast<std::uint64_t>(n)) << n;
    }
    EXPECT_EQ(closed.closed_at_ms(ClientOrderId(nth_id(50'001))), std::nullopt);
}

TEST(ClosedIds, ForgetThemAllWithTheOneThatIsTooMuch) {
    ClosedIds closed;
    close(closed, 1, 50'001, 7);
    for (int n = 1; n <= 50'001; ++n) ASSERT_EQ(closed.closed_at_ms(ClientOrderId(nth_id(n))), std::nullopt) << n;
}

TEST(ClosedIds, DoNotCountAnIdTwice) {
    ClosedIds closed;
    close(closed, 1, 50'000, 7);
    close(closed, 1, 50'000, 8);
    EXPECT_EQ(closed.closed_at_ms(ClientOrderId(nth_id(1))), 8u);
    EXPECT_EQ(closed.closed_at_ms(ClientOrderId(nth_id(50'000))), 8u);
    close(closed, 50'001, 50'001, 9);
    EXPECT_EQ(closed.closed_at_ms(ClientOrderId(nth_id(1))), std::nullopt);
    EXPECT_EQ(closed.closed_at_ms(ClientOrderId(nth_id(50'001))), std::nullopt);
}

TEST(ClosedIds, BeginAfreshOnceTheyHaveForgotten) {
    ClosedIds closed;
    close(closed, 1, 50'001, 7);
    close(closed, 40'001, 90'000, 8);
    EXPECT_EQ(closed.closed_at_ms(ClientOrderId(nth_id(40'000))), std::nullopt);
    for (int n = 40'001; n <= 90'000; ++n) ASSERT_EQ(closed.closed_at_ms(ClientOrderId(nth_id(n))), 8u) << n;
    close(closed, 1, 1, 9);
    EXPECT_EQ(closed.closed_at_ms(ClientOrderId(nth_id(1))), std::nullopt);
    EXPECT_EQ(closed.closed_at_ms(ClientOrderId(nth_id(90'000))), std::nullopt);
    close(closed, 1, 1, 10);
    EXPECT_EQ(closed.closed_at_ms(ClientOrderId(nth_id(1))), 10u);
}

}  // namespace
}  // namespace kavo
