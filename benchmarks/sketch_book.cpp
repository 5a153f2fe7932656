#include "sketch_book.h"

#include <algorithm>
#include <string_view>

namespace kavo::benchmarks {

void SketchBook::apply(const Operation& operation) {
    switch (operation.act) {
        case Act::add: return add(operation, next_number_++);
        case Act::cancel: take_out(operation.target); return;
        case Act::replace: return add(operation, take_out(operation.target));
        case Act::take: return take(operation);
    }
}

void SketchBook::add(const Operation& operation, std::uint64_t number) {
    if (records_.size() * 2 >= table_.size()) grow();
    Entry& entry = entry_of(operation.id);
    if (entry.order != nullptr) return;
    if (free_.empty()) free_.push_back(&records_.emplace_back());
    Resting& order = *free_.back();
    free_.pop_back();
    entry = {operation.id, &order};
    Level& level = side(operation.buy)[operation.buy ? -std::int64_t{operation.price} : operation.price];
    order = {number, operation.id, operation.buy, operation.quantity, &level, level.last, nullptr};
    level.price = operation.price;
    level.total += operation.quantity;
    (level.last == nullptr ? level.first : level.last->behind) = &order;
    level.last = &order;
}

std::uint64_t SketchBook::take_out(const Id& id) {
    Resting& order = *entry_of(id).order;
    remove(order);
    return order.number;
}

void SketchBook::remove(Resting& order) {
    Level& level = *order.level;
    level.total -= order.quantity;
    (order.ahead == nullptr ? level.first : order.ahead->behind) = order.behind;
    (order.behind == nullptr ? level.last : order.behind->ahead) = order.ahead;
    if (level.first == nullptr) side(order.buy).erase(order.buy ? -std::int64_t{level.price} : level.price);
    forget(order.id);
    free_.push_back(&order);
}

void SketchBook::take(const Operation& operation) {
    Side& opposite = side(!operation.buy);
    std::uint32_t leaves = operation.quantity;
    while (leaves != 0 && !opposite.empty()) {
        Level& level = opposite.begin()->second;
        if (operation.buy ? level.price > operation.price : level.price < operation.price) return;
        Resting& maker = *level.first;
        const std::uint32_t quantity = std::min(leaves, maker.quantity);
        trades.push_back({maker.number, level.price, quantity});
        leaves -= quantity;
        if (quantity == maker.quantity) {
            remove(maker);
        } else {
            maker.quantity -= quantity;
            level.total -= quantity;
        }
    }
}

std::size_t SketchBook::home_of(const Id& id) const {
    return std::hash<std::string_view>{}(text_of(id)) & (table_.size() - 1);
}

SketchBook::Entry& SketchBook::entry_of(const Id& id) {
    std::size_t at = home_of(id);
    while (table_[at].order != nullptr && table_[at].id != id) at = after(at);
    return table_[at];
}

void SketchBook::grow() {
    std::vector<Entry> old(table_.size() * 2);
    old.swap(table_);
    for (const Entry& entry : old) {
        if (entry.order != nullptr) entry_of(entry.id) = entry;
    }
}

// Moves back whoever the gap would hide from a search.
void SketchBook::forget(const Id& id) {
    auto gap = static_cast<std::size_t>(&entry_of(id) - table_.data());
    const std::size_t mask = table_.size() - 1;
    for (std::size_t at = after(gap); table_[at].order != nullptr; at = after(at)) {
        if (((at - home_of(table_[at].id)) & mask) < ((at - gap) & mask)) continue;
        table_[gap] = table_[at];
        gap = at;
    }
    table_[gap].order = nullptr;
}

std::vector<FlowLevel> SketchBook::levels() const {
    std::vector<FlowLevel> result;
    for (const bool buy : {true, false}) {
        for (const auto& [rank, level] : buy ? bids_ : asks_) {
            FlowLevel& line = result.emplace_back(FlowLevel{buy, level.price, level.total, 0});
            for (const Resting* order = level.first; order != nullptr; order = order->behind) ++line.orders;
        }
    }
    return result;
}

}  // namespace kavo::benchmarks
