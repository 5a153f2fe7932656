// An order-entry client with the temper of a real one: it connects, logs in rightly or wrongly, trades, stalls, sends
// half a packet, vanishes, and comes back for what it has missed.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "actors/agenda.h"
#include "actors/receiver.h"
#include "model/packets.h"
#include "stage/stage.h"

namespace kavo::simulation {

class Client {
public:
    struct Identity {
        std::string username;  // two clients may share one
        std::string mpid;
        std::string id_prefix;  // of its client order ids
        bool clumsy = false;    // seldom does what it should
        bool only_one = false;  // nobody else uses its name
    };

    //   market  whose book it looks at for its prices
    Client(Stage& stage, Agenda& agenda, const Receiver& market, Identity identity, std::uint64_t dice_seed);

    // What it does between two passes of the venue.
    void act();

    // At the end of the day: goes away, or comes back properly for what it has never heard, and listens.
    void leave();
    void come_for_the_rest();
    void listen() { read(); }

    // Everything heard on the user's stream, by its numbers.
    const std::map<std::uint64_t, Bytes>& heard() const { return heard_; }
    const std::string& username() const { return identity_.username; }
    const std::string& complaint() const { return complaint_; }

private:
    struct OpenOrder {
        std::uint32_t product_id = 1;
        bool buy = true;
        WirePrice price = 0;
        std::uint32_t leaves = 0;
        std::uint32_t executed = 0;
    };
    struct Appointment {
        std::uint64_t ms = 0;
        std::string id;  // of an order that ended
    };

    // client.cpp
    void connect();
    void come_back_at_once();
    void change_pace();
    void send_out();
    void say(char packet_type, ByteView payload = {});
    void say_something();
    void say_nonsense();
    void keep_appointments();

    // logins.cpp
    void come_in();
    void log_in_badly();
    void log_in(std::uint64_t requested_sequence);

    // listening.cpp
    void read();
    void take_packet(char type, ByteView payload);
    void take_login_response(ByteView payload);
    void take_message(std::uint64_t sequence, ByteView message);
    void follow(ByteView message);
    void note_end(const std::string& id, std::uint64_t message_ns);
    std::uint64_t first_missing() const;

    // orders.cpp
    void request_something();
    Bytes new_order();
    Bytes replacement(const std::string& orig);
    Bytes cancellation(const std::string& orig);
    std::string new_id();
    std::string some_id();
    std::string participant();
    WirePrice price_near(std::uint32_t product_id, bool buy);
    std::uint32_t size();
    std::uint64_t expire_time(char tif);

    Stage& stage_;
    Agenda& agenda_;
    const Receiver& market_;
    Identity identity_;
    Dice dice_;

    Peer* peer_ = nullptr;
    bool logged_in_ = false;  // as far as this client knows
    bool proper_ = false;     // at the end of the day
    bool impostor_ = false;   // has claimed to be somebody else, so what it hears is not its own
    Bytes outgoing_;
    model::Cutter incoming_;
    std::uint64_t last_said_ms_ = 0;
    unsigned silent_passes_ = 0;
    std::uint64_t requested_ = 0;  // with the latest login
    bool replay_begins_ = false;   // the next message is the oldest one that can be had

    std::uint64_t next_ = 1;  // the number it expects
    std::map<std::uint64_t, Bytes> heard_;
    std::map<std::string, OpenOrder> open_;
    std::deque<std::string> ended_;
    std::vector<Appointment> appointments_;
    unsigned ids_used_ = 0;
    std::string complaint_;
};

}  // namespace kavo::simulation
