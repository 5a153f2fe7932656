#include "kavo/wire/feed_history.h"

#include <algorithm>
#include <map>

#include "client/feed_messages.h"
#include "kavo/basics/problem.h"

namespace kavo::companion {

namespace {

// Other programs talk over UDP as well. A datagram of a feed is a run of packets up to its last byte.
bool is_of_a_feed(const Capture::Packet& packet) {
    if (packet.protocol != Capture::Protocol::udp || !packet.whole || packet.payload.empty()) return false;
    ByteView rest = packet.payload;
    while (const auto inner = client::read_feed_packet(rest)) {
        const mach::PacketType type = inner->header.type;
        const bool message = type == mach::PacketType::application_data;
        if (message == inner->message.empty()) return false;
        if (!message && type != mach::PacketType::heartbeat && type != mach::PacketType::start) return false;
    }
    return rest.empty();
}

}  // namespace

FeedHistory::FeedHistory(const std::filesystem::path& file) {
    choose_feed(file);
    Capture capture(file);
    for (Capture::Packet packet; capture.next(packet);) {
        if (packet.destination == destination_ && is_of_a_feed(packet)) take(packet.t_ns, packet.payload);
    }
    put_in_order();
}

void FeedHistory::choose_feed(const std::filesystem::path& file) {
    std::map<Capture::Endpoint, std::size_t> datagrams;
    Capture capture(file);
    for (Capture::Packet packet; capture.next(packet);) {
        if (is_of_a_feed(packet)) ++datagrams[packet.destination];
    }
    cut_short_ = capture.cut_short();
    if (datagrams.empty()) {
        throw Problem(Status::usage, "no feed in " + file.string() +
                                         ": record one with `kavo record FILE`, or name the folder of a run");
    }
    other_feeds_ = datagrams.size() - 1;
    destination_ = std::ranges::max_element(datagrams, {}, [](const auto& entry) { return entry.second; })->first;
}

void FeedHistory::begin_day() {
    if (days_.empty() || !days_.back().empty()) days_.emplace_back();
}

void FeedHistory::take(std::uint64_t t_ns, ByteView datagram) {
    if (days_.empty()) begin_day();
    Datagram taken{.t_ns = t_ns, .at = bytes_.size(), .size = datagram.size()};
    bytes_.insert(bytes_.end(), datagram.begin(), datagram.end());
    ByteView rest = bytes(taken);
    while (const auto packet = client::read_feed_packet(rest)) {
        const auto& [sequence, length, type, session] = packet->header;
        if (type == mach::PacketType::start) begin_day();
        taken.session = session;
        taken.last = std::max(taken.last, sequence);
        if (type != mach::PacketType::application_data) continue;
        taken.has_messages = true;
        const auto at = static_cast<std::size_t>(packet->message.data() - bytes_.data());
        days_.back().push_back({sequence, at, packet->message.size()});
    }
    taken.day = days_.size() - 1;
    datagrams_.push_back(taken);
}

void FeedHistory::put_in_order() {
    for (std::vector<Message>& day : days_) {
        std::ranges::stable_sort(day, {}, &Message::sequence);
        const auto same = [](const Message& a, const Message& b) { return a.sequence == b.sequence; };
        day.erase(std::unique(day.begin(), day.end(), same), day.end());
    }
}

std::size_t FeedHistory::messages() const {
    std::size_t count = 0;
    for (const auto& day : days_) count += day.size();
    return count;
}

std::uint64_t FeedHistory::missing() const {
    std::uint64_t count = 0;
    for (const auto& day : days_) {
        if (!day.empty()) count += day.back().sequence - day.front().sequence + 1 - day.size();
    }
    return count;
}

}  // namespace kavo::companion
