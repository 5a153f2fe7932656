#include "support/bytes_of_feed.h"

#include "client/feed_messages.h"

namespace kavo::test {

namespace {

std::string number_of(const client::FeedPacket& packet) {
    const std::string number = std::to_string(packet.header.sequence);
    switch (packet.header.type) {
        case mach::PacketType::heartbeat: return "heartbeat " + number;
        case mach::PacketType::start: return "start " + number;
        case mach::PacketType::application_data: return number;
    }
    return "unknown";
}

void append(std::string& list, const std::string& separator, const std::string& item) {
    if (!list.empty()) list += separator;
    list += item;
}

}  // namespace

std::string carried_by(ByteView datagram) {
    std::string list;
    while (const auto packet = client::read_feed_packet(datagram)) append(list, " ", number_of(*packet));
    if (!datagram.empty()) append(list, " ", "and a broken packet");
    return list;
}

void CaughtFeed::publish(int count, std::size_t size) {
    while (count-- > 0) feed.publish(Bytes(size, static_cast<std::uint8_t>(feed.next_sequence())));
}

void CaughtFeed::send(int count) {
    while (count-- > 0) {
        publish(1);
        feed.flush();
    }
}

std::string CaughtFeed::take_sent() {
    std::string list;
    for (const Bytes& datagram : sent) append(list, " | ", carried_by(datagram));
    sent.clear();
    return list;
}

Clock CaughtFeed::standing_clock() {
    Clock clock;
    clock.stand_at(steady_ms, wall_ns);
    return clock;
}

}  // namespace kavo::test
