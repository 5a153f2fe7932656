// wire.pcapng: every datagram of the feed as it was received, and every byte over TCP as the relay in front of the
// venue saw it, on one clock. It opens in the usual tools: packets are plain IPv4 (LINKTYPE_RAW), nanoseconds, and a
// TCP conversation is written as one would look, with handshake, numbers, acknowledgements and its end.
//
// Each connection through the relay is written twice, as two conversations with the same client port: what client and
// relay said to each other, to the port that clients know, and what relay and venue said, to the port behind it. They
// differ when the relay holds, swallows or cuts, and in nothing else.
//
// Packets stand in the order in which kavo saw them. Datagrams carry the time at which the kernel received them, so a
// time may lie a little before that of the packet in front of it.
#pragma once

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <string>

#include "common/bytes.h"

namespace kavo::companion {

class Recording {
public:
    // Begins a new file, in place of one that is there. Throws Problem when that cannot be.
    explicit Recording(const std::filesystem::path& file);
    ~Recording();
    Recording(const Recording&) = delete;
    Recording& operator=(const Recording&) = delete;

    //   destination  group or address of the feed, host byte order; the sender is written as 127.0.0.1
    //   bytes        65,507 at most, which is all that a datagram holds
    void datagram(std::uint64_t t_ns, std::uint32_t destination, std::uint16_t port, ByteView bytes);

    // The next number of a connection through a relay: 1, 2, ... in the order of their opening, over all relays.
    std::size_t number_connection() { return ++connections_; }

    // One conversation on 127.0.0.1, named by its two ports. Ports that are used again begin a new one.
    struct Ends {
        std::uint16_t client = 0;
        std::uint16_t server = 0;
        auto operator<=>(const Ends&) const = default;
    };
    void opened(std::uint64_t t_ns, Ends ends);
    // Of a conversation that is open; nobody says anything after a close of its own.
    void said(std::uint64_t t_ns, Ends ends, bool by_client, ByteView bytes);
    void closed(std::uint64_t t_ns, Ends ends, bool by_client, bool reset);

    // Writes what is still buffered, in whole packets. False once something could not be written: the disk is full,
    // say. Nothing more is written from then on, so that the file is whole up to there.
    bool flush();

private:
    struct Speaker {
        std::uint32_t next = 0;   // sequence number of its next byte
        std::uint32_t heard = 0;  // what it has acknowledged of the other
        bool closed = false;
    };
    struct Conversation {
        Speaker client;
        Speaker server;
        Speaker& speaker(bool by_client) { return by_client ? client : server; }
    };
    void tcp(std::uint64_t t_ns, Ends ends, bool by_client, std::uint8_t flags, ByteView bytes);
    void packet(std::uint64_t t_ns, ByteView header, ByteView bytes);

    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file_;
    Bytes buffer_;  // of our own, so that what reaches the disk always ends with a whole packet
    std::map<Ends, Conversation> conversations_;
    std::uint32_t opened_ = 0;
    std::size_t connections_ = 0;
    bool whole_ = true;
};

}  // namespace kavo::companion
