// Shows a feed: as it arrives, or in order and with the books that follow from it; live, until a signal.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

#include "client/feed_reader.h"
#include "kavo/screen/environment.h"
#include "kavo/screen/feed_lines.h"

namespace kavo::companion {

struct FeedWishes {
    FeedAddress address;
    std::uint16_t recovery_port = 25379;  // 0: there is no service
    bool json = false;
    bool book = false;
    FeedLines::Window window;
    std::optional<std::chrono::milliseconds> longest;  // then what has arrived is still shown
};

// Returns after the first SIGINT or SIGTERM, when what had arrived has been shown; a second one ends the process.
// Throws Problem when it cannot listen there.
void show_feed(const FeedWishes& wishes);

// The same door to the feed for every verb. Throws Problem.
client::FeedReader open_feed(const FeedAddress& address);

}  // namespace kavo::companion
