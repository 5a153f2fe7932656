#include "kavo/scene/sightings.h"

#include <algorithm>

#include "client/packets.h"
#include "client/responses.h"

namespace kavo::companion {

using Kind = SceneEvent::Kind;

void Sightings::see(const std::string& user, bool by_client, ByteView packet) {
    const ByteView payload = client::payload_of(packet);
    if (by_client) {
        if (client::has_type(packet, esesm::PacketType::unsequenced_data)) see_request(user, payload);
        if (client::has_type(packet, esesm::PacketType::logout_request)) tell(Kind::leaves, user);
    } else if (client::is_accepted_login(packet)) {
        tell(Kind::logs_in, user);
    } else if (const auto response = client::read_sequenced(packet)) {
        see_response(user, response->message);
    }
}

void Sightings::see_request(const std::string& user, ByteView message) {
    if (const auto order = meo::read_new_order(message)) tell(Kind::enters, user, order->client_order_id.view());
    if (const auto cancel = meo::read_cancel(message)) tell(Kind::cancels, user, cancel->orig_client_order_id.view());
    if (const auto replace = meo::read_replace(message))
        tell(Kind::replaces, user, replace->orig_client_order_id.view());
}

void Sightings::see_response(const std::string& user, ByteView message) {
    if (const auto order = client::read_order_accepted(message)) {
        orders_[std::string(order->client_order_id)] = {!order->flags.sell(), order->price, order->product_id};
        tell(Kind::accepted, user, order->client_order_id);
    } else if (const auto resting = client::read_order_resting(message)) {
        tell(Kind::rests, user, resting->client_order_id);
    } else if (const auto fill = client::read_execution(message)) {
        tell(Kind::filled, user, fill->client_order_id);
    } else if (const auto cancelled = client::read_order_cancelled(message)) {
        tell(Kind::ends, user, cancelled->client_order_id);
    } else if (const auto replaced = client::read_replace_notification(message)) {
        const auto original = orders_.find(std::string(replaced->orig_client_order_id));
        if (original == orders_.end()) return;
        orders_[std::string(replaced->client_order_id)] = {original->second.buy, replaced->price, replaced->product_id};
    }
}

void Sightings::tell(Kind kind, const std::string& user, std::string_view order) {
    SceneEvent event{kind, user, std::string(order)};
    if (!has_seen(event)) seen_.push_back(event);
    if (on_event) on_event(event);
}

bool Sightings::has_seen(const SceneEvent& trigger) const {
    return std::any_of(seen_.begin(), seen_.end(), [&](const SceneEvent& event) { return event.matches(trigger); });
}

std::optional<Sightings::KnownOrder> Sightings::order(const std::string& id) const {
    const auto found = orders_.find(id);
    if (found == orders_.end()) return {};
    return found->second;
}

}  // namespace kavo::companion
