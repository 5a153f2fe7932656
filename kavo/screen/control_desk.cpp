#include "kavo/screen/control_desk.h"

#include <chrono>
#include <thread>

#include "client/feed_messages.h"
#include "kavo/basics/problem.h"

namespace kavo::companion {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr seconds longest_answer{2};
constexpr seconds longest_step{2};
constexpr seconds longest_unrest{10};
constexpr seconds longest_silence{4};  // a bench at rest is heard every second
constexpr milliseconds between_looks{20};
constexpr milliseconds heartbeat_sent{1500};  // a second of rest, and then the next pass

void wait_a_moment(client::FeedReader* feed) {
    if (feed != nullptr) {
        feed->next_datagram(between_looks);
    } else {
        std::this_thread::sleep_for(between_looks);
    }
}

// Waits until more datagrams have left than these.
bool sends_more(const ControlDesk& desk, client::FeedReader* feed, std::uint64_t sent) {
    const auto end = steady_clock::now() + longest_step;
    while (desk.statistics().at("sent") <= sent) {
        if (steady_clock::now() >= end) return false;
        wait_a_moment(feed);
    }
    return true;
}

// True when the market's interval had to be changed for it.
bool release_held_datagram(const ControlDesk& desk, client::FeedReader* feed, std::uint64_t sent) {
    desk.ask("resume");
    if (sends_more(desk, feed, sent)) return false;
    desk.ask("rate 1");
    const bool moved = sends_more(desk, feed, sent);
    desk.ask("rate -1");
    if (moved) return true;
    throw Problem(Status::bench,
                  "the market makes no step, so a datagram may still be held back: does the bench have any symbols?");
}

// The number in the last heartbeat of a datagram.
std::optional<std::uint64_t> heartbeat_in(ByteView datagram) {
    std::optional<std::uint64_t> number;
    while (const auto packet = client::read_feed_packet(datagram)) {
        if (packet->header.type == mach::PacketType::heartbeat) number = packet->header.sequence;
    }
    return number;
}

Problem unrest() {
    return {Status::inconclusive,
            "the feed has not come to rest in 10 s, though the market is paused: does a client still trade, or is this "
            "the feed of another bench?"};
}

// Heartbeats come when nothing has been sent for a second.
std::uint64_t next_sequence_at_rest(const ControlDesk& desk, client::FeedReader& feed) {
    const auto begin = steady_clock::now();
    bool heard = false;
    while (steady_clock::now() < begin + (heard ? longest_unrest : longest_silence)) {
        const auto datagram = feed.next_datagram(milliseconds(200));
        if (!datagram) continue;
        heard = true;
        const auto last = heartbeat_in(*datagram);
        if (!last) continue;
        const std::uint64_t next = desk.statistics().at("next_seq");
        if (*last + 1 == next) return next;
    }
    if (heard) throw unrest();
    throw Problem(Status::bench,
                  "nothing is heard of the feed: give its --group, --port and --iface, as the bench has them");
}

// The same without listening: while nothing is published or sent, the bench sends a heartbeat after a second.
std::uint64_t next_sequence_after_rest(const ControlDesk& desk) {
    const auto end = steady_clock::now() + longest_unrest;
    auto since = steady_clock::now();
    Statistics before = desk.statistics();
    while (steady_clock::now() < end) {
        wait_a_moment(nullptr);
        const auto asked = steady_clock::now();
        Statistics now = desk.statistics();
        if (now.counters != before.counters) since = steady_clock::now();
        if (asked - since >= heartbeat_sent) return now.at("next_seq");
        before = std::move(now);
    }
    throw unrest();
}

}  // namespace

std::string ControlDesk::ask(const std::string& line) const {
    std::string reply = "silence";
    try {
        client_.send(line);
        reply = client_.next_reply(longest_answer);
    } catch (const std::runtime_error&) {  // the system knows already that nobody is there
    }
    if (reply != "silence") return reply;
    throw Problem(Status::bench, "nobody answers on 127.0.0.1:" + std::to_string(port_) +
                                     ": is the bench running, and is this its --control-port?");
}

Statistics ControlDesk::statistics() const {
    const std::string reply = ask("stats");
    if (auto statistics = read_statistics(reply)) return *statistics;
    throw Problem(Status::bench, "who answers on 127.0.0.1:" + std::to_string(port_) + " is no bench: " + reply);
}

Settled settle(const ControlDesk& desk, client::FeedReader* feed) {
    for (const char* off : {"drop_every 0", "dup_every 0", "reorder_every 0", "drop 0", "dup 0", "reorder 0"}) {
        desk.ask(off);
    }
    Settled settled;
    const Statistics before = desk.statistics();
    if (before.at("reordered") > 0) settled.interval_changed = release_held_datagram(desk, feed, before.at("sent"));
    desk.ask("pause");
    settled.next_sequence = feed != nullptr ? next_sequence_at_rest(desk, *feed) : next_sequence_after_rest(desk);
    return settled;
}

}  // namespace kavo::companion
