// Bytes on their way to one peer, kept until its connection takes them.
#pragma once

#include <cstdint>

#include "common/transport.h"

namespace kavo {

class Outgoing {
public:
    // How long a peer may take nothing before it is given up: less than the silence that would make it think that we
    // are gone.
    static constexpr std::uint64_t patience_ms = 2'000;

    // Bytes that no connection has taken yet.
    std::size_t size() const { return bytes_.size() - sent_; }
    bool empty() const { return size() == 0; }
    void add(ByteView bytes, std::uint64_t now_ms);

    // Hands over what the connection takes now, a megabyte at most. False when the peer is gone.
    bool send(const Transport& transport, int fd);

    // True when the peer's side has taken nothing of what is owed to it for so long. A socket that is full may still be
    // read at its far end, so it is asked how much of what it holds has arrived there.
    bool stalled(const Transport& transport, int fd, std::uint64_t now_ms);

private:
    Bytes bytes_;
    std::size_t sent_ = 0;           // of these bytes
    std::uint64_t handed_over_ = 0;  // of all that ever were
    std::uint64_t taken_ = 0;        // of these, by the peer's side
    std::uint64_t last_taken_ms_ = 0;
};

}  // namespace kavo
