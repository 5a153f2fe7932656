// What a script can wait for, seen in the packets that pass the relay of order entry, and what is known of each order,
// so that the house can trade with it.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "common/bytes.h"
#include "common/price.h"
#include "kavo/scene/script.h"

namespace kavo::companion {

class Sightings {
public:
    // Takes a packet that has been passed on, and tells of each event in it.
    void see(const std::string& user, bool by_client, ByteView packet);
    std::function<void(const SceneEvent&)> on_event;

    bool has_seen(const SceneEvent& trigger) const;

    struct KnownOrder {
        bool buy = false;
        WirePrice price = 0;
        std::uint32_t product_id = 0;
    };
    // The latest order of that name, as the venue has confirmed it.
    std::optional<KnownOrder> order(const std::string& id) const;

private:
    void see_request(const std::string& user, ByteView message);
    void see_response(const std::string& user, ByteView message);
    void tell(SceneEvent::Kind kind, const std::string& user, std::string_view order = {});

    std::vector<SceneEvent> seen_;
    std::map<std::string, KnownOrder> orders_;
};

}  // namespace kavo::companion
