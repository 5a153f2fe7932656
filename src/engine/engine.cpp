#include "engine/engine.h"

namespace kavo {

Engine::Engine(DomFeed& feed, Generator& generator, const EngineSettings& settings, Bench& bench, const Clock& clock)
    : feed_(feed), generator_(generator), settings_(settings), bench_(bench), clock_(clock) {
    install_state_builders();
}

void Engine::add_product(std::string_view symbol, double reference) {
    Product product;
    product.symbol = symbol;
    product.id = static_cast<std::uint32_t>(products_.size() + 1);
    product.listing_market = symbol == "SPY" ? 'P' : 'Q';  // this one ticker lists elsewhere, deliberately by name
    product.reference = reference;
    products_.push_back(std::move(product));
}

void Engine::start_session(ClientHandle client, OutboundMessages& answers) const {
    answers.push_back({client, build(meo::StartOfSession{clock_.wall_ns(), settings_.session})});
    for (const Product& product : products_) {
        answers.push_back(
            {client, build(meo::SymbolUpdate{clock_.wall_ns(), product.id, product.symbol, product.listing_market})});
    }
}

const Product* Engine::find_product(std::uint32_t product_id) const {
    return product_id == 0 || product_id > products_.size() ? nullptr : &products_[product_id - 1];
}

Order* Engine::find_own(ClientHandle client, const meo::ClientOrderId& id) {
    Order* order = live_ids_.find(id);
    return order != nullptr && order->owner == client ? order : nullptr;
}

}  // namespace kavo
