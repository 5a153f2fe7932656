// What surrounds a venue of the model in a test: clocks that are set by hand and stand still while anything happens, a
// feed, and all that was published and written down since it was last taken.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "model/feed.h"
#include "model/venue.h"

namespace kavo::model {

struct StillWorld {
    StillWorld() = default;
    StillWorld(const StillWorld&) = delete;  // the venue's functions point here
    StillWorld& operator=(const StillWorld&) = delete;

    World around_venue();

    std::uint64_t steady_ms = 5'000'000;
    std::uint64_t wall_ns = 1'700'000'000'123'456'789;
    std::vector<Bytes> feed;
    std::uint64_t feed_sequence = 0;  // number of the last message
    std::vector<std::string> order_truth;
    std::vector<std::string> book_truth;
    std::vector<std::string> commentary;

private:
    std::uint64_t publish(const Bytes& message);

    Feed announcing_{1};  // knows when a second is to be announced
};

}  // namespace kavo::model
