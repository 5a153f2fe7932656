// Datagrams of the feed as receivers take them apart: whole packets one after the other, and messages that say the same
// when they are built again.
#include <algorithm>

#include "client/feed_messages.h"
#include "harness/harness.h"
#include "model/packets.h"

namespace kavo::fuzz {
namespace {

// What is read of a message is all that a receiver knows of it: built from that, it must read the same.
template <typename Record>
int reads_as(std::optional<Record> (*read)(ByteView message), ByteView message) {
    const auto record = read(message);
    if (!record) return 0;
    const auto rebuilt = build(*record);
    require(rebuilt.size() == message.size() && rebuilt[0] == message[0], "a message is read when it has its size");
    const auto again = read(rebuilt);
    require(again && build(*again) == rebuilt, "a message built from what was read reads the same");
    return 1;
}

void read_message(ByteView message) {
    const int kinds = reads_as(client::read_system_time, message) + reads_as(client::read_system_state, message) +
                      reads_as(client::read_series_definition, message) + reads_as(client::read_series_open, message) +
                      reads_as(client::read_series_trading_status, message) +
                      reads_as(client::read_add_order, message) + reads_as(client::read_modify_order, message) +
                      reads_as(client::read_delete_order, message) + reads_as(client::read_order_executed, message);
    require(kinds <= 1, "a message is of one type at most");
}

// The size of the first packet; 0 when there is no whole one.
std::size_t literal_size(ByteView datagram) {
    if (datagram.size() < 12) return 0;
    const std::uint64_t length = model::little_endian(datagram.subspan(8, 2));
    return length < 12 || length > datagram.size() ? 0 : length;
}

void take_apart(ByteView datagram) {
    while (true) {
        const ByteView before = datagram;
        const std::size_t size = literal_size(before);
        const auto packet = client::read_feed_packet(datagram);
        require(packet.has_value() == (size != 0), "a packet is taken when it is whole");
        if (!packet) return;
        count_step();
        require(datagram.size() == before.size() - size, "a packet is taken off as a whole");
        require(packet->header.sequence == model::little_endian(before.first(8)), "a packet begins with its number");
        require(std::ranges::equal(packet->message, before.subspan(12, size - 12)),
                "a message is the rest of a packet");
        read_message(packet->message);
    }
}

}  // namespace
}  // namespace kavo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    return kavo::fuzz::run({data, size}, kavo::fuzz::take_apart);
}
