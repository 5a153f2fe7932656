#include "feed/multicast_sender.h"

#include <sys/socket.h>

#include "common/socket.h"

namespace kavo {

MulticastSender::MulticastSender(const std::string& group, std::uint16_t port, const std::string& interface_address)
    : socket_(::socket(AF_INET, SOCK_DGRAM, 0)) {
    destination_.sin_family = AF_INET;
    destination_.sin_port = htons(port);
    destination_.sin_addr = to_address(group);

    const in_addr interface = to_address(interface_address);
    const std::uint8_t one_hop = 1;
    const std::uint8_t heard_here = 1;
    setsockopt(socket_, IPPROTO_IP, IP_MULTICAST_IF, &interface, sizeof interface);
    setsockopt(socket_, IPPROTO_IP, IP_MULTICAST_TTL, &one_hop, sizeof one_hop);
    setsockopt(socket_, IPPROTO_IP, IP_MULTICAST_LOOP, &heard_here, sizeof heard_here);
}

void MulticastSender::send(ByteView datagram) const {
    [[maybe_unused]] const ssize_t ignored =
        sendto(socket_, datagram.data(), datagram.size(), 0, reinterpret_cast<const sockaddr*>(&destination_),
               sizeof destination_);
}

}  // namespace kavo
