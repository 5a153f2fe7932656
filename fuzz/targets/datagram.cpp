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
void expect_same_again(const Record& record, ByteView message) {
    const auto rebuilt = build(record);
    require(rebuilt.size() == message.size() && rebuilt[0] == message[0], "a message is read when it has its size");
    const client::FeedMessage again = client::read_feed_message(rebuilt);
    require(std::holds_alternative<Record>(again) && build(std::get<Record>(again)) == rebuilt,
            "a message built from what was read reads the same");
}
void expect_same_again(std::monostate, ByteView) {}

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
        std::visit([&packet](const auto& record) { expect_same_again(record, packet->message); },
                   client::read_feed_message(packet->message));
    }
}

}  // namespace
}  // namespace kavo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    return kavo::fuzz::run({data, size}, kavo::fuzz::take_apart);
}
