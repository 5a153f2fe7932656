#include "support/still_world.h"

namespace kavo::model {

World StillWorld::around_venue() {
    return {.steady_ms = [this] { return steady_ms; },
            .wall_ns = [this] { return wall_ns; },
            .stamp_ns = [this] { return wall_ns; },
            .publish = [this](const Bytes& message) { return publish(message); },
            .order_truth = [this](const std::string& line) { order_truth.push_back(line); },
            .book_truth = [this](const std::string& line) { book_truth.push_back(line); },
            .commentary = [this](const std::string& line) { commentary.push_back(line); }};
}

std::uint64_t StillWorld::publish(const Bytes& message) {
    for (const Bytes& due : announcing_.announced(message, wall_ns)) {
        feed.push_back(due);
        ++feed_sequence;
    }
    return feed_sequence;
}

}  // namespace kavo::model
