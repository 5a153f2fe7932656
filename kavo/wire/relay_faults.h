// What the relay does to the connections of one user, besides passing everything on at once. Each direction on its own:
// "up" is from the client to the venue.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace kavo::companion {

struct DirectionFaults {
    std::chrono::milliseconds latency{0};
    std::uint64_t bytes_per_second = 0;  // 0 is without limit
    std::size_t piece = 0;               // bytes that are passed on at a time, each in a segment of its own; 0 is all
    bool hold = false;                   // nothing is passed on; what comes waits, and goes when this is over
    std::uint32_t swallow = 0;           // so many whole packets to come are thrown away, heartbeats not counted
    bool half = false;                   // of the next packet, no heartbeat, half is passed on; then comes a cut
};

struct RelayFaults {
    DirectionFaults up;
    DirectionFaults down;
};

// How a connection is ended by the relay. `cut` closes both sides in good order, `reset` with a reset on both.
// `abandon` resets the client's side, and leaves the venue's open, as when a machine has vanished.
enum class Breaking { cut, reset, abandon };

}  // namespace kavo::companion
