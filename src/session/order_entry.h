// The order-entry service: its connections, the users who log in on them, and each user's numbered stream of messages.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "app/bench.h"
#include "common/clock.h"
#include "common/message_log.h"
#include "engine/engine.h"
#include "session/esesm.h"

namespace kavo {

// What a user has been told, and what waits for the next login: framed packets, ready to be sent again. Streams live as
// long as the process, and survive every disconnect.
struct SessionStream {
    static constexpr std::size_t limit_messages = 500'000;

    MessageLog stored;

    std::uint64_t next_sequence() const { return stored.next(); }
};

// One accepted connection. The record stays for good, so that its position, the client's handle, stays valid.
struct MeoClient {
    int fd = -1;  // -1 once closed
    esesm::ReceiveBuffer received;
    bool logged_in = false;  // never cleared: a client is alive while its fd is
    bool readable = true;    // worth a read in this pass; a new connection always is
    bool asks_more = false;  // the answers to its next request, which is already here, take the present ones along
    bool held_back = false;  // the last packet sent to it may still wait for another
    std::uint64_t last_received_ms = 0;
    std::uint64_t last_sent_ms = 0;
    std::uint64_t connected_ms = 0;
    std::string username;             // of the latest accepted login
    SessionStream* stream = nullptr;  // that user's

    bool open() const { return fd >= 0; }
};

// The way out to the clients; a test puts its own in.
struct ClientWire {
    // Hands over one whole packet; what does not get through is lost without a word.
    //   more_follows  the next packet of the same batch comes at once, so this one may wait for it
    std::function<void(int fd, ByteView packet, bool more_follows)> send;
    // Lets what waits go out, when the packet that was to follow did not come.
    std::function<void(int fd)> push;
    std::function<void(int fd)> close;
};

// Nothing that a client sends can stop the process; it is answered, ignored, or ends that client's connection.
class OrderEntry {
public:
    static constexpr std::uint64_t heartbeat_interval_ms = 1000;
    static constexpr std::uint64_t silence_limit_ms = 3000;

    //   session  the number that login responses carry, 1..255
    //   quiet    no lines for connections and accepted logins
    OrderEntry(Engine& engine, DomFeed& feed, Bench& bench, const Clock& clock, ClientWire wire, std::uint8_t session,
               bool quiet);

    // The steps of a pass, in the order in which the main loop takes them.
    void accept_clients(int listener);
    void serve_clients();
    void deliver_engine_output();
    void announce_lapse(std::uint64_t now_ms);
    void run_timers(std::uint64_t now_ms);

    // What serve_clients does for one client, for whoever has bytes from elsewhere.
    ClientHandle open_client(int fd);
    void receive(ClientHandle handle, ByteView bytes);
    void lose_client(ClientHandle handle);

    bool anyone_logged_in() const;
    // The open connections, in the order in which they were accepted; one that has closed since the last pass may still
    // be among them.
    const std::vector<ClientHandle>& open_clients() const { return open_; }
    MeoClient& client(ClientHandle handle) { return clients_[static_cast<std::size_t>(handle)]; }
    std::size_t clients_ever() const { return clients_.size(); }
    bool accept_exhausted() const { return accept_exhausted_; }

private:
    enum class Announce { no, yes };

    // connections.cpp
    void serve_packets(ClientHandle handle);
    void handle_packet(ClientHandle handle, const esesm::ReceiveBuffer::Packet& packet);
    void send(MeoClient& client, ByteView packet);
    void send(MeoClient& client, ByteView packet, std::uint64_t now_ms, bool more_follows);
    void say_goodbye(MeoClient& client, esesm::GoodbyeReason reason, std::string_view text);
    void drop(ClientHandle handle, std::string_view reason, Announce announce);
    void push(MeoClient& client);
    void close(MeoClient& client);
    void forget_closed();

    // login.cpp
    void log_in(ClientHandle handle, ByteView payload);
    esesm::LoginStatus check(ClientHandle handle, const esesm::LoginRequest& request,
                             const SessionStream& stream) const;
    void reject(MeoClient& client, const esesm::LoginRequest& request, const SessionStream& stream,
                esesm::LoginStatus status);
    void accept(ClientHandle handle, const esesm::LoginRequest& request, SessionStream& stream);
    void replay(MeoClient& client, std::uint64_t from);

    // streams.cpp
    void deliver(MeoClient& client, const OutboundMessages& messages);
    void deliver(MeoClient& client, const OutboundMessage& message, std::uint64_t now_ms, bool more_follows);
    void route(const OutboundMessage& message, std::uint64_t now_ms);
    static ByteView store(SessionStream& stream, ByteView message);

    // requests.cpp
    void dispatch(ClientHandle handle, ByteView message);
    bool handle_request(ClientHandle handle, ByteView message);
    void end_bad_session(ClientHandle handle, ByteView message);
    void disconnect_when_scripted(ClientHandle handle);

    Engine& engine_;
    DomFeed& feed_;
    Bench& bench_;
    const Clock& clock_;
    ClientWire wire_;
    std::uint8_t session_;
    bool quiet_;

    std::deque<MeoClient> clients_;  // every connection since the start; records never move
    std::vector<ClientHandle> open_;
    std::unordered_map<std::string, SessionStream> streams_;
    bool accept_exhausted_ = false;

    OutboundMessages answers_;    // to the request being handled
    OutboundMessages delivered_;  // the engine's output while it is delivered
    Bytes scratch_;
};

}  // namespace kavo
