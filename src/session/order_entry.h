// The order-entry service: its connections, the users who log in on them, and each user's numbered stream of messages.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "app/bench.h"
#include "common/farewells.h"
#include "common/message_log.h"
#include "engine/engine.h"
#include "session/esesm.h"
#include "session/replay.h"

namespace kavo {

// What a user has been told, and what waits for the next login: framed packets, ready to be sent again. Streams live as
// long as the process, and survive every disconnect.
struct SessionStream {
    static constexpr std::size_t limit_messages = 500'000;

    MessageLog stored;

    std::uint64_t next_sequence() const { return stored.next(); }
};

// What a connection is owed, because it did not take it at once.
struct Owed {
    Bytes unsent;  // of a packet that was taken only in part
    Replay replay;

    bool nothing() const { return unsent.empty() && replay.over(); }
};

// One accepted connection. The record stays for good, so that its position, the client's handle, stays valid; it is
// kept small, since a venue that many clients leave and come back to has hundreds of thousands.
struct MeoClient {
    static constexpr std::size_t most_held_bytes = 1'048'576;

    int fd = -1;  // -1 once closed
    esesm::ReceiveBuffer received;
    bool logged_in = false;    // never cleared: a client is alive while its fd is
    bool readable = true;      // worth a read in this pass; a new connection always is
    bool end_possible = true;  // the client may have closed, as far as is known
    bool backlog = false;      // its turn ended before everything that it has sent was handled
    bool held = false;         // the next packet of that waits for the end of the replay
    bool asks_more = false;  // another request of this client is already here: its answers leave with the present ones
    bool held_back = false;  // the last packet sent to it may still wait for another
    std::uint32_t reading_turn = 0;  // see Round
    std::uint32_t sending_turn = 0;
    std::unique_ptr<Owed> owed;  // mostly none
    std::uint64_t last_received_ms = 0;
    std::uint64_t last_sent_ms = 0;
    std::uint64_t connected_ms = 0;
    std::string username;             // of the latest accepted login
    SessionStream* stream = nullptr;  // that user's

    bool open() const { return fd >= 0; }
    bool can_go_on() const { return backlog && !held; }  // with input that has been read
    bool has_output() const { return open() && owed != nullptr; }
    bool is_replayed_to() const { return owed != nullptr && !owed->replay.over(); }
};

// Nothing that a client sends can stop the process; it is answered, ignored, or ends that client's connection.
class OrderEntry {
public:
    static constexpr std::uint64_t heartbeat_interval_ms = 1000;
    static constexpr std::uint64_t silence_limit_ms = 3000;
    // Of a pass, for the turns of all clients: about as long as a round takes, however many never stop, and far below
    // the limit of anyone's silence.
    static constexpr std::uint64_t reading_budget_ns = 25 * ns_per_ms;
    // Of a pass, for all that is sent on.
    static constexpr std::uint64_t sending_budget_ns = 20 * ns_per_ms;
    static constexpr int few_packets = 8;  // in a turn, when they take no longer than the shortest one
    // For a replay within its login, and for a last look at a client.
    static constexpr std::uint64_t shortest_turn_ns = ns_per_ms;
    static constexpr int most_looks = 64;  // reads before anything is held against a client: more than a socket holds

    //   session  the number that login responses carry, 1..255
    //   quiet    no lines for connections and accepted logins
    OrderEntry(Engine& engine, DomFeed& feed, Bench& bench, const Clock& clock, Transport transport,
               std::uint8_t session, bool quiet, const Commentary& commentary);
    OrderEntry(const OrderEntry&) = delete;  // what it says farewell to refers to its transport
    OrderEntry& operator=(const OrderEntry&) = delete;

    // The steps of a pass, in the order in which the venue takes them.
    void accept_clients();
    void serve_clients();
    void continue_sending();
    void deliver_engine_output();
    void announce_lapse(std::uint64_t now_ms);
    void run_timers(std::uint64_t now_ms);

    // What serve_clients does for one client, for whoever has bytes from elsewhere.
    ClientHandle open_client(int fd);
    void receive(ClientHandle handle, ByteView bytes);
    void lose_client(ClientHandle handle);

    bool anyone_logged_in() const;
    // Behind a replay a client may go on talking, but not without an end.
    bool may_be_read(const MeoClient& client) const {
        return !client.held || client.received.size() < held_limit_bytes;
    }
    bool can_be_read(const MeoClient& client) const { return client.readable && may_be_read(client); }
    bool has_input(const MeoClient& client) const {
        return client.open() && (client.can_go_on() || can_be_read(client));
    }
    // The open connections, in the order in which they were accepted; one that has closed since the last pass may still
    // be among them.
    const std::vector<ClientHandle>& open_clients() const { return open_; }
    MeoClient& client(ClientHandle handle) { return clients_[static_cast<std::size_t>(handle)]; }
    std::size_t clients_ever() const { return clients_.size(); }
    const std::vector<Farewell>& farewells() const { return farewells_.under_way(); }
    bool accept_exhausted() const { return accept_exhausted_; }
    bool clients_waiting = true;  // at the listener
    std::size_t stream_limit = SessionStream::limit_messages;
    std::size_t held_limit_bytes = MeoClient::most_held_bytes;

private:
    enum class Announce { no, yes };

    // connections.cpp
    void take_turn(ClientHandle handle, std::uint64_t until_ns);
    void look_again(ClientHandle handle, std::uint64_t turn_ns);
    ReadEnd read(MeoClient& client);
    void serve_packets(ClientHandle handle, std::uint64_t until_ns);
    void handle_packet(ClientHandle handle, const esesm::Packet& packet);
    void say_goodbye(MeoClient& client, esesm::GoodbyeReason reason, std::string_view text);
    void drop(ClientHandle handle, std::string_view reason, Announce announce);
    void close(MeoClient& client);
    void find_claimants();

    // sending.cpp
    void take_sending_turns();
    void send(MeoClient& client, ByteView packet);
    void send(MeoClient& client, ByteView packet, std::uint64_t now_ms, bool more_follows);
    bool hand_over(MeoClient& client, ByteView packet, bool more_follows);
    bool complete_packet(MeoClient& client);
    void push(MeoClient& client);
    void continue_replay(MeoClient& client, std::uint64_t until_ns);
    bool send_next_of(Replay& replay, MeoClient& client);
    bool send_stored(MeoClient& client, Replay::Stretch& stretch);
    static void end_replay(MeoClient& client);
    static void settle(MeoClient& client);

    // login.cpp
    void log_in(ClientHandle handle, ByteView payload);
    esesm::LoginStatus check(ClientHandle handle, const esesm::LoginRequest& request, const SessionStream& stream);
    void reject(MeoClient& client, const esesm::LoginRequest& request, const SessionStream& stream,
                esesm::LoginStatus status);
    void accept(ClientHandle handle, const esesm::LoginRequest& request, SessionStream& stream);
    void start_replay(MeoClient& client, Bytes response, std::uint64_t from);
    bool waits_for_replay(ClientHandle handle);
    ClientHandle holder_of(ClientHandle asking, const std::string& username) const;
    bool name_is_taken(ClientHandle asking, const std::string& username);

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
    Transport transport_;
    std::uint8_t session_;
    bool quiet_;
    const Commentary& commentary_;

    std::deque<MeoClient> clients_;  // every connection since the start; records never move
    std::vector<ClientHandle> open_;
    std::vector<ClientHandle> claimants_;  // of a turn in this pass
    std::unordered_map<std::string, SessionStream> streams_;
    Farewells farewells_;
    Round reading_;
    Round sending_;
    bool accept_exhausted_ = false;
    bool looking_again_ = false;

    OutboundMessages answers_;    // to the request being handled
    OutboundMessages delivered_;  // the engine's output while it is delivered
};

}  // namespace kavo
