#include "engine/books.h"

#include <algorithm>

#include "feed/dom_messages.h"

namespace kavo {

namespace {

void show(const BookSide& side, std::vector<BookView::Level>& shown) {
    shown.clear();
    for (const auto& [rank, level] : side.levels()) {
        if (shown.size() == BookView::most_levels) return;
        shown.push_back({level.price, level.total});
    }
}

void show(const Product& product, BookView& view) {
    view.symbol = product.symbol;
    view.secid = product.id;
    show(product.bids, view.bids);
    show(product.asks, view.asks);
    view.last = product.last;
    view.volume = product.volume;
}

std::string_view attribution_of(const Order& order) {
    switch (order.flags.attribution()) {
        case meo::attributed_to_participant: return order.mpid.view();
        case meo::attributed_to_retail: return meo::retail_attribution;
        default: return "";
    }
}

dom::AddOrder added(const Order& order) {
    return {.secid = order.product_id,
            .order_id = order.id,
            .side = order.side(),
            .price = to_wire(order.price),
            .quantity = order.leaves,
            .attribution = attribution_of(order)};
}

dom::SeriesDefinition definition(const Product& product) {
    return {.secid = product.id, .symbol = product.symbol, .listing_market = product.listing_market};
}

}  // namespace

Books::Books(DomFeed& feed, std::uint8_t session) : feed_(feed), session_(session) {
    install_state_builders();
}

void Books::add_product(std::string_view symbol, double reference) {
    Product product;
    product.symbol = symbol;
    product.id = static_cast<std::uint32_t>(products_.size() + 1);
    product.listing_market = symbol == "SPY" ? 'P' : 'Q';  // this one ticker lists elsewhere, deliberately by name
    product.reference = reference;
    products_.push_back(std::move(product));
}

void Books::publish_definitions() {
    feed_.publish_timed(build(dom::SystemState{.session = session_}));
    for (const Product& product : products_) feed_.publish_timed(build(definition(product)));
    for (const Product& product : products_) feed_.publish_timed(build(dom::SeriesOpen{.secid = product.id}));
    for (const Product& product : products_) feed_.publish_timed(build(dom::SeriesTradingStatus{.secid = product.id}));
}

Order& Books::create(std::uint32_t product_id) {
    Order& order = orders_.take(next_order_id_++);
    order.product_id = product_id;
    return order;
}

void Books::add(Order& order) {
    put(order);
    feed_.publish_timed(build(added(order)));
    write_truth(of(order));
}

void Books::replace(Order& order, Price price, std::uint32_t leaves) {
    const bool lost_priority = price != order.price || leaves > order.leaves;
    take_off(order);
    order.price = price;
    order.leaves = leaves;
    put(order);
    feed_.publish_timed(build(dom::ModifyOrder{.secid = order.product_id,
                                               .order_id = order.id,
                                               .price = to_wire(price),
                                               .quantity = leaves,
                                               .lost_priority = lost_priority}));
    write_truth(of(order));
}

Trade Books::execute(Order& order, std::uint32_t quantity) {
    const Trade trade{next_match_number_++, order.price, quantity};
    feed_.publish_timed(build(dom::OrderExecuted{.secid = order.product_id,
                                                 .order_id = order.id,
                                                 .match_number = trade.match_number,
                                                 .price = to_wire(trade.price),
                                                 .quantity = quantity,
                                                 .resting_sell = !order.buy}));
    Product& product = of(order);
    product.last = trade.price;
    product.volume += quantity;
    if (quantity < order.leaves) {
        product.side(order.buy).reduce(order, quantity);
    } else {
        take_off(order);
        order.leaves = 0;
    }
    write_truth(product);
    return trade;
}

void Books::remove(Order& order) {
    take_off(order);
    feed_.publish_timed(build(dom::DeleteOrder{.secid = order.product_id, .order_id = order.id}));
    write_truth(of(order));
}

void Books::put(Order& order) {
    Product& product = of(order);
    product.side(order.buy).add(order);
    ++resting_orders_;
    if (!order.has_owner()) product.synthetic.push_back(&order);
}

void Books::take_off(Order& order) {
    Product& product = of(order);
    product.side(order.buy).remove(order);
    --resting_orders_;
    if (order.has_owner()) return;
    std::vector<Order*>& synthetic = product.synthetic;
    synthetic.erase(std::ranges::lower_bound(synthetic, order.id, {}, &Order::id));
}

// Written on every change of a book, so the log keeps its lines back; a mark and a normal end flush them.
void Books::write_truth(const Product& product) {
    if (!truth.is_on()) return;
    show(product, view_);
    line_.clear();
    append_book_change(line_, feed_.last_sequence(), view_);
    truth.write(line_);
}

const Product* Books::find(std::uint32_t product_id) const {
    return product_id == 0 || product_id > products_.size() ? nullptr : &products_[product_id - 1];
}

std::vector<BookView> Books::views() const {
    std::vector<BookView> views(products_.size());
    for (std::size_t i = 0; i < products_.size(); ++i) show(products_[i], views[i]);
    return views;
}

void Books::install_state_builders() {
    feed_.state.system_state = [this](const DomFeed::MessageSink& sink) {
        sink(build(dom::SystemState{.session = session_}));
    };
    feed_.state.series_definitions = [this](const DomFeed::MessageSink& sink) {
        for (const Product& product : products_) sink(build(definition(product)));
    };
    feed_.state.series_trading_status = [this](const DomFeed::MessageSink& sink) {
        for (const Product& product : products_) sink(build(dom::SeriesTradingStatus{.secid = product.id}));
    };
    feed_.state.resting_orders = [this](const DomFeed::MessageSink& sink) {
        for (const Product& product : products_) {
            for (const BookSide* side : {&product.bids, &product.asks}) {
                for (const auto& [rank, level] : side->levels()) {
                    for (const Order* order = level.first; order != nullptr; order = order->behind)
                        sink(build(added(*order)));
                }
            }
        }
    };
}

}  // namespace kavo
