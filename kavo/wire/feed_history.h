// The feed in a capture: every datagram with its time, and every message by its number. All of it is held in memory.
#pragma once

#include <cstdint>
#include <filesystem>
#include <vector>

#include "common/bytes.h"
#include "kavo/wire/capture.h"

namespace kavo::companion {

class FeedHistory {
public:
    // Reads the feed of a capture; where there are several, that of the most datagrams. Throws Problem when the file
    // cannot be read, or holds no feed.
    explicit FeedHistory(const std::filesystem::path& file);

    struct Datagram {
        std::uint64_t t_ns = 0;
        std::size_t at = 0;  // in the bytes of the history
        std::size_t size = 0;
        std::size_t day = 0;        // see days
        std::uint64_t last = 0;     // the highest number that is known from it, its own or a heartbeat's
        bool has_messages = false;  // no mere start or heartbeat
        std::uint8_t session = 0;
    };
    const std::vector<Datagram>& datagrams() const { return datagrams_; }
    ByteView bytes(const Datagram& datagram) const { return ByteView(bytes_).subspan(datagram.at, datagram.size); }

    struct Message {
        std::uint64_t sequence = 0;
        std::size_t at = 0;
        std::size_t size = 0;
    };
    // A day begins with a start packet, and numbers begin again at 1 with it. Each day's messages, each once, by
    // number; what the capture does not have is missing from here too.
    const std::vector<std::vector<Message>>& days() const { return days_; }
    ByteView bytes(const Message& message) const { return ByteView(bytes_).subspan(message.at, message.size); }

    const Capture::Endpoint& destination() const { return destination_; }
    std::size_t messages() const;
    // Numbers between the first and the last message of a day that the capture does not have.
    std::uint64_t missing() const;
    std::size_t other_feeds() const { return other_feeds_; }
    bool cut_short() const { return cut_short_; }

private:
    void choose_feed(const std::filesystem::path& file);
    void take(std::uint64_t t_ns, ByteView datagram);
    void begin_day();
    void put_in_order();

    Capture::Endpoint destination_;
    std::size_t other_feeds_ = 0;
    bool cut_short_ = false;
    Bytes bytes_;
    std::vector<Datagram> datagrams_;
    std::vector<std::vector<Message>> days_;
};

}  // namespace kavo::companion
