// Orders that go away without a cancel request: those of a dropped client, and scripted unsolicited cancels.
#include "engine/engine.h"

namespace kavo {

void Engine::client_dropped(ClientHandle client, const std::string& username) {
    std::size_t count = 0;
    if (!settings_.acod) {
        for (const Order* order = open_orders_.first_of(client); order != nullptr; order = order->later) ++count;
        commentary_.say("bench: ACOD off (Do Not Cancel All Open Orders): %zu open order(s) of %s stay on the book\n",
                        count, username.c_str());
        return;
    }
    const Event event{clock_.wall_ns(), outbox};
    while (Order* order = open_orders_.first_of(client)) {
        cancel_resting(*order, meo::SystemCancelReason::disconnect, "disconnect", event);
        ++bench_.counters.disconnect_cancels;
        ++count;
    }
    commentary_.say("bench: ACOD (Cancel All Open Orders): cancelled %zu open order(s) of %s on disconnect\n", count,
                    username.c_str());
}

void Engine::cancel_unsolicited() {
    const std::uint64_t now_ms = clock_.steady_ms();
    const Event event{clock_.wall_ns(), outbox};
    for (; !pending_cancels_.empty() && pending_cancels_.front().due_ms <= now_ms; pending_cancels_.pop_front()) {
        const PendingCancel& pending = pending_cancels_.front();
        Order* order = live_ids_.find(pending.client_order_id);
        if (order == nullptr) continue;
        ++bench_.counters.unsolicited_cancels;
        commentary_.say("bench: unsolicited cancel of %s (helpdesk; the client must mark it cancelled)\n",
                        pending.client_order_id.str().c_str());
        cancel_resting(*order, meo::SystemCancelReason::unsolicited, "unsolicited", event);
    }
}

}  // namespace kavo
