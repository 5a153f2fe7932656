#include "soak/receiver.h"

#include <algorithm>
#include <array>

#include "client/recovery_client.h"
#include "support/scene.h"

namespace kavo::test {

Bytes login_and_request(std::uint64_t first, std::uint64_t last) {
    Bytes bytes = esesm::build_packet(esesm::PacketType::login_request, receiver_login().payload());
    append(bytes, esesm::build_packet(esesm::PacketType::retransmission_request, retransmission_payload(first, last)));
    return bytes;
}

Bytes whole_reply(std::uint16_t port, std::uint64_t first, std::uint64_t last) {
    Peer receiver(port);
    receiver.pour_all(login_and_request(first, last));
    Bytes reply;
    std::uint64_t next = first;
    while (const auto packet = receiver.next_packet(patience)) {
        append(reply, *packet);
        const std::uint64_t sequence = sequence_of(*packet);
        if (sequence != 0 && sequence != next++) throw std::runtime_error("a message is missing from the reply");
    }
    const bool whole = next == last + 1 && as_text(reply).ends_with("retransmission complete");
    if (!whole || receiver.end() != Peer::End::orderly) throw std::runtime_error("a reply without its end");
    return reply;
}

Receiver::Receiver(std::uint16_t port, const Bytes& expected, int receive_buffer)
    : peer(port, receive_buffer), expected_(expected) {}

std::size_t Receiver::take(std::size_t most) {
    std::array<std::uint8_t, 65'536> chunk;
    const std::size_t count = peer.take(MutableBytes(chunk).first(std::min(most, chunk.size())));
    const ByteView rest = ByteView(expected_).subspan(taken_);
    const auto end = chunk.begin() + static_cast<std::ptrdiff_t>(count);
    if (count > rest.size() || !std::equal(chunk.begin(), end, rest.begin())) {
        wrong_ = true;
    } else {
        taken_ += count;
    }
    return count;
}

std::string Receiver::story() const {
    const std::string how = peer.open() ? "open" : peer.end() == Peer::End::orderly ? "closed" : "reset";
    return (wrong_ ? "something else" : how) + " behind byte " + std::to_string(taken_) + " of " +
           std::to_string(expected_.size());
}

}  // namespace kavo::test
