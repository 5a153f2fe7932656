#include "memory/memory_peers.h"

#include <algorithm>
#include <utility>

namespace kavo {

Transport MemoryPeers::transport() {
    return {
        .accept =
            [this](bool& none_left) {
                none_left = exhausted && !calling.empty();
                if (exhausted || calling.empty()) return no_socket;
                const int fd = calling.front();
                calling.pop_front();
                return fd;
            },
        .read = [this](int fd, Bytes& buffer, bool& arrived, bool) { return read(fd, buffer, arrived); },
        .send = [this](int fd, ByteView bytes, bool more_follows) { return send(fd, bytes, more_follows); },
        .push = [this](int fd) { peers[fd].waiting = false; },
        .unacknowledged = [this](int fd) { return peers[fd].unacknowledged; },
        .finish = [this](int fd) { peers[fd].finished = true; },
        .close = [this](int fd) { ++peers[fd].closed; },
    };
}

ReadEnd MemoryPeers::read(int fd, Bytes& buffer, bool& arrived) {
    MemoryPeer& peer = peers[fd];
    const Bytes bytes = std::exchange(peer.sends, {});
    arrived = !bytes.empty();
    buffer.insert(buffer.end(), bytes.begin(), bytes.end());
    const bool closes_too = peer.finished && !peer.stays;
    return peer.ended || peer.broken || closes_too ? ReadEnd::gone : ReadEnd::open;
}

std::optional<std::size_t> MemoryPeers::send(int fd, ByteView bytes, bool more_follows) {
    MemoryPeer& peer = peers[fd];
    if (peer.broken) return std::nullopt;
    const ByteView taken = bytes.first(std::min(bytes.size(), peer.room));
    if (taken.empty()) return 0;
    if (peer.room != MemoryPeer::unlimited) peer.room -= taken.size();
    peer.received.insert(peer.received.end(), taken.begin(), taken.end());
    peer.packets.emplace_back(taken.begin(), taken.end());
    peer.more_follows.push_back(more_follows);
    peer.waiting = more_follows;
    when_sent(fd);
    return taken.size();
}

}  // namespace kavo
