// A peer of the venue, on either of its services, that waits only where it is told to: one loop may have hundreds of
// them, and each reads as slowly as it likes, or never.
#pragma once

#include <chrono>
#include <cstdint>
#include <limits>
#include <optional>

#include "client/packets.h"
#include "client/requests.h"
#include "common/bytes.h"

namespace kavo::client {

class Peer {
public:
    enum class End { none, orderly, reset };

    static constexpr int little = 4096;

    // Connects to 127.0.0.1; throws when nobody listens.
    //   receive_buffer  bytes that the system may keep for a peer that does not read; 0 for as many as it likes
    explicit Peer(std::uint16_t port, int receive_buffer = 0);
    ~Peer();
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    // Sends as much of it as the connection takes, waiting so long for it to take anything, and tells how much that
    // was.
    std::size_t pour(ByteView bytes, std::chrono::milliseconds longest = {});
    // Sends all of it to somebody who goes on reading; throws when nobody does.
    void pour_all(ByteView bytes);
    void send_heartbeat();
    // Sends the login, and waits for the answer; throws when it is not accepted.
    void log_in(const Login& login);
    // Logs out, and waits until the venue has closed the connection.
    void log_out();

    // Reads what has come, a megabyte or `most` bytes of it, for next_packet to give out; tells how much that was.
    std::size_t take(std::size_t most = std::numeric_limits<std::size_t>::max());
    // The same for whoever wants the bytes alone, and as many as there is room for.
    std::size_t take(MutableBytes into);
    // Throws away what has come, which costs next to nothing.
    void discard();
    // The next whole packet of what has been taken, valid until more is.
    std::optional<ByteView> next_packet();
    // The same, taking more and waiting so long for it.
    std::optional<ByteView> next_packet(std::chrono::milliseconds longest);

    // How the connection has ended, as far as taking has shown.
    End end() const { return end_; }
    bool open() const { return end_ == End::none; }
    int socket() const { return socket_; }

    // From here on the connection ends by a reset.
    void break_off() const;

private:
    static constexpr std::size_t most_at_once = 1 << 20;

    int socket_;
    Bytes received_;
    std::size_t given_ = 0;  // bytes of it that have been given out as packets
    bool reset_ = false;     // as sending has shown; what had come before that may still be taken
    End end_ = End::none;
};

}  // namespace kavo::client
