// The whole venue inside a test, without sockets: engine, sessions, feed and bench on a clock that stands still.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "app/venue.h"
#include "memory/memory_peers.h"
#include "support/scene.h"

namespace kavo::test {

inline constexpr ClientHandle second_client = 1;  // to connect

struct VenueSettings {
    std::vector<std::string> symbols = {"AAPL"};  // product ids follow the order
    double reference = 190.0;                     // of every symbol
    EngineSettings engine = {};                   // its session number is everyone's
    bool seeded = false;  // true: the day is started, so the books hold the synthetic market's first quotes
    std::uint32_t seed = 42;
    bool quiet = true;
    bool silent = false;  // says nothing on standard error either
};

// Requests go straight to the engine, as if a session had parsed them. What comes back, and what went out on the feed
// since the last call, is text: see transcript.h.
class Venue {
public:
    explicit Venue(const VenueSettings& settings = {});
    Venue(const Venue&) = delete;
    Venue& operator=(const Venue&) = delete;

    // The answers to a request of a client.
    std::string enter(const NewOrder& order, ClientHandle client = 0);
    std::string replace(const Replace& request, ClientHandle client = 0);
    std::string cancel(const Cancel& request, ClientHandle client = 0);

    // What the engine has to say to this client without having been asked, taken out of its outbox.
    std::string told(ClientHandle client);
    // What was published since the last call, System Time left out.
    std::string published();
    std::vector<Bytes> published_bytes();
    // A side of a book, best level first: "300@189.99 100@189.98".
    std::string bids(std::uint32_t product_id = 1) const;
    std::string asks(std::uint32_t product_id = 1) const;

    // The order truth log's lines since the last call.
    std::vector<std::string> truth();

    Clock clock;
    Commentary commentary;
    MemoryPeers peers;             // the clients' far ends
    MemoryPeers receivers;         // and the receivers'
    std::vector<Bytes> datagrams;  // everything that left towards the receivers
    kavo::Venue venue;

    // Its parts, which a scene sets and asks.
    Bench& bench = venue.bench;
    DomFeed& feed = venue.feed;
    Engine& engine = venue.engine;
    OrderEntry& order_entry = venue.order_entry;

    // A client on a connection of its own; with `log_in`, one that has a login behind it.
    ClientHandle connect();
    ClientHandle log_in(const std::string& username, std::uint64_t requested_sequence = 0);
    // Bytes, or one packet, as they come in from a client.
    void send(ClientHandle client, char packet_type, ByteView payload = {});
    void request(ClientHandle client, ByteView message) { send(client, 'U', message); }
    // The packets sent to a client since the last call, joined by " | ".
    std::string heard(ClientHandle client);
    MemoryPeer& connection(ClientHandle client) { return peers.peers[first_fd + client]; }
    // A pass in which everybody has something to say, and the market does not tick.
    void pass();

    static constexpr int first_fd = 100;  // of the first client; these descriptors stand for connections
    static constexpr std::uint64_t start_ms = 1'000'000;
    static constexpr std::uint64_t start_wall_ns = 1'700'000'000'123'456'789;

private:
    std::size_t published_ = 0;
    std::map<ClientHandle, std::size_t> heard_;
    std::string truth_;
};

}  // namespace kavo::test
