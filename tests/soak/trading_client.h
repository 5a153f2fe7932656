// A user who trades for hours: at random, through disconnects and silences, and without losing a message of the stream.
#pragma once

#include <chrono>
#include <memory>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

#include "client/packets.h"
#include "client/received_book.h"
#include "client/wire_client.h"
#include "support/ledger.h"
#include "support/scene.h"

namespace kavo::test {

class TradingClient {
public:
    //   name  at most five characters, no other user's; its order ids begin with it
    TradingClient(std::uint16_t port, const std::string& name, Ledger& ledger);

    // Reads what has come. Logs in again where the connection has ended, or the stream has a gap.
    void listen();
    // Sends a request, when there is somebody to send it to.
    void act(const ReceivedBook& books, std::uint32_t products);
    void send_heartbeat();

    // Breaks the connection off.
    void reset();

    // Asks once more for everything that is missing; caught_up() turns true when there is nothing left.
    void ask_again();
    bool caught_up() const { return caught_up_; }

    // What the stream has come to, and what is wrong with it.
    std::uint64_t messages() const { return messages_; }        // since this client has been here
    std::size_t stored_bytes() const { return stored_bytes_; }  // of these, as the venue keeps them
    std::uint64_t logins() const { return logins_; }
    std::uint64_t replayed_gaps() const { return gaps_; }
    std::uint64_t repeated() const { return repeated_; }

private:
    void connect();
    void log_in();
    void take(ByteView packet);
    void take_login_response(const esesm::LoginResponse::Entry& response);
    void take_sequenced(const SequencedMessage& data, std::size_t packet_size);
    void note(ByteView message);

    void enter(const ReceivedBook& books, std::uint32_t products);
    void replace_one();
    void cancel_one();
    std::string new_id() { return name_ + "x" + std::to_string(++ids_); }
    std::uint32_t draw(std::uint32_t below) { return static_cast<std::uint32_t>(random_() % below); }

    struct Live {
        std::uint32_t product_id = 0;
        WirePrice price = 0;
        std::uint32_t leaves = 0;
    };
    static constexpr std::size_t most_live_orders = 12;

    std::uint16_t port_;
    std::string name_;
    Ledger& ledger_;
    std::minstd_rand random_;
    std::unique_ptr<WireClient> wire_;
    std::chrono::steady_clock::time_point last_sent_;
    std::unordered_map<std::string, Live> live_;
    std::vector<std::string> order_of_live_;  // some of them may have ended
    std::uint64_t ids_ = 0;
    std::uint64_t expected_ = 0;  // 0 before the first login
    std::uint64_t asked_ = 0;     // by the latest login
    bool waits_for_login_ = false;
    bool caught_up_ = false;
    std::uint64_t messages_ = 0;
    std::size_t stored_bytes_ = 0;
    std::uint64_t logins_ = 0;
    std::uint64_t gaps_ = 0;
    std::uint64_t repeated_ = 0;
};

}  // namespace kavo::test
