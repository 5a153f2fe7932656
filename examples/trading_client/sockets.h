// Sockets that never wait, and the time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>

#include "common/bytes.h"
#include "settings.h"

namespace trading {

std::uint64_t now_ms();   // since some moment; never goes back
std::uint64_t wall_ns();  // since the Unix epoch

class Socket {
public:
    Socket() = default;
    explicit Socket(int number) : number_(number) {}
    Socket(Socket&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Socket& operator=(Socket&& other) noexcept;
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;
    ~Socket() { close(); }

    void close();
    bool open() const { return number_ >= 0; }
    int number() const { return number_; }

    // Adds what has arrived, as much as there is. False when the connection has ended or never stood.
    bool read(kavo::Bytes& into) const;
    // How much of it was taken; nothing when the connection has ended or never stood.
    std::optional<std::size_t> write(kavo::ByteView bytes) const;
    // The next datagram; nothing when none waits.
    std::optional<kavo::Bytes> datagram() const;

private:
    int number_ = -1;
};

// Begins to connect; whether that succeeds shows when the socket is used.
Socket begin_connection(const Address& address);

// Joins the group and binds to it, so that other groups on the same port are not heard; an address of this machine
// takes a feed that is sent to it alone. Throws std::runtime_error when that cannot be.
Socket join_feed(const Address& feed, const std::string& interface_address);

}  // namespace trading
