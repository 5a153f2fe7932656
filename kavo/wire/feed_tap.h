// Listens to the feed beside the client, and records every datagram with the kernel's own time stamp. It also watches
// every other socket of this feed: when it came and went, and what the kernel throws away because it is not read.
#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "kavo/basics/loop.h"
#include "kavo/basics/number_ranges.h"
#include "kavo/basics/run_log.h"
#include "kavo/wire/recording.h"

namespace kavo::companion {

class FeedTap {
public:
    // Joins the group and binds to it, so that other groups on the same port are not heard; an address of this machine
    // takes a feed that is sent to it alone. Throws Problem when that cannot be.
    // The system begins to stamp some milliseconds later: what comes before carries the time at which it was read.
    FeedTap(Loop& loop, Recording& recording, RunLog& log, const std::string& group, std::uint16_t port,
            const std::string& interface_address);
    // Reads what is still there, and looks at the sockets once more.
    ~FeedTap();
    FeedTap(const FeedTap&) = delete;
    FeedTap& operator=(const FeedTap&) = delete;

    // Reads everything that has arrived.
    void drain();
    // Looks at once at the sockets of this feed, which else happens ten times a second.
    void look();
    // Numbers of the messages that have come.
    const NumberRanges& received() const { return received_; }

    // The feed is what comes from the first sender that was heard. Whatever others send to the same place is noted and
    // left out: a client that does so must not pass for the venue.
    bool one_sender = false;

    std::function<void(ByteView datagram)> on_datagram;
    // Called when the kernel has thrown datagrams of the feed away: this copy of them, or another receiver's.
    std::function<void(bool own, std::uint64_t drops)> on_drops;

private:
    void take(const msghdr& about, ByteView datagram);
    bool is_of_another(const sockaddr_in& sender);
    void look_again_soon();
    void note_socket(std::uint64_t inode, bool open, std::uint64_t now);
    void note_drops(std::uint64_t inode, std::uint64_t drops);

    Loop& loop_;
    Recording& recording_;
    RunLog& log_;
    std::uint32_t group_ = 0;  // host byte order
    std::uint16_t port_ = 0;
    int socket_ = -1;
    std::uint64_t own_inode_ = 0;
    std::map<std::uint64_t, std::uint64_t> drops_;  // of each socket, by its inode: how many are known
    std::set<std::uint64_t> there_;                 // sockets at the last look
    std::uint64_t looked_ns_ = 0;
    std::optional<sockaddr_in> sender_;
    Loop::Timer next_look_ = 0;
    NumberRanges received_;
    std::vector<std::uint8_t> room_;  // for a batch of datagrams
};

}  // namespace kavo::companion
