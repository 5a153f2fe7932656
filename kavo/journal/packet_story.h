// A packet of either TCP service in plain words.
#pragma once

#include "kavo/journal/story.h"

namespace kavo::companion {

// All but whose it is.
StoryEntry story_of(const WirePacket& packet, Service service);

// Heartbeats, and what the recovery service sends again: so many that nobody wants to read them unasked.
bool is_commonplace(const WirePacket& packet, Service service);

}  // namespace kavo::companion
