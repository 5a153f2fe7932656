#include "engine/book.h"

namespace kavo {

void BookSide::add(Order& order) {
    Level& level = level_at(order.price);
    level.total += order.leaves;
    total_ += order.leaves;
    order.level = &level;
    order.ahead = level.last;
    order.behind = nullptr;
    (level.last == nullptr ? level.first : level.last->behind) = &order;
    level.last = &order;
}

Level& BookSide::level_at(Price price) {
    Level*& recent_level = recent(price);
    if (recent_level == nullptr || recent_level->price != price) {
        recent_level = &levels_[rank(price)];
        recent_level->price = price;
    }
    return *recent_level;
}

void BookSide::remove(Order& order) {
    Level& level = *order.level;
    level.total -= order.leaves;
    total_ -= order.leaves;
    (order.ahead == nullptr ? level.first : order.ahead->behind) = order.behind;
    (order.behind == nullptr ? level.last : order.behind->ahead) = order.ahead;
    order.level = nullptr;
    if (level.first != nullptr) return;
    if (recent(level.price) == &level) recent(level.price) = nullptr;
    levels_.erase(rank(level.price));
}

void BookSide::reduce(Order& order, std::uint32_t quantity) {
    order.leaves -= quantity;
    order.level->total -= quantity;
    total_ -= quantity;
}

bool BookSide::crossed_by(Price limit) const {
    const Level* level = best();
    return level != nullptr && level->price != 0 && rank(level->price) <= rank(limit);
}

// Adds up no more levels than it takes: a client may ask for little where there are many, and for more than there is.
bool BookSide::holds(std::uint64_t quantity, Price limit) const {
    if (quantity > total_) return false;
    std::uint64_t sum = 0;
    for (const auto& [level_rank, level] : levels_) {
        if (sum >= quantity || level_rank > rank(limit)) break;
        sum += level.total;
    }
    return sum >= quantity;
}

}  // namespace kavo
