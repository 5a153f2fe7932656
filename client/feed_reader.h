// A receiver of the feed: datagrams from a socket, taken apart into numbered messages.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>

#include "common/bytes.h"
#include "feed/mach.h"

namespace kavo::client {

class FeedReader {
public:
    // Listens on a UDP port of 127.0.0.1 that the system chooses: for a feed sent with --mcast 127.0.0.1.
    FeedReader();
    // Joins a multicast group on an interface; an address of this machine's own takes a feed that is sent to it alone.
    // Throws when it cannot listen there.
    FeedReader(const std::string& group, std::uint16_t port, const std::string& interface_address);
    ~FeedReader();
    FeedReader(const FeedReader&) = delete;
    FeedReader& operator=(const FeedReader&) = delete;

    std::uint16_t port() const;

    // The next datagram whole; nothing when none comes in time.
    std::optional<Bytes> next_datagram(std::chrono::milliseconds longest);

    struct Packet {
        mach::Header header;
        Bytes message;
    };
    // The next packet, from the next datagram when this one is used up; nothing when none comes in time.
    std::optional<Packet> next_packet(std::chrono::milliseconds longest);

    // The first message whose text begins with `start`, start of a line as in transcript.h; what comes before it is
    // skipped. Empty when none comes in the usual patience.
    std::string next_message(const std::string& start);

    // The next message as a line of text, System Time left out: it comes whenever a second has turned. "silence" when
    // none comes in the usual patience.
    std::string next();
    // The next `count` lines, joined by " | ".
    std::string next(std::size_t count);
    // The same of everything that has arrived and has not been read; empty for nothing.
    std::string waiting();

    // What the packets that were read have shown of the feed so far.
    std::uint64_t last_sequence() const { return last_sequence_; }  // of the messages; 0 before the first
    std::size_t datagrams() const { return datagrams_; }            // those that carried messages

private:
    std::optional<std::string> next_line(std::chrono::milliseconds longest);

    int socket_ = -1;
    std::deque<Packet> packets_;  // of the latest datagram
    std::uint64_t last_sequence_ = 0;
    std::size_t datagrams_ = 0;
};

}  // namespace kavo::client
