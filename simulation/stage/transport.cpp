// Connections without sockets: bytes lie with the peer until its owner reads them, or with the venue until it does.
#include <algorithm>
#include <utility>

#include "stage/stage.h"

namespace kavo::simulation {

namespace {

void append(Bytes& bytes, ByteView more) {
    bytes.insert(bytes.end(), more.begin(), more.end());
}

}  // namespace

Transport Stage::transport(Peers& peers) {
    return {
        .accept =
            [this, &peers](bool& exhausted) {
                exhausted = plan_.descriptors_run_out && !peers.calling.empty() && dice_.one_in(3);
                const int fd = exhausted ? no_socket : accept(peers);
                if (fd == no_socket) tape_.push_back(entry_of(What::nobody_calls, 0));
                return fd;
            },
        .read = [this, &peers](int fd, Bytes& buffer, bool& arrived, bool) { return read(peers, fd, buffer, arrived); },
        .send = [this, &peers](int fd, ByteView bytes, bool more) { return hand_over(peers, fd, bytes, more); },
        .push = [this](int fd) { push(fd); },
        .unacknowledged = [](int) { return std::size_t{0}; },
        .finish = [this, &peers](int fd) { finish(peers, fd); },
        .close = [this, &peers](int fd) { close(peers, fd); },
        .accepts_limit = plan_.limits.accepts,
        .send_limit_bytes = plan_.limits.send_bytes,
    };
}

Peer& Stage::connect(Peers& peers) {
    Peer& peer = peers_.emplace_back();
    peers.calling.push_back(&peer);
    return peer;
}

int Stage::accept(Peers& peers) {
    if (peers.calling.empty()) return no_socket;
    Peer& peer = *peers.calling.front();
    peers.calling.erase(peers.calling.begin());
    peer.fd = free_descriptor();
    peer.accepted = true;
    peers.open[peer.fd] = &peer;
    tape_.push_back(entry_of(peers.connected, peer.fd));
    return peer.fd;
}

// The lowest one, as the system does, so that descriptors are used again at once.
int Stage::free_descriptor() const {
    int fd = first_fd;
    while (clients_.open.contains(fd) || receivers_.open.contains(fd)) ++fd;
    return fd;
}

void Stage::poll() {
    // A listener at which nobody could be accepted is not watched.
    OrderEntry& order_entry = venue_->order_entry;
    Retransmission& retransmission = venue_->retransmission;
    order_entry.clients_waiting = order_entry.accept_exhausted() || !clients_.calling.empty();
    retransmission.connections_waiting = retransmission.accept_exhausted() || !receivers_.calling.empty();
    for (const ClientHandle handle : venue_->order_entry.open_clients()) {
        MeoClient& client = venue_->order_entry.client(handle);
        if (client.open() && find_readable(clients_, client.fd)) client.readable = true;
    }
    for (RConn& connection : venue_->retransmission.connections()) {
        if (connection.outgoing.empty() && find_readable(receivers_, connection.fd)) connection.readable = true;
    }
}

bool Stage::find_readable(const Peers& peers, int fd) {
    const Peer& peer = *peers.open.at(fd);
    if (!peer.gone && peer.to_venue.empty()) return false;
    tape_.push_back(entry_of(What::readable, fd));
    return true;
}

ReadEnd Stage::read(Peers& peers, int fd, Bytes& buffer, bool& arrived) {
    Peer& peer = *peers.open.at(fd);
    const Bytes bytes = std::exchange(peer.to_venue, {});
    arrived = !bytes.empty();
    append(buffer, bytes);
    record(peer.gone ? entry_of(peers.gone, fd) : entry_of(peers.bytes, fd, bytes));
    return peer.gone ? ReadEnd::gone : ReadEnd::open;
}

std::optional<std::size_t> Stage::hand_over(Peers& peers, int fd, ByteView bytes, bool more_follows) {
    Peer& peer = *peers.open.at(fd);
    const std::size_t taken = peer.gone ? 0 : std::min(bytes.size(), peer.room);
    if (peer.room != Peer::unlimited) peer.room -= taken;
    tape_.push_back(sent_entry(peers.sent, fd, bytes, taken, more_follows));
    append(peer.waiting, bytes.first(taken));
    if (!more_follows && taken != 0) append(peer.inbox, std::exchange(peer.waiting, {}));
    return taken;
}

void Stage::push(int fd) {
    tape_.push_back(entry_of(What::packets_pushed, fd));
    Peer& peer = *clients_.open.at(fd);
    append(peer.inbox, std::exchange(peer.waiting, {}));
}

void Stage::finish(Peers& peers, int fd) {
    tape_.push_back(entry_of(peers.finished, fd));
    peers.open.at(fd)->closed = true;
}

// What waits for another packet stays where it is: a real connection would have sent it, but the venue must not rely on
// that.
void Stage::close(Peers& peers, int fd) {
    tape_.push_back(entry_of(peers.closed, fd));
    peers.open.at(fd)->closed = true;
    peers.open.erase(fd);
}

}  // namespace kavo::simulation
