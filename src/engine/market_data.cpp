// What the engine tells the feed: each change of a book, the day's definitions, and on request its present state.
#include "engine/engine.h"
#include "feed/dom_messages.h"

namespace kavo {

namespace {

std::uint32_t ns_within_second(std::uint64_t wall_ns) {
    return static_cast<std::uint32_t>(wall_ns % ns_per_second);
}

std::string_view attribution_of(const Order& order) {
    switch (order.flags.attribution()) {
        case meo::attributed_to_participant: return order.mpid.view();
        case meo::attributed_to_retail: return meo::retail_attribution;
        default: return "";
    }
}

dom::AddOrder added(const Order& order, std::uint64_t wall_ns) {
    return {ns_within_second(wall_ns), order.product_id, order.id, order.side(), to_wire(order.price), order.leaves,
            attribution_of(order)};
}

dom::SeriesDefinition definition(const Product& product, std::uint64_t wall_ns) {
    return {ns_within_second(wall_ns), product.id, product.symbol, product.listing_market};
}

}  // namespace

void Engine::publish_definitions() {
    std::uint64_t now_ns = clock_.wall_ns();
    feed_.publish_timed(build(dom::SystemState{ns_within_second(now_ns), settings_.session}), now_ns);
    for (const Product& product : products_) {
        now_ns = clock_.wall_ns();
        feed_.publish_timed(build(definition(product, now_ns)), now_ns);
    }
    for (const Product& product : products_) {
        now_ns = clock_.wall_ns();
        feed_.publish_timed(build(dom::SeriesOpen{ns_within_second(now_ns), product.id}), now_ns);
    }
    for (const Product& product : products_) {
        now_ns = clock_.wall_ns();
        feed_.publish_timed(build(dom::SeriesTradingStatus{ns_within_second(now_ns), product.id}), now_ns);
    }
}

void Engine::publish_added(const Order& order) {
    const std::uint64_t now_ns = clock_.wall_ns();
    feed_.publish_timed(build(added(order, now_ns)), now_ns);
}

void Engine::publish_modified(const Order& order, bool lost_priority) {
    const std::uint64_t now_ns = clock_.wall_ns();
    feed_.publish_timed(build(dom::ModifyOrder{ns_within_second(now_ns), order.product_id, order.id,
                                               to_wire(order.price), order.leaves, lost_priority}),
                        now_ns);
}

void Engine::publish_deleted(const Order& order) {
    const std::uint64_t now_ns = clock_.wall_ns();
    feed_.publish_timed(build(dom::DeleteOrder{ns_within_second(now_ns), order.product_id, order.id}), now_ns);
}

void Engine::publish_executed(const Order& order, const Trade& trade) {
    const std::uint64_t now_ns = clock_.wall_ns();
    feed_.publish_timed(build(dom::OrderExecuted{ns_within_second(now_ns), order.product_id, order.id,
                                                 trade.match_number, to_wire(trade.price), trade.quantity, !order.buy}),
                        now_ns);
}

void Engine::install_state_builders() {
    feed_.state.system_state = [this](const DomFeed::MessageSink& sink) {
        sink(build(dom::SystemState{ns_within_second(clock_.wall_ns()), settings_.session}));
    };
    feed_.state.series_definitions = [this](const DomFeed::MessageSink& sink) {
        for (const Product& product : products_) sink(build(definition(product, clock_.wall_ns())));
    };
    feed_.state.series_trading_status = [this](const DomFeed::MessageSink& sink) {
        for (const Product& product : products_) {
            sink(build(dom::SeriesTradingStatus{ns_within_second(clock_.wall_ns()), product.id}));
        }
    };
    feed_.state.resting_orders = [this](const DomFeed::MessageSink& sink) {
        for (const Product& product : products_) {
            for (const BookSide* side : {&product.bids, &product.asks}) {
                for (const auto& [rank, level] : side->levels()) {
                    for (const Order* order = level.first; order != nullptr; order = order->behind) {
                        sink(build(added(*order, clock_.wall_ns())));
                    }
                }
            }
        }
    };
}

}  // namespace kavo
