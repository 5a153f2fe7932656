// The connection to order entry: kept up, left when it is silent, made again after every break, and asked for whatever
// of the stream is missing.
#pragma once

#include <cstdint>
#include <string>

#include "client/session.h"
#include "order_keeper.h"
#include "settings.h"
#include "sockets.h"

namespace trading {

class OrderEntry {
public:
    OrderEntry(const Settings& settings, OrderKeeper& keeper);

    // Connects when there is no connection, but not at once after one that did not last.
    void connect_if_due(std::uint64_t now_ms);
    // Reads all there is, acts on it, and says what is to be said. Never waits.
    void exchange(std::uint64_t now_ms);

    // Requests may be sent, and all that is known is complete.
    bool ready() const { return socket_.open() && session_.logged_in() && caught_up_ && !answer_due_; }
    template <typename Request>
    void send(const Request& request) {
        session_.send(request);
        sent_at_ms_ = now_ms();
    }
    // Logs in again on the connection that there is: the stream tells what it has kept back.
    void ask_again();
    // The last word. exchange() goes on until the venue has closed.
    void log_out(std::uint64_t now_ms);

    const Socket& socket() const { return socket_; }
    bool wants_to_write() const { return !session_.to_send().empty(); }
    unsigned connection() const { return connection_; }  // counts them; orders belong to one
    // Why the venue does not want this client at all; empty for no such reason.
    const std::string& refused() const { return refused_; }

private:
    void log_in();
    void act_on(const kavo::client::Session::Arrival& arrival, std::uint64_t now_ms);
    void take_acceptance(const kavo::client::Session::Arrival& arrival);
    void apply(const kavo::client::Session::Arrival& arrival);
    void look_at_end(std::uint64_t now_ms);
    void look_at_clock(std::uint64_t now_ms);
    void check_caught_up(std::uint64_t now_ms);
    void start_over(std::uint64_t now_ms);
    void drop(std::uint64_t now_ms);
    void write(std::uint64_t now_ms);

    Settings settings_;
    OrderKeeper& keeper_;
    kavo::client::Session session_;
    Socket socket_;
    unsigned connection_ = 0;
    unsigned venue_ = 0;         // number of its trading session; 0 before it is known
    std::uint64_t applied_ = 0;  // number of the last message of the stream
    std::uint64_t replay_end_ = 0;
    bool answer_due_ = false;  // to a login
    bool caught_up_ = false;
    bool logged_out_ = false;
    bool lingers_ = false;  // a fault: a goodbye has been heard, and is not heeded
    std::uint64_t connected_at_ms_ = 0;
    std::uint64_t connect_at_ms_ = 0;
    std::uint64_t pause_ms_;
    std::uint64_t heard_at_ms_ = 0;
    std::uint64_t asked_at_ms_ = 0;
    std::uint64_t sent_at_ms_ = 0;  // the latest request
    std::string refused_;
};

}  // namespace trading
