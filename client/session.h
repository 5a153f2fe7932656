// A user's session with order entry, kept across connections: logs in, follows the numbered stream, sends heartbeats in
// time, and after every break asks for exactly the message that it expects next.
//
// It works on bytes alone and has neither socket nor clock, so it serves a TCP connection as well as a venue in memory:
//
//     Session session(login("alice", 1));
//     while (...) {
//         const int socket = dial(port);
//         session.connected(now_ms());
//         session.log_in();
//         while (session.end() == Session::End::none) {
//             session.check_time(now_ms());
//             session.sent(write_some(socket, session.to_send()), now_ms());
//             session.receive(read_some(socket), now_ms());
//             while (const auto arrival = session.next()) act_on(*arrival);
//         }
//         close(socket);
//     }
#pragma once

#include <cstdint>
#include <limits>
#include <optional>

#include "client/requests.h"
#include "common/bytes.h"
#include "session/esesm.h"

namespace kavo::client {

class Session {
public:
    static constexpr std::uint64_t never_ms = std::numeric_limits<std::uint64_t>::max();

    // The venue gives up a client that is silent for three seconds. It sends something every second itself, once a user
    // is logged in, except during a lapse: then it wants its clients to leave and to come back.
    struct Timing {
        std::uint64_t heartbeat_after_ms = 500;  // without anything sent
        std::uint64_t silence_limit_ms = 3'000;  // without anything received
    };

    // Why this connection is of no more use. All but `disconnected` are found while it is still open, so that the
    // caller closes it; after `hole` and, for a wrong place in the stream, after `refused` it may log in again instead.
    enum class End {
        none,
        hole,          // a message is missing: the next login asks for it
        silence,       // nothing was heard for too long
        refused,       // see refusal()
        goodbye,       // the venue's last word
        disconnected,  // as told by the caller
    };

    //   login  as the user is named; its requested_sequence is where the first login begins: 1 for everything that the
    //          venue has stored, 0 for its present end
    explicit Session(Login login) : Session(std::move(login), Timing{}) {}
    Session(Login login, Timing timing) : login_(std::move(login)), timing_(timing), next_(login_.requested_sequence) {}

    // A new connection stands; whatever was left of the one before is forgotten. Nothing is said yet.
    void connected(std::uint64_t now_ms);
    // The connection has ended. What had arrived before can still be taken with next().
    void disconnected();

    // Asks for the stream from next_sequence() on.
    void log_in();
    // The same in other words, for whoever has a reason. The answer moves next_sequence() up if it must, never down: a
    // replay of what has been given out already arrives as `repeated`.
    void log_in(const Login& login);
    void send(const NewOrder& order) { say(esesm::PacketType::unsequenced_data, order.bytes()); }
    void send(const Replace& request) { say(esesm::PacketType::unsequenced_data, request.bytes()); }
    void send(const Cancel& request) { say(esesm::PacketType::unsequenced_data, request.bytes()); }
    void log_out() { say(esesm::PacketType::logout_request); }
    // Any packet at all. Like all that is said, it waits in to_send().
    void say(esesm::PacketType type, ByteView payload = {});
    // Anything at all, for whoever tries the venue's patience.
    void say_bytes(ByteView bytes);

    // What waits to be sent, and how much of it the connection has taken.
    ByteView to_send() const { return outgoing_; }
    void sent(std::size_t count, std::uint64_t now_ms);

    // Says a heartbeat when it is due, and notices a silence that lasts too long. To be called a few times a second.
    void check_time(std::uint64_t now_ms);

    void receive(ByteView bytes, std::uint64_t now_ms);

    struct Arrival {
        enum class Kind {
            accepted,         // the login
            refused,          // the login; see refusal()
            message,          // the next one of the stream
            repeated,         // one that has been given out before
            hole,             // one that is not the next; it will come again, in its turn, after a login
            replay_complete,  // what follows is new
            heartbeat,
            goodbye,
            other,  // nothing that this venue is known to send
        };
        Kind kind = Kind::other;
        std::uint64_t sequence = 0;  // of a message, whether it has come in its turn or not
        std::uint64_t missed = 0;  // messages in front of it that nobody will hear again: the venue has let go of them
        ByteView message;          // for responses.h
        ByteView packet;           // all of it, for packets.h
    };
    // The next packet that has arrived whole, in order of arrival; its bytes are lent until more are received.
    std::optional<Arrival> next();

    // The number of the next message that has not been given out; 0 while that is not known, before a first login that
    // asks for the present end.
    std::uint64_t next_sequence() const { return next_; }
    bool logged_in() const { return logged_in_; }
    End end() const { return end_; }
    // The answer to the latest login, when it was a refusal.
    esesm::LoginStatus refusal() const { return refusal_; }

private:
    Arrival take_login_response(Arrival arrival);
    Arrival take_message(Arrival arrival);

    Login login_;
    Timing timing_;
    std::uint64_t next_;

    esesm::ReceiveBuffer received_;
    Bytes outgoing_;
    std::uint64_t last_sent_ms_ = 0;
    std::uint64_t last_heard_ms_ = 0;
    std::uint64_t requested_ = 0;   // with the latest login
    std::uint64_t replay_end_ = 0;  // last number of a replay of which nothing has come yet; 0 for none
    bool connected_ = false;
    bool answer_due_ = false;  // to a login
    bool logged_in_ = false;
    End end_ = End::none;
    esesm::LoginStatus refusal_ = esesm::LoginStatus::successful;
};

}  // namespace kavo::client
