// What the engine has to say to a client, until the session layer delivers it.
#pragma once

#include <cstdint>
#include <vector>

#include "engine/meo.h"

namespace kavo {

// A client towards the engine: the position of its connection in the list of all connections ever accepted.
using ClientHandle = std::int32_t;
inline constexpr ClientHandle no_client = -1;  // the owner of the synthetic market's orders

struct OutboundMessage {
    ClientHandle client;
    meo::Message message;
    bool sequenced = true;  // numbered, stored and replayed; everything the engine says today is
};

using OutboundMessages = std::vector<OutboundMessage>;

}  // namespace kavo
