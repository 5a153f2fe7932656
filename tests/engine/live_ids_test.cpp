#include "engine/live_ids.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "support/ids_of_one_hash.h"

namespace kavo {
namespace {

using meo::ClientOrderId;

// Orders that have nothing but an id, in a pool as the engine keeps them.
struct Live {
    Order& enter(const std::string& id) {
        Order& order = pool.take(next_id++);
        order.client_order_id = ClientOrderId(id);
        ids.add(order);
        return order;
    }
    void end(Order& order) {
        ids.remove(order);
        pool.give_back(order);
    }
    const Order* find(const std::string& id) const { return ids.find(ClientOrderId(id)); }

    OrderPool pool;
    LiveIds ids{pool};
    std::uint64_t next_id = 1000;
};

TEST(LiveIds, FindNothingAtFirst) {
    const Live live;
    EXPECT_EQ(live.find("a"), nullptr);
    EXPECT_EQ(live.find(""), nullptr);
}

TEST(LiveIds, FindAnOrderByTheIdItsClientGaveIt) {
    Live live;
    const Order& order = live.enter("a");
    EXPECT_EQ(live.find("a"), &order);
    EXPECT_EQ(live.find("A"), nullptr);
    EXPECT_EQ(live.find("a "), nullptr);
    EXPECT_EQ(live.find("aa"), nullptr);
}

TEST(LiveIds, TellIdsApartInEachOfTheirCharacters) {
    Live live;
    std::vector<std::pair<std::string, const Order*>> entered;
    for (std::size_t at = 0; at < 20; ++at) {
        for (const char letter : {'0', '1', 'z'}) {
            std::string id(20, '-');
            id[at] = letter;
            entered.emplace_back(id, &live.enter(id));
        }
    }
    for (std::size_t size = 1; size < 20; ++size) {
        const std::string id(size, '-');
        entered.emplace_back(id, &live.enter(id));
    }
    for (const auto& [id, order] : entered) EXPECT_EQ(live.find(id), order) << id;
}

TEST(LiveIds, TellIdsApartWhoseHashesAreTheSame) {
    const auto [one, other] = test::two_ids_of_one_hash();
    Live live;
    Order& first = live.enter(one);
    EXPECT_EQ(live.find(other), nullptr);
    const Order& second = live.enter(other);
    EXPECT_EQ(live.find(one), &first);
    EXPECT_EQ(live.find(other), &second);
    live.end(first);
    EXPECT_EQ(live.find(one), nullptr);
    EXPECT_EQ(live.find(other), &second);
}

TEST(LiveIds, EndEitherOfTwoWhoseHashesAreTheSame) {
    const auto [one, other] = test::two_ids_of_one_hash();
    for (const bool later_first : {false, true}) {
        Live live;
        Order& earlier = live.enter(one);
        Order& later = live.enter(other);
        live.end(later_first ? later : earlier);
        EXPECT_EQ(live.find(one), later_first ? &earlier : nullptr);
        EXPECT_EQ(live.find(other), later_first ? nullptr : &later);
        live.end(later_first ? earlier : later);
        EXPECT_EQ(live.find(one), nullptr);
        EXPECT_EQ(live.find(other), nullptr);
    }
}

TEST(LiveIds, FindNoOrderThatHasEnded) {
    Live live;
    Order& first = live.enter("a");
    const Order& second = live.enter("b");
    live.end(first);
    EXPECT_EQ(live.find("a"), nullptr);
    EXPECT_EQ(live.find("b"), &second);
}

TEST(LiveIds, FindTheSecondLifeOfAnId) {
    Live live;
    live.end(live.enter("a"));
    const Order& again = live.enter("a");
    EXPECT_EQ(live.find("a"), &again);
    EXPECT_EQ(live.find("a")->id, 1001u);
}

TEST(LiveIds, FindARenamedOrderByItsNewIdAlone) {
    Live live;
    Order& order = live.enter("old");
    live.ids.rename(order, ClientOrderId("new"));
    EXPECT_EQ(live.find("old"), nullptr);
    EXPECT_EQ(live.find("new"), &order);
    EXPECT_EQ(order.client_order_id.view(), "new");
}

TEST(LiveIds, MayTakeTheNameThatAnotherHasGivenUp) {
    Live live;
    Order& first = live.enter("a");
    live.ids.rename(first, ClientOrderId("b"));
    const Order& second = live.enter("a");
    EXPECT_EQ(live.find("a"), &second);
    EXPECT_EQ(live.find("b"), &first);
}

TEST(LiveIds, HaveNoLimit) {
    Live live;
    for (int i = 0; i < 30'000; ++i) live.enter("order-" + std::to_string(i));
    for (int i = 0; i < 30'000; ++i) {
        const Order* order = live.find("order-" + std::to_string(i));
        ASSERT_NE(order, nullptr) << i;
        ASSERT_EQ(order->id, 1000u + static_cast<unsigned>(i));
    }
    EXPECT_EQ(live.find("order-30000"), nullptr);
}

// Random entries, ends and renames beside a plain hash map.
class SideBySide {
public:
    SideBySide(std::uint64_t seed, unsigned names) : draws_(seed), names_(names) {}

    void enter() {
        const std::string id = draw_name();
        if (by_name_.count(id) != 0) return;
        Order& order = live_.enter(id);
        by_name_.emplace(id, &order);
        orders_.push_back(&order);
    }
    void end() {
        if (orders_.empty()) return;
        const std::size_t index = draws_() % orders_.size();
        Order& order = *orders_[index];
        by_name_.erase(order.client_order_id.str());
        orders_[index] = orders_.back();
        orders_.pop_back();
        live_.end(order);
    }
    void rename() {
        if (orders_.empty()) return;
        Order& order = *orders_[draws_() % orders_.size()];
        const std::string id = draw_name();
        if (by_name_.count(id) != 0) return;
        by_name_.erase(order.client_order_id.str());
        by_name_.emplace(id, &order);
        live_.ids.rename(order, ClientOrderId(id));
    }
    std::size_t live() const { return orders_.size(); }

    // One name, asked for at random, whether it is live or not.
    void compare_one() {
        const std::string id = draw_name();
        const auto found = by_name_.find(id);
        ASSERT_EQ(live_.find(id), found == by_name_.end() ? nullptr : found->second) << id;
    }
    void compare_all() const {
        for (const auto& [id, order] : by_name_) ASSERT_EQ(live_.find(id), order) << id;
    }

private:
    std::string draw_name() { return "client-order-" + std::to_string(draws_() % names_); }

    std::mt19937_64 draws_;
    unsigned names_;
    Live live_;
    std::unordered_map<std::string, Order*> by_name_;
    std::vector<Order*> orders_;
};

TEST(LiveIds, AgreeWithAHashMapWhenFewNamesComeAndGoOften) {
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

TEST(LiveIds, AgreeWithAHashMapWhenManyAreLiveAtOnce) {
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

}  // namespace
}  // namespace kavo
