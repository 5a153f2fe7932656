// The match loop: an incoming order against the best levels of the other side, in price-time order.
#include <algorithm>
#include <limits>

#include "engine/engine.h"

namespace kavo {

// How far an order goes: to its price, or to any price when it has none.
Price Engine::reach(const Order& order) {
    if (order.price != 0) return order.price;
    return order.buy ? std::numeric_limits<Price>::max() : 0;
}

// Nobody asks whose orders meet: a client may trade with itself.
void Engine::match(Product& product, Order& incoming, std::uint64_t now_ns, OutboundMessages& answers) {
    const BookSide& opposite = product.side(!incoming.buy);
    while (incoming.leaves != 0 && opposite.crossed_by(reach(incoming))) {
        Order& maker = *opposite.best()->first;
        const std::uint32_t quantity = std::min(incoming.leaves, maker.leaves);
        const Price price = maker.price;
        const std::uint64_t match_number = fill_resting(maker, quantity, now_ns, PartialFills::allowed);
        incoming.leaves -= quantity;
        if (!incoming.has_owner()) continue;
        const Trade trade{now_ns, match_number, price, quantity, meo::Liquidity::removed};
        report_fill(incoming, trade, incoming.leaves, answers);
    }
}

}  // namespace kavo
