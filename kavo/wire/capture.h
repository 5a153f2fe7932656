// Reads the datagrams and segments out of a capture file, one after the other: a recording of our own, or whatever a
// capture program has written (pcap or pcapng, IPv4 in plain, Ethernet or "any interface" packets, any precision).
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>

#include "common/bytes.h"

struct pcap;

namespace kavo::companion {

class Capture {
public:
    // Throws Problem when there is no such file, or it is no capture.
    explicit Capture(const std::filesystem::path& file);

    enum class Protocol { udp, tcp };
    struct Endpoint {
        std::uint32_t address = 0;  // host byte order
        std::uint16_t port = 0;
        auto operator<=>(const Endpoint&) const = default;
    };
    struct Packet {
        std::uint64_t t_ns = 0;    // wall clock
        std::uint64_t number = 0;  // in the file, from 1, as the usual tools show it
        Protocol protocol = Protocol::udp;
        Endpoint source;
        Endpoint destination;
        std::uint8_t tcp_flags = 0;  // as on the wire: tcp_fin, ...
        std::uint32_t tcp_sequence = 0;
        ByteView payload;   // lent until the next call
        bool whole = true;  // false when the capture kept only the beginning of it
    };
    static constexpr std::uint8_t tcp_fin = 0x01;
    static constexpr std::uint8_t tcp_syn = 0x02;
    static constexpr std::uint8_t tcp_rst = 0x04;
    static constexpr std::uint8_t tcp_psh = 0x08;
    static constexpr std::uint8_t tcp_ack = 0x10;

    // The next datagram or segment; packets of any other kind, and fragments, are passed over. False at the end.
    bool next(Packet& packet);
    // After the end: the file ends in the middle of a packet, or goes on with what is none.
    bool cut_short() const { return cut_short_; }

private:
    std::unique_ptr<pcap, void (*)(pcap*)> file_;
    std::uint64_t read_ = 0;  // packets of any kind
    bool cut_short_ = false;
};

}  // namespace kavo::companion
