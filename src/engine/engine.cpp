#include "engine/engine.h"

namespace kavo {

Engine::Engine(DomFeed& feed, Generator& generator, const EngineSettings& settings, Bench& bench, const Clock& clock,
               const Commentary& commentary)
    : books(feed, settings.session),
      market(generator, settings),
      settings_(settings),
      bench_(bench),
      clock_(clock),
      commentary_(commentary),
      live_ids_(books.orders()),
      last_tick_ms_(clock.steady_ms()) {}

void Engine::start_session(ClientHandle client, OutboundMessages& answers) const {
    answers.push_back({client, build(meo::StartOfSession{clock_.wall_ns(), settings_.session})});
    for (const Product& product : books.products()) {
        answers.push_back(
            {client, build(meo::SymbolUpdate{clock_.wall_ns(), product.id, product.symbol, product.listing_market})});
    }
}

Order* Engine::find_own(ClientHandle client, const meo::ClientOrderId& id) {
    Order* order = live_ids_.find(id);
    return order != nullptr && order->owner == client ? order : nullptr;
}

}  // namespace kavo
