#include "kavo/bench/ports.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "kavo/basics/problem.h"

namespace kavo::companion {
namespace {

Descriptor bound(int type, in_addr_t address, std::uint16_t port) {
    Descriptor socket{::socket(AF_INET, type, 0)};
    const int on = 1;
    setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_port = htons(port);
    name.sin_addr.s_addr = htonl(address);
    EXPECT_EQ(bind(socket.get(), reinterpret_cast<const sockaddr*>(&name), sizeof name), 0);
    return socket;
}

std::uint16_t first_of(const PortLease& lease) {
    return static_cast<std::uint16_t>(lease.ports.orders - 1);
}

TEST(BlocksOfPorts, LieBelowWhatTheSystemHandsOut) {
    EXPECT_EQ(blocks_beside(10'020, 60'999), (std::vector<std::uint16_t>{10'000, 10'008}));
}

TEST(BlocksOfPorts, LieAboveWhereThereIsNoRoomBelow) {
    EXPECT_EQ(blocks_beside(1024, 65'519), (std::vector<std::uint16_t>{65'520, 65'528}));
    EXPECT_TRUE(blocks_beside(1024, 65'535).empty());
}

// 25377, 25379 and 28700 are in 25376..25383 and 28696..28703.
TEST(BlocksOfPorts, LeaveTheSimulatorsDefaultsToWhoeverStartsItByHand) {
    const auto blocks = blocks_beside(32'768, 60'999);
    EXPECT_EQ(std::count(blocks.begin(), blocks.end(), 25'376), 0);
    EXPECT_EQ(std::count(blocks.begin(), blocks.end(), 28'696), 0);
    EXPECT_EQ(blocks.size(), 2846 - 2);  // 22768 ports
}

TEST(PortLease, HoldsSixPortsOfItsBlockBesideTheOneThatIsBound) {
    const PortLease lease = lease_ports();
    const BenchPorts& p = lease.ports;
    const std::uint16_t first = first_of(lease);
    EXPECT_EQ(
        (std::vector{p.orders, p.recovery, p.orders_behind, p.recovery_behind, p.feed, p.control}),
        (std::vector<std::uint16_t>{static_cast<std::uint16_t>(first + 1), static_cast<std::uint16_t>(first + 2),
                                    static_cast<std::uint16_t>(first + 3), static_cast<std::uint16_t>(first + 4),
                                    static_cast<std::uint16_t>(first + 5), static_cast<std::uint16_t>(first + 6)}));
}

TEST(PortLease, KeepsOthersAwayUntilItEnds) {
    PortLease lease = lease_ports();
    const std::uint16_t first = first_of(lease);
    EXPECT_FALSE(lease_block(first));
    lease.held.reset();
    EXPECT_TRUE(lease_block(first));
}

// The venue binds its ports to all addresses, and over UDP two who both share a port would not notice each other.
TEST(PortLease, PassesOverABlockInWhichAnyPortIsUsedOnAnyAddress) {
    PortLease lease = lease_ports();
    const std::uint16_t first = first_of(lease);
    lease.held.reset();
    for (const int type : {SOCK_STREAM, SOCK_DGRAM}) {
        for (int i = 1; i < 8; ++i) {
            const Descriptor used = bound(type, INADDR_LOOPBACK + 1, static_cast<std::uint16_t>(first + i));
            EXPECT_FALSE(lease_block(first)) << type << " " << i;
        }
    }
    EXPECT_TRUE(lease_block(first));
}

TEST(PortLease, SaysSoWhenAPortIsTakenAfterAll) {
    const PortLease lease = lease_ports();
    const Descriptor taken = bound(SOCK_STREAM, INADDR_LOOPBACK, lease.ports.orders);
    try {
        listen_on(lease.ports.orders);
        FAIL();
    } catch (const Problem& problem) {
        EXPECT_EQ(problem.status, Status::bench);
        EXPECT_EQ(std::string(problem.what()), "cannot listen on port " + std::to_string(lease.ports.orders) +
                                                   ": Address already in use. Somebody took it just now; try again.");
    }
}

}  // namespace
}  // namespace kavo::companion
