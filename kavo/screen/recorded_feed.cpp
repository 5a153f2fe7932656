#include "kavo/screen/recorded_feed.h"

#include <arpa/inet.h>

#include "client/dial.h"
#include "client/feed_messages.h"
#include "kavo/basics/folder.h"
#include "kavo/basics/now.h"
#include "kavo/basics/problem.h"
#include "kavo/screen/arrivals.h"
#include "kavo/screen/books.h"
#include "kavo/wire/capture.h"

namespace kavo::companion {

namespace {

constexpr std::uint64_t shortest_pause_ns = 200 * ns_per_ms;  // as with a live feed

// Where the feed goes, as far as that is known.
struct Destination {
    std::optional<std::uint32_t> address;
    std::optional<std::uint16_t> port;

    bool takes(const Capture::Packet& packet) const {
        return packet.protocol == Capture::Protocol::udp && packet.whole &&
               packet.destination.address == address.value_or(packet.destination.address) &&
               packet.destination.port == port.value_or(packet.destination.port);
    }
    void know(const Capture::Endpoint& endpoint) {
        address = endpoint.address;
        port = endpoint.port;
    }
};

Destination destination_of(const AskedFeed& asked, const RunFolder& folder) {
    Destination destination{std::nullopt, asked.port};
    if (asked.group) destination.address = ntohl(client::ipv4_address(*asked.group).s_addr);
    if (!std::filesystem::exists(folder.bench())) return destination;
    const BenchFacts facts = read_facts(folder.bench());
    if (!asked.group) destination.address = ntohl(client::ipv4_address(facts.group).s_addr);
    if (!asked.port) destination.port = facts.feed_port;
    return destination;
}

bool is_of_a_feed(ByteView datagram) {
    return client::read_feed_packet(datagram).has_value();
}

}  // namespace

void show_recorded_feed(const std::filesystem::path& path, const AskedFeed& asked, const FeedWishes& wishes) {
    const bool is_folder = std::filesystem::is_directory(path);
    const RunFolder folder{is_folder ? path : path.parent_path()};
    const std::filesystem::path file = is_folder ? folder.wire() : path;
    Destination destination = destination_of(asked, folder);
    Capture capture(file);
    FeedLines lines(wishes.json, wishes.window);
    Arrivals arrivals(lines);
    Books books(lines, 0);
    Capture::Packet packet;
    std::optional<std::uint64_t> first_ns;
    std::uint64_t latest_ns = 0;
    while (!lines.done() && capture.next(packet)) {
        if (!destination.takes(packet) || !is_of_a_feed(packet.payload)) continue;
        destination.know(packet.destination);
        if (!first_ns) first_ns = latest_ns = packet.t_ns;
        if (wishes.longest && packet.t_ns - *first_ns > static_cast<std::uint64_t>(wishes.longest->count()) * ns_per_ms)
            break;
        if (packet.t_ns > latest_ns + shortest_pause_ns) books.pause();
        latest_ns = packet.t_ns;
        lines.heard_at(packet.t_ns);
        wishes.book ? books.take(packet.payload) : arrivals.take(packet.payload);
    }
    books.pause();
    if (capture.cut_short()) {
        throw Problem(Status::inconclusive,
                      file.string() + " ends in the middle of a packet: what was whole was shown");
    }
    if (!first_ns) {
        throw Problem(Status::usage, "there is no feed in " + file.string() +
                                         ": is it a recording, and are --group and --port those of its feed?");
    }
}

}  // namespace kavo::companion
