// The feed as it leaves the process: the group it goes to, how a day opens, how datagrams are filled, and what is sent
// when nothing happens.
#include <unistd.h>

#include <chrono>
#include <ctime>

#include "client/feed_messages.h"
#include "support/scene.h"
#include "system/live_venue.h"

namespace kavo::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

LiveVenue::Flags flags_for(const FeedReader& feed, const ReservedPort& meo_port, const LiveVenue::Flags& more) {
    LiveVenue::Flags flags = {"--mcast",        "127.0.0.1", "--port",     std::to_string(feed.port()),
                              "--retrans-port", "0",         "--meo-port", std::to_string(meo_port.number()),
                              "--interval-ms",  "-1"};
    flags.insert(flags.end(), more.begin(), more.end());
    return flags;
}

// Any program on this machine may send to the default group, so this one has a session number of its own.
TEST(LiveFeed, OpensTheDayOnItsDefaultGroup) {
    const int session = 2 + getpid() % 254;
    FeedReader feed("233.54.28.111", 25377, "127.0.0.1");
    const ReservedPort meo_port;
    Process process(KAVO_ME_PATH, {"--session", std::to_string(session), "--retrans-port", "0", "--meo-port",
                                   std::to_string(meo_port.number())});
    EXPECT_TRUE(process.says("[kavo_me] DoM/MACH 233.54.28.111:25377 (iface 127.0.0.1, session " +
                             std::to_string(session) +
                             ", retransmission ESesM/TCP :0) · MEO/ESesM :" + std::to_string(meo_port.number()) +
                             " · ACOD do not cancel (venue default) · max order size 25000 · "
                             "AAPL:190.00,MSFT:410.00,SPY:520.00\n"));
    const auto next = [&] {
        while (const auto packet = feed.next_packet(patience)) {
            if (packet->header.session == session) return *packet;
        }
        throw std::runtime_error("nothing comes from the group");
    };
    const FeedReader::Packet start = next();
    EXPECT_EQ(start.header.type, mach::PacketType::start);
    EXPECT_EQ(start.header.sequence, 0U);
    EXPECT_EQ(start.header.length, 12);
    std::vector<std::string> day;
    for (std::uint64_t number = 1; day.size() < 10; ++number) {
        const FeedReader::Packet packet = next();
        EXPECT_EQ(packet.header.sequence, number);
        const std::string line = dom_text(packet.message);
        if (!line.starts_with("time ")) day.push_back(line);
    }
    EXPECT_EQ(joined(day), "state session " + std::to_string(session) +
                               " | definition 1 AAPL Q | definition 2 MSFT Q | definition 3 SPY P | "
                               "open 1 | open 2 | open 3 | status 1 | status 2 | status 3");
}

TEST(LiveFeed, BeginsWithABareStartPacketAndThenNumbersEveryMessage) {
    FeedReader feed;
    const ReservedPort meo_port;
    const auto before = std::time(nullptr);
    Process process(KAVO_ME_PATH, flags_for(feed, meo_port, {"--session", "7", "--symbols", "AAPL:190.00,SPY:520.00"}));
    EXPECT_EQ(feed.next_datagram(patience), (Bytes{0, 0, 0, 0, 0, 0, 0, 0, 12, 0, 1, 7}));

    std::uint64_t number = 1;
    const auto next_line = [&]() -> std::string {
        const auto packet = feed.next_packet(patience);
        if (!packet) return "silence";
        EXPECT_EQ(packet->header.sequence, number++);
        EXPECT_EQ(packet->header.type, mach::PacketType::application_data);
        EXPECT_EQ(packet->header.session, 7);
        return dom_text(packet->message);
    };
    const std::string time = next_line();  // ahead of everything in its second
    ASSERT_TRUE(time.starts_with("time ")) << time;
    const auto second = std::stol(time.substr(5));
    EXPECT_LE(before, second);
    EXPECT_LE(second, std::time(nullptr));

    const auto next_in_order = [&] {
        std::string line = next_line();
        while (line.starts_with("time ")) line = next_line();
        return line;
    };
    for (const char* line :
         {"state session 7", "definition 1 AAPL Q", "definition 2 SPY P", "open 1", "open 2", "status 1", "status 2"}) {
        EXPECT_EQ(next_in_order(), line);
    }
    int order_id = 1000;
    for (const char* secid : {"1", "2"}) {
        for (int i = 0; i < 40; ++i) {
            const std::string start = std::string("add ") + secid + " #" + std::to_string(order_id++) + " ";
            EXPECT_TRUE(next_in_order().starts_with(start)) << start;
        }
    }
    EXPECT_TRUE(process.catches(SIGTERM));
    EXPECT_EQ(process.stop(), 0);
    EXPECT_FALSE(feed.next_packet(milliseconds(0)));  // nothing announces the end
}

TEST(LiveFeed, FillsADatagramUntilTheNextMessageDoesNotFit) {
    FeedReader feed;
    const ReservedPort meo_port;
    Process process(KAVO_ME_PATH, flags_for(feed, meo_port, {"--symbols", "A,B,C,D,E,F,G,H,I,J"}));
    EXPECT_TRUE(feed.next_datagram(patience));  // the start packet
    std::uint64_t number = 1;
    std::size_t filled = 1400;
    for (int adds = 0; adds < 400;) {
        const auto datagram = feed.next_datagram(patience);
        ASSERT_TRUE(datagram);
        EXPECT_LE(datagram->size(), 1400U);
        ASSERT_GT(datagram->size(), mach::layout::header_size) << "the day has not been told to its end";
        ByteView rest = *datagram;
        const std::size_t first = get(rest, mach::layout::length);
        EXPECT_GT(filled + first, 1400U) << "message " << number << " had room in the datagram before";
        filled = datagram->size();
        while (const auto packet = client::read_feed_packet(rest)) {
            EXPECT_EQ(packet->header.sequence, number++);
            if (dom_text(packet->message).starts_with("add ")) ++adds;
        }
        EXPECT_TRUE(rest.empty());
    }
}

// A full second passes before each heartbeat, so a market that stood still only for the moment would show.
TEST(LiveFeed, BeatsAfterEachIdleSecondWithTheLastNumberAndNothingElse) {
    auto quiet_since = steady_clock::now();
    LiveVenue venue({"--interval-ms", "-1", "--session", "9"});
    const auto expect_heartbeat = [&] {
        const auto packet = venue.feed.next_packet(patience);
        ASSERT_TRUE(packet);
        EXPECT_EQ(packet->header.type, mach::PacketType::heartbeat);
        EXPECT_EQ(packet->header.length, 12);
        EXPECT_EQ(packet->header.session, 9);
        EXPECT_EQ(packet->header.sequence, venue.feed.last_sequence());
        EXPECT_TRUE(packet->message.empty());
        EXPECT_GE(steady_clock::now() - quiet_since, milliseconds(999));  // a second of a clock of whole milliseconds
    };
    expect_heartbeat();
    quiet_since += milliseconds(999);
    expect_heartbeat();

    User alice(venue, "alice");
    quiet_since = steady_clock::now();
    alice.send(buy("b1").shares(100).at("100.00"));
    EXPECT_EQ(venue.feed.next(), "add 1 #1040 B 100@100");
    expect_heartbeat();
}

}  // namespace
}  // namespace kavo::test
