#include "kavo/wire/feed_player.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "client/dial.h"
#include "feed/mach.h"
#include "kavo/basics/problem.h"

namespace kavo::companion {

namespace {

constexpr std::chrono::seconds longest_silence{1};
// Recoveries and signals have their turn between so many.
constexpr int datagrams_a_turn = 64;

bool fires(std::uint64_t number, std::uint64_t every) {
    return every != 0 && number % every == 0;
}

int open_sender(const std::string& interface_address) {
    const int sender = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const in_addr interface = client::ipv4_address(interface_address);
    const std::uint8_t one_hop = 1;
    const std::uint8_t heard_here = 1;
    setsockopt(sender, IPPROTO_IP, IP_MULTICAST_TTL, &one_hop, sizeof one_hop);
    setsockopt(sender, IPPROTO_IP, IP_MULTICAST_LOOP, &heard_here, sizeof heard_here);
    if (setsockopt(sender, IPPROTO_IP, IP_MULTICAST_IF, &interface, sizeof interface) == 0) return sender;
    close(sender);
    throw Problem(Status::usage, "no interface of this machine has the address " + interface_address +
                                     ": name one with --iface, see `ip address`");
}

}  // namespace

FeedPlayer::FeedPlayer(Loop& loop, const FeedHistory& history, PublishedFeed& published, const Playing& playing)
    : loop_(loop), history_(history), published_(published), playing_(playing) {
    destination_.sin_family = AF_INET;
    destination_.sin_port = htons(playing.port);
    destination_.sin_addr = client::ipv4_address(playing.group);
    socket_ = open_sender(playing.interface_address);
    next_play_ = loop_.after(std::chrono::nanoseconds(0), [this] { play_what_is_due(); });
}

FeedPlayer::~FeedPlayer() {
    loop_.cancel(next_play_);
    loop_.cancel(next_beat_);
    close(socket_);
}

// A recording holds datagrams in the order of their arrival, but a clock may have been set back meanwhile.
FeedPlayer::Clock::time_point FeedPlayer::due(const FeedHistory::Datagram& datagram) const {
    const std::uint64_t first = history_.datagrams().front().t_ns;
    if (playing_.speed == 0 || datagram.t_ns <= first) return begun_;
    const double after_ns = static_cast<double>(datagram.t_ns - first) / playing_.speed;
    return begun_ + std::chrono::nanoseconds(static_cast<std::int64_t>(after_ns));
}

void FeedPlayer::play_what_is_due() {
    const auto& datagrams = history_.datagrams();
    const auto now = Clock::now();
    for (int left = datagrams_a_turn; left > 0 && !done() && due(datagrams[next_]) <= now; --left) {
        play(datagrams[next_++]);
    }
    if (done()) return release_held();
    const auto wait = std::max(due(datagrams[next_]) - now, Clock::duration::zero());
    next_play_ = loop_.after(wait, [this] { play_what_is_due(); });
}

void FeedPlayer::play(const FeedHistory::Datagram& datagram) {
    const ByteView bytes = history_.bytes(datagram);
    published_.publish(datagram);
    if (!datagram.has_messages) return send(bytes);
    const std::uint64_t number = ++counters_.datagrams;
    if (fires(number, playing_.drop_every)) {
        ++counters_.dropped;
        return;
    }
    if (held_.empty() && fires(number, playing_.reorder_every)) {
        ++counters_.reordered;
        held_ = bytes;
        return;
    }
    send(bytes);
    if (fires(number, playing_.duplicate_every)) {
        ++counters_.duplicated;
        send(bytes);
    }
    release_held();
}

// The last one is not kept for ever, unlike by the simulator: nothing more comes that could release it.
void FeedPlayer::release_held() {
    if (!held_.empty()) send(std::exchange(held_, {}));
}

// Nobody there, or no room for more, is what happens to feeds; anything else would go on happening.
void FeedPlayer::send(ByteView datagram) {
    const ssize_t sent = sendto(socket_, datagram.data(), datagram.size(), 0,
                                reinterpret_cast<const sockaddr*>(&destination_), sizeof destination_);
    if (sent < 0 && errno != ECONNREFUSED && errno != ENOBUFS && errno != EAGAIN && errno != EINTR) {
        throw Problem(Status::bench, "cannot send to " + playing_.group + ":" + std::to_string(playing_.port) + " (" +
                                         std::strerror(errno) + "): name another --group, or an --iface that is up");
    }
    ++counters_.sent;
    loop_.cancel(next_beat_);
    next_beat_ = loop_.after(longest_silence, [this] { beat(); });
}

void FeedPlayer::beat() {
    send(mach::build(
        {.sequence = published_.last(), .type = mach::PacketType::heartbeat, .session = published_.session()}));
}

}  // namespace kavo::companion
