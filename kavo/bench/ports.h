// Ports of a bench's own. Benches lease blocks of eight ports, below the range from which the system hands out ports
// itself. The first port of a block is the lease: it is bound over TCP for as long as anything of the bench lives, so
// that no other bench takes the block, be it another user's. A bench probes the rest before it uses them, since others
// than benches know nothing of leases; over UDP two who both share an address would not even notice.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "kavo/bench/descriptor.h"

namespace kavo::companion {

struct BenchPorts {
    std::uint16_t orders = 0;  // where clients connect
    std::uint16_t recovery = 0;
    std::uint16_t orders_behind = 0;  // where the venue listens, behind the relay
    std::uint16_t recovery_behind = 0;
    std::uint16_t feed = 0;
    std::uint16_t control = 0;
};

struct PortLease {
    BenchPorts ports;
    Descriptor held;  // what keeps others away; none is needed in a network of one's own
};

// Leases some block, beginning to look at a random one. Throws Problem when all are taken.
PortLease lease_ports();
// The simulator's own defaults, for a network in which there is nobody else.
BenchPorts default_ports();

// A socket that listens on this port of 127.0.0.1. Throws Problem when it is taken.
Descriptor listen_on(std::uint16_t port);

// The first ports of all blocks that may be leased when the system hands out `lowest` to `highest` itself. The
// simulator's defaults are in none, for whoever starts it by hand meanwhile.
std::vector<std::uint16_t> blocks_beside(std::uint16_t lowest, std::uint16_t highest);
// Nothing when any port of the block is in use, over TCP or UDP, on any address.
std::optional<PortLease> lease_block(std::uint16_t first);

}  // namespace kavo::companion
