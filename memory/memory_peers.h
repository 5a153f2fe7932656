// The peers of a service, in memory: what they send lies here until the service reads it, and what they are sent lies
// here until the test looks at it. Nothing happens by itself, so a test orders the events by hand.
#pragma once

#include <deque>
#include <functional>
#include <limits>
#include <map>
#include <vector>

#include "common/transport.h"

namespace kavo {

struct MemoryPeer {
    static constexpr std::size_t unlimited = std::numeric_limits<std::size_t>::max();

    Bytes sends;          // not read by the service yet
    bool ended = false;   // it sends nothing behind that
    bool broken = false;  // it has gone without a proper end
    bool stays = false;   // does not close when the service says that it has finished

    std::size_t room = unlimited;  // bytes that its connection still takes
    Bytes received;
    std::vector<Bytes> packets;      // the same, as the service sent it; a packet taken in part is two
    std::vector<bool> more_follows;  // for each of them
    std::size_t unacknowledged = 0;  // of the bytes received

    bool waiting = false;   // the last packet may still wait for another
    bool finished = false;  // by the service
    int closed = 0;         // by the service, so often
};

class MemoryPeers {
public:
    std::map<int, MemoryPeer> peers;                     // by descriptor
    std::deque<int> calling;                             // not accepted yet
    bool exhausted = false;                              // nobody can be accepted
    std::function<void(int fd)> when_sent = [](int) {};  // after each packet, for a test whose time passes with them

    // A new peer calls; its descriptor is a number that the test chooses.
    MemoryPeer& call(int fd) {
        calling.push_back(fd);
        return peers[fd];
    }
    // How the service meets them. This object must outlive it.
    Transport transport();

private:
    ReadEnd read(int fd, Bytes& buffer, bool& arrived);
    std::optional<std::size_t> send(int fd, ByteView bytes, bool more_follows);
};

}  // namespace kavo
