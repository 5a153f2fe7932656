#include "trader.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <iterator>

namespace trading {

using namespace kavo::client;

namespace {

constexpr std::uint64_t step_ms = 20;
constexpr std::size_t most_resting = 6;  // the oldest is cancelled when there are more

kavo::WirePrice moved(kavo::WirePrice price, int cents) {
    return price + static_cast<kavo::WirePrice>(cents) * kavo::wire_cent;
}

}  // namespace

void Trader::act(std::uint64_t now_ms) {
    if (now_ms < next_step_ms_ || !entry_.ready()) return;
    next_step_ms_ = now_ms + step_ms;
    const std::vector<Order*> mine = keeper_.open_on(entry_.connection());
    if (std::ranges::any_of(mine, &Order::busy)) return;
    if (tend(mine) || done()) return;
    if (settings_.fault == Fault::cancels_what_has_ended && entered_ % 4 == 3) cancel_an_ended_one();
    enter();
}

bool Trader::wind_down() {
    if (!entry_.ready()) return false;
    const std::vector<Order*> mine = keeper_.open_on(entry_.connection());
    for (Order* order : mine) {
        if (!order->busy() && !order->too_late) cancel(*order);
    }
    return std::ranges::all_of(mine, &Order::hopeless);
}

// Carries on with what is open; true when that took a request.
bool Trader::tend(const std::vector<Order*>& mine) {
    for (Order* order : mine) {
        const auto plan = plans_.extract(order->id);
        if (plan.empty() || plan.mapped() == Then::stays) continue;
        plan.mapped() == Then::is_cancelled ? cancel(*order) : replace(*order);
        return true;
    }
    const auto partly_executed = [this](const Order* order) {
        return order->executed > 0 && !topped_up_.contains(order);
    };
    if (const auto found = std::ranges::find_if(mine, partly_executed); found != mine.end()) {
        topped_up_.insert(*found);
        replace(**found);
        return true;
    }
    const auto can_be_cancelled = [](const Order* order) { return !order->too_late; };
    if (static_cast<std::size_t>(std::ranges::count_if(mine, can_be_cancelled)) <= most_resting) return false;
    cancel(**std::ranges::find_if(mine, can_be_cancelled));
    return true;
}

void Trader::enter() {
    struct Kind {
        bool sell;
        int cents_behind;  // the touch of its own side; the other side's when it takes
        bool takes;
        std::uint32_t quantity;
        Then then;
    };
    static constexpr std::array round{
        Kind{false, 2, false, 300, Then::is_cancelled}, Kind{true, 2, false, 200, Then::is_replaced},
        Kind{false, 0, true, 100, Then::stays},         Kind{true, 0, false, 100, Then::stays},
        Kind{false, 0, false, 200, Then::is_replaced},  Kind{true, 0, true, 100, Then::stays},
        Kind{false, 0, false, 100, Then::stays},
    };
    const auto& books = market_.books().books();
    const auto traded = std::ranges::count_if(books, [&](const auto& b) { return settings_.trades(b.second.symbol); });
    if (traded == 0) return;
    auto turn = entered_ % traded;
    const auto book =
        std::ranges::find_if(books, [&](const auto& b) { return settings_.trades(b.second.symbol) && turn-- == 0; });
    const Touch& touch = look_at_touch(book->first, book->second);
    const Kind& kind = round[entered_++ % round.size()];
    if (touch.bid == 0) return;  // nothing to go by before a book has had two sides

    NewOrder order = kind.sell ? sell(id_for_order()) : buy(id_for_order());
    order.product_id = book->first;
    order.quantity = kind.quantity;
    order.price = kind.sell == kind.takes ? touch.bid : touch.ask;
    order.price = moved(order.price, kind.sell ? kind.cents_behind : -kind.cents_behind);
    if (kind.takes) order = order.immediate();
    entry_.send(order);
    keeper_.sent({.id = order.client_order_id,
                  .product = order.product_id,
                  .sell = kind.sell,
                  .price = order.price,
                  .total = order.quantity,
                  .connection = entry_.connection()});
    plans_[order.client_order_id] = kind.then;
}

const Trader::Touch& Trader::look_at_touch(std::uint32_t product, const ReceivedBook::Book& book) {
    Touch& touch = touch_[product];
    if (!book.bids.empty() && !book.asks.empty()) touch = {book.bids.rbegin()->first, book.asks.begin()->first};
    return touch;
}

void Trader::cancel(Order& order) {
    Cancel request = kavo::client::cancel(order.id).product(order.product);
    request.client_order_id = fresh_id();
    entry_.send(request);
    keeper_.sent_cancel(order);
}

// A cent nearer to the touch, and a hundred more.
void Trader::replace(Order& order) {
    Replace request = kavo::client::replace(order.id, fresh_id()).shares(order.total + 100);
    request.product_id = order.product;
    request.price = moved(order.price, order.sell ? -1 : 1);
    entry_.send(request);
    keeper_.sent_replace(order, request.client_order_id);
}

void Trader::cancel_an_ended_one() {
    const auto ended = std::ranges::find_if(keeper_.orders(), [](const Order& order) { return !order.open(); });
    if (ended == keeper_.orders().end()) return;
    Cancel request = kavo::client::cancel(ended->id).product(ended->product);
    request.client_order_id = fresh_id();
    entry_.send(request);
}

// Client order ids are shared by all users, and an execution names an order by nothing else: so no id is ever used
// twice, by nobody, in no life.
std::string Trader::fresh_id() {
    return settings_.user + "-" + std::to_string(life()) + "-" + std::to_string(++ids_);
}

std::string Trader::id_for_order() {
    if (settings_.fault == Fault::reuses_an_id && entered_ % 5 == 0) {
        const auto ended = std::ranges::find_if(
            keeper_.orders(), [this](const Order& order) { return !order.open() && keeper_.find(order.id) == &order; });
        if (ended != keeper_.orders().end()) return ended->id;
    }
    return fresh_id();
}

// One more than that of the latest id which the first replay has brought back.
unsigned Trader::life() {
    if (life_ != 0) return life_;
    const std::string prefix = settings_.user + "-";
    for (const Order& order : keeper_.orders()) {
        if (!order.id.starts_with(prefix)) continue;
        unsigned earlier = 0;
        std::from_chars(order.id.data() + prefix.size(), order.id.data() + order.id.size(), earlier);
        life_ = std::max(life_, earlier);
    }
    return ++life_;
}

}  // namespace trading
