#include "feed/multicast_sender.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/ip.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <string>

#include "common/socket.h"
#include "support/said.h"

namespace kavo {
namespace {

using test::said_during;

constexpr int longest_wait_ms = 5000;
constexpr char group[] = "233.54.28.111";

// A UDP socket on a port of its own that tells how far each datagram was allowed to travel.
class Receiver {
public:
    explicit Receiver(std::uint32_t address) : socket_(::socket(AF_INET, SOCK_DGRAM, 0)) {
        sockaddr_in name{};
        name.sin_family = AF_INET;
        name.sin_addr.s_addr = htonl(address);
        EXPECT_EQ(bind(socket_, reinterpret_cast<const sockaddr*>(&name), sizeof name), 0);
        socklen_t size = sizeof name;
        getsockname(socket_, reinterpret_cast<sockaddr*>(&name), &size);
        port_ = ntohs(name.sin_port);
        const int on = 1;
        setsockopt(socket_, IPPROTO_IP, IP_RECVTTL, &on, sizeof on);
    }
    Receiver(const Receiver&) = delete;
    Receiver& operator=(const Receiver&) = delete;
    ~Receiver() { close_socket(socket_); }

    void join() const {
        const ip_mreq membership{to_address(group), to_address("127.0.0.1")};
        ASSERT_EQ(setsockopt(socket_, IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof membership), 0);
    }
    std::uint16_t port() const { return port_; }

    // The next datagram; `hops` becomes the number of hops it had left.
    std::string receive(int& hops) const {
        pollfd waiting{socket_, POLLIN, 0};
        if (poll(&waiting, 1, longest_wait_ms) != 1) return "nothing";
        std::array<char, 2000> text{};
        alignas(cmsghdr) std::array<char, 256> control{};
        iovec part{text.data(), text.size()};
        msghdr message{};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        const ssize_t count = recvmsg(socket_, &message, 0);
        const cmsghdr* header = CMSG_FIRSTHDR(&message);
        if (header != nullptr && header->cmsg_type == IP_TTL) std::memcpy(&hops, CMSG_DATA(header), sizeof hops);
        return {text.data(), static_cast<std::size_t>(count)};
    }

private:
    int socket_;
    std::uint16_t port_ = 0;
};

TEST(MulticastSender, IsHeardByTheGroupOnThisHostOneHopAway) {
    const Receiver receiver(INADDR_ANY);
    receiver.join();
    const MulticastSender sender(group, receiver.port(), "127.0.0.1");
    sender.send(as_bytes("a datagram"));
    int hops = 0;
    EXPECT_EQ(receiver.receive(hops), "a datagram");
    EXPECT_EQ(hops, 1);
}

TEST(MulticastSender, AsksForOneInterfaceOneHopAndToBeHeardOnThisHost) {
    const int next_socket = ::socket(AF_INET, SOCK_DGRAM, 0);  // the lowest free descriptor, which the sender gets
    close_socket(next_socket);
    const MulticastSender sender(group, 25377, "127.0.0.1");
    std::uint8_t hops = 0;
    std::uint8_t heard_here = 0;
    in_addr interface {};
    socklen_t size = sizeof hops;
    ASSERT_EQ(getsockopt(next_socket, IPPROTO_IP, IP_MULTICAST_TTL, &hops, &size), 0);
    ASSERT_EQ(getsockopt(next_socket, IPPROTO_IP, IP_MULTICAST_LOOP, &heard_here, &size), 0);
    size = sizeof interface;
    ASSERT_EQ(getsockopt(next_socket, IPPROTO_IP, IP_MULTICAST_IF, &interface, &size), 0);
    EXPECT_EQ(hops, 1);
    EXPECT_EQ(heard_here, 1);
    EXPECT_EQ(ntohl(interface.s_addr), INADDR_LOOPBACK);
}

TEST(MulticastSender, SendsToASingleReceiverAsWell) {
    const Receiver receiver(INADDR_LOOPBACK);
    const MulticastSender sender("127.0.0.1", receiver.port(), "127.0.0.1");
    sender.send(as_bytes("first"));
    sender.send(as_bytes("second"));
    int hops = 0;
    EXPECT_EQ(receiver.receive(hops), "first");
    EXPECT_EQ(receiver.receive(hops), "second");
}

TEST(MulticastSender, SendsADatagramOfFullSizeInOnePiece) {
    const Receiver receiver(INADDR_LOOPBACK);
    const MulticastSender sender("127.0.0.1", receiver.port(), "127.0.0.1");
    const std::string full(1400, 'x');
    sender.send(as_bytes(full));
    int hops = 0;
    EXPECT_EQ(receiver.receive(hops), full);
}

TEST(MulticastSender, SaysNothingAboutAnInterfaceThatIsNoAddress) {
    const Receiver receiver(INADDR_LOOPBACK);
    const std::string said = said_during([&] {
        const MulticastSender sender("127.0.0.1", receiver.port(), "eth0");
        sender.send(as_bytes("sent all the same"));
    });
    EXPECT_EQ(said, "");
    int hops = 0;
    EXPECT_EQ(receiver.receive(hops), "sent all the same");
}

TEST(MulticastSender, SaysNothingWhenTheNetworkTakesNothing) {
    const std::string said = said_during([] {
        const MulticastSender sender("no group", 0, "no interface");
        sender.send(as_bytes("to nobody"));
    });
    EXPECT_EQ(said, "");
}

}  // namespace
}  // namespace kavo
