// wire.pcapng: every datagram of the feed as it was received, and every byte over TCP as the relay in front of the
// venue saw it, on one clock. It opens in the usual tools: packets are plain IPv4 (LINKTYPE_RAW), nanoseconds, and a
// TCP conversation is written as one would look, with handshake, numbers, acknowledgements and its end.
//
// Each connection through the relay is written twice, as two conversations with the same client port: what client and
// relay said to each other, to the port that clients know, and what relay and venue said, to the port behind it. They
// differ when the relay holds, swallows or cuts, and in nothing else.
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
    // Begins a new file. Throws Problem when that cannot be.
    explicit Recording(const std::filesystem::path& file);

    //   destination  group or address of the feed, host byte order; the sender is written as 127.0.0.1
    void datagram(std::uint64_t t_ns, std::uint32_t destination, std::uint16_t port, ByteView bytes);

    // One conversation on 127.0.0.1, named by its two ports. A port that is used again begins a new one.
    struct Ends {
        std::uint16_t client = 0;
        std::uint16_t server = 0;
        auto operator<=>(const Ends&) const = default;
    };
    void opened(std::uint64_t t_ns, Ends ends);
    void said(std::uint64_t t_ns, Ends ends, bool by_client, ByteView bytes);
    void closed(std::uint64_t t_ns, Ends ends, bool by_client, bool reset);

    // Writes what is still buffered. False once something could not be written: the disk is full, say.
    bool flush();

private:
    struct Conversation {
        std::uint32_t client_next = 1;  // TCP sequence numbers
        std::uint32_t server_next = 1;
    };
    void tcp(std::uint64_t t_ns, Ends ends, bool by_client, std::uint8_t flags, ByteView bytes);
    void packet(std::uint64_t t_ns, ByteView header, ByteView bytes);

    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file_;
    std::map<Ends, Conversation> conversations_;
    bool whole_ = true;
};

}  // namespace kavo::companion
