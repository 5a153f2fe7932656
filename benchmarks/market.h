// The whole venue in this process, without sockets, its books as full as a benchmark wants them. What it sends goes
// nowhere, so what is measured is ours alone.
#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "app/venue.h"
#include "order_packets.h"

namespace kavo::benchmarks {

// Takes everything and leads nowhere; nothing ever comes from there.
Transport nowhere();

class Market {
public:
    static constexpr ClientHandle crowd = 0;   // owns most of what rests
    static constexpr ClientHandle leaver = 1;  // comes to be dropped

    // The day has started with the products of the list, and the feed's history is full, as it is on any venue that has
    // run for a while.
    explicit Market(std::size_t products = 3);
    Market(const Market&) = delete;
    Market& operator=(const Market&) = delete;

    // New orders of a client that rest, off the synthetic market.
    void rest_orders(std::size_t count, ClientHandle client);

    // A new order of the crowd that rests, and the cancel of a random one, as clients send them: parsed, judged,
    // published, answered and stored in the crowd's stream.
    void enter_and_cancel();
    // The same until that stream is full, so that no time goes into memory that is touched for the first time.
    void fill_stream();

    Clock clock;
    Commentary commentary{[](std::string_view) {}};
    Venue venue;

    // Its parts.
    DomFeed& feed = venue.feed;
    Engine& engine = venue.engine;
    OrderEntry& order_entry = venue.order_entry;

private:
    void log_in(const std::string& username);
    void fill_history();

    OrderPackets packets_{"ORDR"};
    std::uint64_t entered_ = 0;
    std::vector<std::uint64_t> resting_;  // the crowd's, by their numbers
    std::minstd_rand choice_{42};
    OutboundMessages answers_;
};

// A market in which the crowd has so many orders resting, and its stream is full. Each is made once and kept, so
// that a benchmark can go back and forth between a full one and an empty one.
Market& market_with(std::size_t resting_orders);

}  // namespace kavo::benchmarks
