// Shows the feed of a recording as show_feed shows a live one. Nobody answers in a recording, so behind a gap in it no
// book is known, until a session begins again.
#pragma once

#include <filesystem>
#include <optional>

#include "kavo/screen/feed_listener.h"

namespace kavo::companion {

// What a recording holds besides the feed is passed over. Where neither the command line nor a bench.json beside the
// recording tells which group and port the feed has, it is those of the first datagram that can be read as one.
//   path  a capture, or the folder of a run
// Throws Problem when there is no such file, no feed in it, and at its end when it is cut short.
void show_recorded_feed(const std::filesystem::path& path, const AskedFeed& asked, const FeedWishes& wishes);

}  // namespace kavo::companion
