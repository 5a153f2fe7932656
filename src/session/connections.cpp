// Connections come, are read in turns, and go away.
#include <algorithm>
#include <limits>
#include <utility>

#include "session/order_entry.h"

namespace kavo {

OrderEntry::OrderEntry(Engine& engine, DomFeed& feed, Bench& bench, const Clock& clock, Transport transport,
                       std::uint8_t session, bool quiet, const Commentary& commentary)
    : engine_(engine),
      feed_(feed),
      bench_(bench),
      clock_(clock),
      transport_(std::move(transport)),
      session_(session),
      quiet_(quiet),
      commentary_(commentary),
      farewells_(transport_, clock),
      reading_(clock, reading_budget_ns),
      sending_(clock, sending_budget_ns) {}

// Readiness is as old as the last poll. What an earlier connection has sent since then, its end above all, came before
// whatever a new one says, so everyone is read when somebody comes.
void OrderEntry::accept_clients() {
    if (!clients_waiting) return;
    const std::size_t clients_before = clients_.size();
    for (int accepts = 0; accepts < transport_.accepts_limit; ++accepts) {
        const int fd = transport_.accept(accept_exhausted_);
        if (fd == no_socket) break;
        open_client(fd);
        if (!quiet_) commentary_.say("[kavo_me] client connected (fd %d)\n", fd);
    }
    if (clients_.size() == clients_before) return;
    for (const ClientHandle handle : open_) client(handle).readable = client(handle).end_possible = true;
}

ClientHandle OrderEntry::open_client(int fd) {
    const auto handle = static_cast<ClientHandle>(clients_.size());
    MeoClient& client = clients_.emplace_back();
    client.fd = fd;
    client.connected_ms = client.last_received_ms = client.last_sent_ms = clock_.steady_ms();
    open_.push_back(handle);
    return handle;
}

void OrderEntry::serve_clients() {
    find_claimants();
    reading_.begin(claimants_.size());
    for (const ClientHandle handle : claimants_) {
        MeoClient& reading = client(handle);
        if (!has_input(reading) || !reading_.owes_turn(reading.reading_turn)) continue;
        if (reading_.spent()) return;
        take_turn(handle, reading_.give_turn(reading.reading_turn));
    }
    reading_.end();
}

// Everyone with input. The same walk forgets who has gone: a closed connection keeps its record, but nothing in it that
// takes room.
void OrderEntry::find_claimants() {
    claimants_.clear();
    std::erase_if(open_, [this](ClientHandle handle) {
        MeoClient& found = client(handle);
        if (has_input(found)) claimants_.push_back(handle);
        if (found.open()) return false;
        found.received = {};
        return true;
    });
}

// What is left of an earlier read comes first, and nothing more is read before it has been handled: whoever pours in
// requests waits in its own socket.
void OrderEntry::take_turn(ClientHandle handle, std::uint64_t until_ns) {
    MeoClient& reading = client(handle);
    if (reading.can_go_on()) serve_packets(handle, until_ns);
    if (!reading.open() || reading.can_go_on() || !can_be_read(reading)) return;
    if (read(reading) == ReadEnd::gone) return lose_client(handle);
    if (reading.can_go_on()) serve_packets(handle, until_ns);
}

// Reads everything that has come since the last poll, and handles it, before something is held against a client.
void OrderEntry::look_again(ClientHandle handle, std::uint64_t turn_ns) {
    MeoClient& reading = client(handle);
    reading.end_possible = true;
    ReadEnd end = ReadEnd::more;
    for (int looks = 0; end == ReadEnd::more && looks < most_looks; ++looks) end = read(reading);
    if (end == ReadEnd::gone) return lose_client(handle);
    if (reading.backlog) serve_packets(handle, clock_.steady_ns() + turn_ns);
}

ReadEnd OrderEntry::read(MeoClient& client) {
    bool arrived = false;
    const ReadEnd end = transport_.read(client.fd, client.received.incoming(), arrived, client.end_possible);
    if (arrived) client.last_received_ms = clock_.steady_ms();
    client.backlog = client.backlog || arrived;
    client.readable = end == ReadEnd::more;
    return end;
}

void OrderEntry::receive(ClientHandle handle, ByteView bytes) {
    MeoClient& receiving = client(handle);
    Bytes& incoming = receiving.received.incoming();
    incoming.insert(incoming.end(), bytes.begin(), bytes.end());
    receiving.last_received_ms = clock_.steady_ms();
    serve_packets(handle, std::numeric_limits<std::uint64_t>::max());
}

// What the peer sent right before it went away is not looked at any more.
void OrderEntry::lose_client(ClientHandle handle) {
    commentary_.say("bench: client %s disconnected\n", client(handle).username.c_str());
    drop(handle, "connection lost", Announce::no);
}

// Of requests that came together, the first is answered at once, and the answers to the others leave together. However
// short its share of the time is, a client has a few packets in its turn: answers that are read take longer than those
// that a flood does not read, and whoever reads them should not wait for it.
void OrderEntry::serve_packets(ClientHandle handle, std::uint64_t until_ns) {
    MeoClient& serving = client(handle);
    const std::uint64_t long_ns = clock_.steady_ns() + shortest_turn_ns;
    serving.backlog = serving.held = false;
    for (int packets = 0; serving.open() && !serving.backlog; ++packets) {
        if (waits_for_replay(handle)) {
            serving.backlog = serving.held = true;
            break;
        }
        const auto packet = serving.received.cut();
        if (!packet) break;
        serving.asks_more = packets > 0 && serving.received.holds_packet();
        handle_packet(handle, *packet);
        const std::uint64_t now_ns = clock_.steady_ns();
        serving.backlog = now_ns >= until_ns && (packets + 1 >= few_packets || now_ns >= long_ns);
    }
    if (serving.open()) push(serving);
}

void OrderEntry::handle_packet(ClientHandle handle, const esesm::Packet& packet) {
    MeoClient& sender = client(handle);
    switch (packet.type) {
        case esesm::PacketType::login_request: return log_in(handle, packet.payload);
        case esesm::PacketType::client_heartbeat:
        case esesm::PacketType::client_test: return;
        case esesm::PacketType::logout_request:
            commentary_.say("bench: client %s logged out\n", sender.username.c_str());
            return drop(handle, "logout request", Announce::no);
        default: break;
    }
    if (!sender.logged_in) return say_goodbye(sender, esesm::GoodbyeReason::bad_packet, esesm::not_logged_in_text);
    if (packet.type == esesm::PacketType::unsequenced_data) dispatch(handle, packet.payload);
}

// Ends a connection without a word to the engine, deliberately even when it is logged in: its orders stay, whatever
// happens to those of a dropped one.
void OrderEntry::say_goodbye(MeoClient& client, esesm::GoodbyeReason reason, std::string_view text) {
    send(client, build(esesm::Goodbye{reason, text}));
    close(client);
}

// Ends the connection of a client that may have orders.
void OrderEntry::drop(ClientHandle handle, std::string_view reason, Announce announce) {
    MeoClient& dropped = client(handle);
    if (announce == Announce::yes) {
        commentary_.say("bench: dropping the connection of %s (%s)\n", dropped.username.c_str(),
                        std::string(reason).c_str());
    }
    close(dropped);
    engine_.client_dropped(handle, dropped.username);
}

// Not even the end of a connection leaves half a packet behind: one that still has something on its way ends gently.
void OrderEntry::close(MeoClient& client) {
    end_replay(client);
    push(client);
    const int fd = std::exchange(client.fd, no_socket);
    const std::unique_ptr<Owed> owed = std::exchange(client.owed, nullptr);
    if (owed == nullptr && transport_.unacknowledged(fd) == 0) return transport_.close(fd);
    Outgoing rest;
    rest.add(owed != nullptr ? ByteView(owed->unsent) : ByteView(), clock_.steady_ms());
    farewells_.add(fd, std::move(rest));
}

bool OrderEntry::anyone_logged_in() const {
    return std::any_of(open_.begin(), open_.end(), [this](ClientHandle handle) {
        const MeoClient& client = clients_[static_cast<std::size_t>(handle)];
        return client.open() && client.logged_in;
    });
}

}  // namespace kavo
