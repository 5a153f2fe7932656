// Connections come, are read, are written to and go away.
#include <algorithm>
#include <cstdio>
#include <utility>

#include "common/socket.h"
#include "session/order_entry.h"

namespace kavo {

OrderEntry::OrderEntry(Engine& engine, DomFeed& feed, Bench& bench, const Clock& clock, ClientWire wire,
                       std::uint8_t session, bool quiet)
    : engine_(engine),
      feed_(feed),
      bench_(bench),
      clock_(clock),
      wire_(std::move(wire)),
      session_(session),
      quiet_(quiet),
      scratch_(read_bytes) {}

void OrderEntry::accept_clients(int listener) {
    while (true) {
        const int fd = accept_connection(listener, accept_exhausted_);
        if (fd == no_socket) return;
        open_client(fd);
        if (!quiet_) std::fprintf(stderr, "[kavo_me] client connected (fd %d)\n", fd);
    }
}

ClientHandle OrderEntry::open_client(int fd) {
    const auto handle = static_cast<ClientHandle>(clients_.size());
    MeoClient& client = clients_.emplace_back();
    client.fd = fd;
    client.connected_ms = client.last_received_ms = client.last_sent_ms = clock_.steady_ms();
    open_.push_back(handle);
    return handle;
}

// A closed connection keeps its record, but nothing in it that takes room.
void OrderEntry::forget_closed() {
    std::erase_if(open_, [this](ClientHandle handle) {
        MeoClient& closed = client(handle);
        if (closed.open()) return false;
        closed.received = {};
        return true;
    });
}

void OrderEntry::serve_clients() {
    forget_closed();
    for (const ClientHandle handle : open_) {
        MeoClient& reading = client(handle);
        if (!reading.open() || !std::exchange(reading.readable, false)) continue;
        bool arrived = false;
        const ReadEnd end = read_available(reading.fd, scratch_, reading.received.incoming(), arrived);
        if (arrived) reading.last_received_ms = clock_.steady_ms();
        if (end == ReadEnd::gone) {
            lose_client(handle);
        } else if (arrived) {
            serve_packets(handle);
        }
    }
}

void OrderEntry::receive(ClientHandle handle, ByteView bytes) {
    MeoClient& receiving = client(handle);
    Bytes& incoming = receiving.received.incoming();
    incoming.insert(incoming.end(), bytes.begin(), bytes.end());
    receiving.last_received_ms = clock_.steady_ms();
    serve_packets(handle);
}

// What the peer sent right before it went away is not looked at any more.
void OrderEntry::lose_client(ClientHandle handle) {
    std::fprintf(stderr, "bench: client %s disconnected\n", client(handle).username.c_str());
    drop(handle, "connection lost", Announce::no);
}

// Of requests that came together, the first is answered at once, and the answers to the others leave together.
void OrderEntry::serve_packets(ClientHandle handle) {
    MeoClient& serving = client(handle);
    for (bool first = true; serving.open(); first = false) {
        const auto packet = serving.received.cut();
        if (!packet) break;
        serving.asks_more = !first && serving.received.holds_packet();
        handle_packet(handle, *packet);
    }
    if (serving.open()) push(serving);
}

void OrderEntry::handle_packet(ClientHandle handle, const esesm::ReceiveBuffer::Packet& packet) {
    MeoClient& sender = client(handle);
    switch (packet.type) {
        case esesm::PacketType::login_request: return log_in(handle, packet.payload);
        case esesm::PacketType::client_heartbeat:
        case esesm::PacketType::client_test: return;
        case esesm::PacketType::logout_request:
            std::fprintf(stderr, "bench: client %s logged out\n", sender.username.c_str());
            return drop(handle, "logout request", Announce::no);
        default: break;
    }
    if (!sender.logged_in) return say_goodbye(sender, esesm::GoodbyeReason::bad_packet, esesm::not_logged_in_text);
    if (packet.type == esesm::PacketType::unsequenced_data) dispatch(handle, packet.payload);
}

void OrderEntry::send(MeoClient& client, ByteView packet) {
    send(client, packet, clock_.steady_ms(), false);
}

void OrderEntry::send(MeoClient& client, ByteView packet, std::uint64_t now_ms, bool more_follows) {
    if (client.open()) wire_.send(client.fd, packet, more_follows);
    client.held_back = more_follows;
    client.last_sent_ms = now_ms;
}

// Nothing may be left waiting: the last request of a batch may have had no answer.
void OrderEntry::push(MeoClient& client) {
    if (client.held_back) wire_.push(client.fd);
    client.held_back = false;
}

// Ends a connection without a word to the engine, deliberately even when it is logged in: its orders stay, whatever
// happens to those of a dropped one.
void OrderEntry::say_goodbye(MeoClient& client, esesm::GoodbyeReason reason, std::string_view text) {
    send(client, esesm::build_goodbye(reason, text));
    close(client);
}

// Ends the connection of a client that may have orders.
void OrderEntry::drop(ClientHandle handle, std::string_view reason, Announce announce) {
    MeoClient& dropped = client(handle);
    if (announce == Announce::yes) {
        std::fprintf(stderr, "bench: dropping the connection of %s (%s)\n", dropped.username.c_str(),
                     std::string(reason).c_str());
    }
    close(dropped);
    engine_.client_dropped(handle, dropped.username);
}

void OrderEntry::close(MeoClient& client) {
    push(client);
    wire_.close(client.fd);
    client.fd = no_socket;
}

bool OrderEntry::anyone_logged_in() const {
    return std::any_of(open_.begin(), open_.end(), [this](ClientHandle handle) {
        const MeoClient& client = clients_[static_cast<std::size_t>(handle)];
        return client.open() && client.logged_in;
    });
}

}  // namespace kavo
