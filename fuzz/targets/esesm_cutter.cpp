// The receive buffer: however a stream arrives, the same packets come out of it.
#include <algorithm>

#include "harness/harness.h"
#include "harness/input.h"
#include "model/packets.h"
#include "session/esesm.h"

namespace kavo::fuzz {
namespace {

using Received = std::optional<esesm::Packet>;
using Expected = std::optional<model::Packet>;

constexpr std::size_t most_chunk_sizes = 16;
constexpr std::uint8_t large_chunks = 0xE0;
constexpr std::size_t large_chunk_unit = 512;

std::size_t chunk_size(std::uint8_t byte) {
    return byte < large_chunks ? byte + 1u : (byte - large_chunks + 1u) * large_chunk_unit;
}

void append(esesm::ReceiveBuffer& buffer, ByteView bytes) {
    Bytes& incoming = buffer.incoming();
    incoming.insert(incoming.end(), bytes.begin(), bytes.end());
}

Received cut(esesm::ReceiveBuffer& buffer) {
    const bool announced = buffer.holds_packet();
    const Received packet = buffer.cut();
    require(packet.has_value() == announced, "holds_packet tells whether cut gives a packet");
    return packet;
}

bool same(const Received& received, const Expected& expected) {
    if (!received || !expected) return !received && !expected;
    return static_cast<char>(received->type) == expected->type &&
           std::ranges::equal(received->payload, expected->payload);
}

class Stream {
public:
    explicit Stream(ByteView all) : all_(all) { append(at_once_, all_); }

    void arrive(std::size_t size) {
        const ByteView chunk = all_.subspan(arrived_, std::min(size, all_.size() - arrived_));
        append(in_chunks_, chunk);
        literal_.arrive(chunk);
        arrived_ += chunk.size();
        while (take_one()) count_step();
    }
    bool complete() const { return arrived_ == all_.size(); }
    void end() {
        if (!literal_.lost_track()) require(!cut(at_once_), "nothing comes at once that does not come in chunks");
    }

private:
    bool take_one() {
        const Received received = cut(in_chunks_);
        const Expected expected = literal_.cut();
        require(same(received, expected), "packets are cut as one would cut them on paper");
        if (expected && !literal_.lost_track())
            require(same(cut(at_once_), expected), "packets in chunks are the packets at once");
        return expected.has_value();
    }

    ByteView all_;
    std::size_t arrived_ = 0;
    esesm::ReceiveBuffer in_chunks_;
    esesm::ReceiveBuffer at_once_;
    model::Cutter literal_;
};

// First how many chunk sizes there are, then the sizes, to be used in turn, then the stream.
void cut_in_chunks(ByteView bytes) {
    Input input(bytes);
    const ByteView sizes = input.bytes(1 + input.below(most_chunk_sizes));
    Stream stream(input.rest());
    for (std::size_t i = 0; !stream.complete(); ++i) stream.arrive(chunk_size(sizes[i % sizes.size()]));
    stream.end();
}

}  // namespace
}  // namespace kavo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    return kavo::fuzz::run({data, size}, kavo::fuzz::cut_in_chunks);
}
