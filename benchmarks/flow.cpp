#include "flow.h"

#include <algorithm>
#include <cstdlib>
#include <deque>
#include <map>

#include "engine/draws.h"

namespace kavo::benchmarks {

namespace {

constexpr std::int64_t start_cents = 19'000;
constexpr std::int64_t farthest_from_start_cents = 5;
constexpr std::uint64_t operations_between_moves = 250;
constexpr std::uint64_t depth_levels = 10;

Id id_of(std::uint64_t number) {
    return make_id("FLOW", number);
}

// Keeps just enough of a book to know who is live, whom a marketable order meets, and what would trade.
class FlowMaker {
public:
    FlowMaker(std::size_t live_orders, std::uint64_t seed) : wanted_live_(live_orders), generator_(seed) {}

    Operation add() {
        Operation operation = priced(Act::add, draw_below(generator_, 2) == 0);
        rest(operation);
        return operation;
    }

    Operation next() {
        if (++made_ % operations_between_moves == 0) move_middle();
        const std::uint64_t percent = draw_below(generator_, 100);
        if (percent < 55 || live_.size() < 2) return add();
        if (percent < 90) return cancel();
        return percent < 95 ? replace() : take();
    }

private:
    struct Resting {
        bool buy;
        std::int64_t cents;
        std::uint32_t leaves;
        std::size_t position;  // in live_; gone when it has ended
    };
    static constexpr std::size_t gone = ~std::size_t{0};
    struct Level {
        std::deque<std::size_t> numbers;  // those that have ended are skipped when they come to the front
        std::size_t live = 0;
    };
    using Side = std::map<std::int64_t, Level>;  // best first: asks by cents, bids by minus cents

    static std::int64_t rank(bool buy, std::int64_t cents) { return buy ? -cents : cents; }
    Side& side(bool buy) { return buy ? bids_ : asks_; }

    void move_middle() {
        middle_cents_ += draw_below(generator_, 2) == 0 ? 1 : -1;
        middle_cents_ =
            std::clamp(middle_cents_, start_cents - farthest_from_start_cents, start_cents + farthest_from_start_cents);
    }

    // An order of one of the ten levels next to the middle, or a cent short of the other side where that is closer.
    Operation priced(Act act, bool buy) {
        const auto distance = static_cast<std::int64_t>(1 + draw_below(generator_, depth_levels));
        std::int64_t cents = middle_cents_ + (buy ? -distance : distance);
        if (const Side& other = side(!buy); !other.empty()) {
            const std::int64_t touch = std::abs(other.begin()->first);
            cents = buy ? std::min(cents, touch - 1) : std::max(cents, touch + 1);
        }
        const auto lots = static_cast<std::uint32_t>(1 + draw_below(generator_, 8));
        return {act, buy, static_cast<Price>(cents * price_cent), lots * 100, id_of(orders_.size()), {}};
    }

    void rest(const Operation& operation) {
        const std::int64_t cents = operation.price / price_cent;
        Level& level = side(operation.buy)[rank(operation.buy, cents)];
        level.numbers.push_back(orders_.size());
        ++level.live;
        live_.push_back(orders_.size());
        orders_.push_back({operation.buy, cents, operation.quantity, live_.size() - 1});
    }

    void end(std::size_t number) {
        Resting& order = orders_[number];
        orders_[live_.back()].position = order.position;
        live_[order.position] = live_.back();
        live_.pop_back();
        order.position = gone;
        Side& levels = side(order.buy);
        const auto level = levels.find(rank(order.buy, order.cents));
        if (--level->second.live == 0) levels.erase(level);
    }

    std::size_t random_live() { return live_[draw_below(generator_, live_.size())]; }

    Operation cancel() {
        const std::size_t number = random_live();
        Operation operation{.act = Act::cancel, .buy = orders_[number].buy};
        operation.target = id_of(number);
        end(number);
        return operation;
    }

    Operation replace() {
        const std::size_t number = random_live();
        const bool buy = orders_[number].buy;
        end(number);
        Operation operation = priced(Act::replace, buy);
        operation.target = id_of(number);
        rest(operation);
        return operation;
    }

    // Takes from the deeper side what is too much, and half of the order behind it.
    Operation take() {
        const std::size_t surplus = live_.size() > wanted_live_ ? live_.size() - wanted_live_ : 1;
        Operation operation{.act = Act::take, .buy = live_on(asks_) > live_on(bids_)};
        for (std::size_t i = 0; i < surplus; ++i) {
            const std::size_t number = first_of(!operation.buy);
            if (number == gone) break;
            extend(operation, orders_[number], orders_[number].leaves);
            end(number);
        }
        if (const std::size_t number = first_of(!operation.buy); number != gone) {
            const std::uint32_t half = orders_[number].leaves / 2;
            extend(operation, orders_[number], half);
            orders_[number].leaves -= half;
        }
        return operation;
    }

    static void extend(Operation& operation, const Resting& maker, std::uint32_t quantity) {
        operation.price = static_cast<Price>(maker.cents * price_cent);
        operation.quantity += quantity;
    }

    std::size_t first_of(bool buy) {
        if (side(buy).empty()) return gone;
        std::deque<std::size_t>& numbers = side(buy).begin()->second.numbers;
        while (orders_[numbers.front()].position == gone) numbers.pop_front();
        return numbers.front();
    }

    static std::size_t live_on(const Side& side) {
        std::size_t sum = 0;
        for (const auto& [rank, level] : side) sum += level.live;
        return sum;
    }

    std::size_t wanted_live_;
    Generator generator_;
    std::uint64_t made_ = 0;
    std::int64_t middle_cents_ = start_cents;
    std::vector<Resting> orders_;    // by number
    std::vector<std::size_t> live_;  // numbers
    Side bids_;
    Side asks_;
};

}  // namespace

Flow make_flow(std::size_t live_orders, std::size_t steady_operations, std::uint64_t seed) {
    FlowMaker maker(live_orders, seed);
    Flow flow;
    flow.prefill.reserve(live_orders);
    flow.steady.reserve(steady_operations);
    for (std::size_t i = 0; i < live_orders; ++i) flow.prefill.push_back(maker.add());
    for (std::size_t i = 0; i < steady_operations; ++i) flow.steady.push_back(maker.next());
    return flow;
}

}  // namespace kavo::benchmarks
