// Connections without sockets: bytes lie with the peer until its owner reads them, or with the venue until it does.
#include <utility>

#include "stage/stage.h"

namespace kavo::simulation {

namespace {

void append(Bytes& bytes, ByteView more) {
    bytes.insert(bytes.end(), more.begin(), more.end());
}

}  // namespace

Peer& Stage::connect(std::vector<Peer*>& calls) {
    Peer& peer = peers_.emplace_back();
    calls.push_back(&peer);
    return peer;
}

// The lowest one, as the system does, so that descriptors are used again at once.
int Stage::free_descriptor() const {
    int fd = first_fd;
    while (clients_.contains(fd) || receivers_.contains(fd)) ++fd;
    return fd;
}

ClientWire Stage::client_wire() {
    return {[this](int fd, ByteView packet, bool more_follows) { hand_over(fd, packet, more_follows); },
            [this](int fd) { push(fd); }, [this](int fd) { close(clients_, What::client_closed, fd); }};
}

void Stage::hand_over(int fd, ByteView packet, bool more_follows) {
    tape_.push_back(entry_of(What::packet_sent, fd, packet, more_follows));
    const auto peer = clients_.find(fd);
    if (peer == clients_.end() || peer->second->takes_nothing) return;
    append(peer->second->waiting, packet);
    if (!more_follows) append(peer->second->inbox, std::exchange(peer->second->waiting, {}));
}

void Stage::push(int fd) {
    tape_.push_back(entry_of(What::packets_pushed, fd));
    const auto peer = clients_.find(fd);
    if (peer != clients_.end()) append(peer->second->inbox, std::exchange(peer->second->waiting, {}));
}

ReceiverWire Stage::receiver_wire() {
    return {[this](int fd, ByteView bytes) {
                const auto peer = receivers_.find(fd);
                const bool taken = peer != receivers_.end() && !peer->second->gone && !peer->second->takes_nothing;
                tape_.push_back(entry_of(What::reply_sent, fd, bytes, taken));
                if (taken) append(peer->second->inbox, bytes);
                return taken;
            },
            [this](int fd) { close(receivers_, What::receiver_closed, fd); }};
}

// What waits for another packet stays where it is: a real connection would have sent it, but the venue must not rely on
// that.
void Stage::close(Peers& peers, What what, int fd) {
    tape_.push_back(entry_of(what, fd));
    const auto peer = peers.find(fd);
    if (peer == peers.end()) return;
    peer->second->closed = true;
    peers.erase(peer);
}

}  // namespace kavo::simulation
