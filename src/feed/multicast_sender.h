// The socket from which the feed's datagrams leave.
#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <string>

#include "common/bytes.h"

namespace kavo {

// Sends to a multicast group on one interface, one hop far and heard on this host too; a unicast group address works
// as well. It is the one blocking socket of the process. Nothing that goes wrong here is reported: a group or interface
// that is no dotted quad becomes 0.0.0.0, and what the network does not take is lost, as on any feed.
class MulticastSender {
public:
    MulticastSender(const std::string& group, std::uint16_t port, const std::string& interface_address);

    void send(ByteView datagram) const;

private:
    int socket_;
    sockaddr_in destination_{};
};

}  // namespace kavo
