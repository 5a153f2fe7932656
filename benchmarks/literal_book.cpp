#include "literal_book.h"

#include <algorithm>

namespace kavo::benchmarks {

namespace {

template <typename Side>
void erase(Side& side, Price price, std::uint64_t number) {
    const auto level = side.find(price);
    auto& queue = level->second;
    queue.erase(std::find_if(queue.begin(), queue.end(), [&](const auto& order) { return order.number == number; }));
    if (queue.empty()) side.erase(level);
}

template <typename Side>
void append_levels(std::vector<FlowLevel>& out, bool buy, const Side& side) {
    for (const auto& [price, queue] : side) {
        FlowLevel& line = out.emplace_back(FlowLevel{buy, price, 0, queue.size()});
        for (const auto& order : queue) line.total += order.quantity;
    }
}

}  // namespace

void LiteralBook::apply(const Operation& operation) {
    switch (operation.act) {
        case Act::add: return rest(next_number_++, operation);
        case Act::cancel: take_out(std::string(text_of(operation.target))); return;
        case Act::replace: return rest(take_out(std::string(text_of(operation.target))).number, operation);
        case Act::take: return operation.buy ? trade(asks_, operation) : trade(bids_, operation);
    }
}

void LiteralBook::rest(std::uint64_t number, const Operation& operation) {
    const std::string id(text_of(operation.id));
    Queue& queue = operation.buy ? bids_[operation.price] : asks_[operation.price];
    queue.push_back({number, id, operation.quantity});
    places_[id] = {number, operation.buy, operation.price};
}

LiteralBook::Place LiteralBook::take_out(const std::string& id) {
    const auto found = places_.find(id);
    const Place place = found->second;
    places_.erase(found);
    if (place.buy) {
        erase(bids_, place.price, place.number);
    } else {
        erase(asks_, place.price, place.number);
    }
    return place;
}

template <typename Side>
void LiteralBook::trade(Side& side, const Operation& operation) {
    std::uint32_t leaves = operation.quantity;
    while (leaves != 0 && !side.empty() && !side.key_comp()(operation.price, side.begin()->first)) {
        auto& [price, queue] = *side.begin();
        Resting& maker = queue.front();
        const std::uint32_t quantity = std::min(leaves, maker.quantity);
        trades.push_back({maker.number, price, quantity});
        leaves -= quantity;
        maker.quantity -= quantity;
        if (maker.quantity != 0) continue;
        places_.erase(maker.id);
        queue.pop_front();
        if (queue.empty()) side.erase(side.begin());
    }
}

std::vector<FlowLevel> LiteralBook::levels() const {
    std::vector<FlowLevel> result;
    append_levels(result, true, bids_);
    append_levels(result, false, asks_);
    return result;
}

}  // namespace kavo::benchmarks
