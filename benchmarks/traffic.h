// Clients of a server under load: some of them busy, the others only connected. A busy client sends as many requests at
// once as its window holds, waits for all answers, and sends again; so two servers get the very same reads to do, and
// what differs between them is their own. Requests are in turn a new order that rests, and the cancel of one that does.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "order_packets.h"
#include "session/esesm.h"

namespace kavo::benchmarks {

using Steady = std::chrono::steady_clock;

// Throws when a server does not do what it should within five seconds.
class Connection {
public:
    // Connects to 127.0.0.1 and logs in under a name made of the number.
    Connection(std::uint16_t port, unsigned number);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // Sends new orders, and waits for nothing.
    void ask_new_orders(std::size_t count);
    // Sends requests, half of them cancels of a random one of the orders that rest.
    void ask_in_turn(std::size_t count);
    void send_heartbeat();

    // Takes in what arrives, waiting for it. True when it held the first answer to what was asked last.
    bool collect();
    bool is_owed_answers() const { return awaited_ != 0; }
    Steady::time_point asked_at() const { return asked_at_; }
    int socket() const { return socket_; }

private:
    void log_in(unsigned number);
    void append_new_order();
    void append_cancel();
    void send_batch();

    int socket_;
    std::string letters_;
    OrderPackets packets_;
    Bytes batch_;
    esesm::ReceiveBuffer received_;
    std::size_t awaited_ = 0;
    bool first_answer_due_ = false;
    bool cancel_is_next_ = false;
    Steady::time_point asked_at_;
    std::uint64_t next_number_ = 0;
    std::vector<std::uint64_t> resting_;  // by their numbers
    std::minstd_rand choice_{42};
};

struct Pattern {
    std::size_t busy_clients = 1;
    std::size_t idle_clients = 0;
    std::size_t window = 1;  // requests
};

class Traffic {
public:
    Traffic(std::uint16_t port, const Pattern& pattern);

    // New orders of the first client, which stay.
    void rest_orders(std::size_t count);
    // Requests of the first client that leave as many orders resting as there were.
    void exchange_orders(std::size_t requests);

    struct Run {
        std::size_t requests = 0;
        double seconds = 0;
        std::vector<double> first_answers_us;  // one for each batch of each client
    };
    // Ends after so many requests, or after a second.
    Run run(std::size_t requests);

private:
    void fill(std::size_t requests, void (Connection::*ask)(std::size_t));
    void collect_all(Run& run);
    void wait_for_answers();

    Pattern pattern_;
    std::vector<std::unique_ptr<Connection>> busy_;
    std::vector<std::unique_ptr<Connection>> idle_;
    std::vector<Connection*> ready_;  // busy ones whose answers can be collected
};

}  // namespace kavo::benchmarks
