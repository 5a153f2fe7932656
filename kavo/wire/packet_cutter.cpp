#include "kavo/wire/packet_cutter.h"

namespace kavo::companion {

void PacketCutter::take(ByteView bytes) {
    bytes_.erase(bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(cut_));
    cut_ = 0;
    bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
}

std::optional<ByteView> PacketCutter::next() {
    namespace at = esesm::layout::packet;
    const ByteView rest = ByteView(bytes_).subspan(cut_);
    if (rest.size() >= end_of(at::length) && get(rest, at::length) == 0) cut_ = bytes_.size();
    const auto packet = client::first_packet(ByteView(bytes_).subspan(cut_));
    if (packet) cut_ += packet->size();
    return packet;
}

}  // namespace kavo::companion
