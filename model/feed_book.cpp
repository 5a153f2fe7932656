#include "model/feed_book.h"

#include <algorithm>
#include <stdexcept>

#include "model/literal_fields.h"

namespace kavo::model {
namespace {

std::uint32_t level_price(std::uint64_t wire_price) {
    return static_cast<std::uint32_t>(wire_price / 100);
}

}  // namespace

FeedBook::Resting read_add_order(const Bytes& message) {
    return {.id = get(message, 9, 8),
            .secid = get32(message, 5),
            .buy = message.at(17) == 'B',
            .price = get(message, 18, 8),
            .quantity = get32(message, 26)};
}

// A Modify moves the order to the back of its level whether or not it says that priority was kept: that is how the
// venue queues, and the flag does not tell otherwise.
void FeedBook::apply(const Bytes& message) {
    const std::uint8_t type = message.at(0);
    if (type == 0x14) {
        add(read_add_order(message));
        return;
    }
    if (type != 0x15 && type != 0x17 && type != 0x18) return;
    Resting order = orders_.at(get(message, 9, 8));
    if (order.secid != get32(message, 5)) throw std::runtime_error("a message of another product");
    if (type == 0x18) {
        const std::uint32_t executed = get32(message, 33);
        if (executed > order.quantity) throw std::runtime_error("more executed than was there");
        orders_.at(order.id).quantity -= executed;
        if (executed == order.quantity) take_off(order);
        return;
    }
    take_off(order);
    if (type == 0x17) return;
    order.price = get(message, 17, 8);
    order.quantity = get32(message, 25);
    add(order);
}

Side& FeedBook::side_of(const Resting& order) {
    return sides_.try_emplace(SideKey{order.secid, !order.buy}, BestFirst{order.buy}).first->second;
}

void FeedBook::add(const Resting& order) {
    if (!orders_.emplace(order.id, order).second) throw std::runtime_error("an order added twice");
    side_of(order)[level_price(order.price)].push_back(order.id);
}

void FeedBook::take_off(const Resting& order) {
    Side& side = side_of(order);
    Queue& queue = side.at(level_price(order.price));
    queue.erase(std::find(queue.begin(), queue.end(), order.id));
    if (queue.empty()) side.erase(level_price(order.price));
    orders_.erase(order.id);
}

std::vector<Level> FeedBook::levels(std::uint32_t secid, bool buy) const {
    std::vector<Level> levels;
    const auto side = sides_.find(SideKey{secid, !buy});
    if (side == sides_.end()) return levels;
    for (const auto& [price, queue] : side->second) {
        Level level{price, 0};
        for (const std::uint64_t id : queue) level.total += orders_.at(id).quantity;
        levels.push_back(level);
    }
    return levels;
}

std::vector<FeedBook::Resting> FeedBook::resting_orders() const {
    std::vector<Resting> resting;
    for (const auto& [key, side] : sides_) {
        for (const auto& [price, queue] : side) {
            for (const std::uint64_t id : queue) resting.push_back(orders_.at(id));
        }
    }
    return resting;
}

}  // namespace kavo::model
