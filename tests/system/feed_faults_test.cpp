// The damaged feed as its receivers see it. The market stands still and every order is a datagram of its own, so a
// scene knows the number of each: the start of the day takes 1 and 2, the first order is datagram 3.
#include <sstream>

#include "client/feed_messages.h"
#include "support/scene.h"
#include "system/full_venue.h"

namespace kavo::test {
namespace {

using std::chrono::milliseconds;

constexpr std::uint64_t first_order_datagram = 3;
class DamagedFeed {
public:
    explicit DamagedFeed(const LiveVenue::Flags& flags = {}) : venue(flags) {
        EXPECT_EQ(venue.feed.datagrams(), first_order_datagram - 1) << "the start of the day";
        last_.push_back(venue.feed.last_sequence());
    }

    std::string ask(const std::string& command) { return venue.control.ask(command); }

    // Publishes as many datagrams, by one order each.
    void send(int count) {
        while (count-- > 0) {
            const std::string id = "b" + std::to_string(++orders_);
            alice.send(buy(id).shares(100).at("180.00"));
            EXPECT_TRUE(alice.next(3).find("P1 " + id) != std::string::npos) << id;
        }
        ask("stats");  // answered in a later pass, so the last datagram has left or never will
        learn_what_was_published();
    }

    // The numbers of the datagrams that have arrived since the last call, in order.
    std::string arrived() {
        std::string numbers;
        while (const auto datagram = venue.feed.next_datagram(milliseconds(0))) {
            ByteView rest = *datagram;
            const auto packet = client::read_feed_packet(rest);
            if (packet->header.type != mach::PacketType::application_data) continue;
            if (!numbers.empty()) numbers += ' ';
            numbers += number_of(packet->header.sequence);
        }
        return numbers;
    }

    // The program's lines about what it did to these datagrams, as they must be.
    std::string dropped(std::uint64_t number) const {
        return "kavo_me fault: dropped seq " + std::to_string(first(number)) + " (packet " + std::to_string(number) +
               ", " + std::to_string(last(number) + 1 - first(number)) + " message(s))\n";
    }
    std::string duplicated(std::uint64_t number) const {
        return "kavo_me fault: duplicated seq " + std::to_string(first(number)) + "\n";
    }
    std::string reordered(std::uint64_t number) const {
        return "kavo_me fault: reordered seq " + std::to_string(first(number)) + " (held behind the next packet)\n";
    }
    // The lines as they are.
    std::string said() {
        std::string lines;
        std::istringstream all(venue.process.said());
        for (std::string line; std::getline(all, line);) {
            if (line.starts_with("kavo_me fault: ")) lines += line + "\n";
        }
        return lines;
    }
    std::string summary() {
        const std::string statistics = ask("stats");
        const std::size_t start = statistics.find("kavo_me faults: ");
        return statistics.substr(start, statistics.find(" session=") - start);
    }

    // The first and the last message of a datagram.
    std::uint64_t first(std::uint64_t number) const { return last_.at(number - first_order_datagram) + 1; }
    std::uint64_t last(std::uint64_t number) const { return last_.at(number - first_order_datagram + 1); }

    FullVenue venue;
    User alice{venue, "alice"};

private:
    // From the history, which no fault ever touches: each datagram ends with the order that it was made for. A second
    // that has turned adds one message in front of it.
    void learn_what_was_published() {
        for (const NumberedMessage& message :
             fetch_range(last_.back() + 1, largest_number, venue.retransmission_port())) {
            EXPECT_EQ(message.sequence, ++published_) << "the history has a hole";
            if (dom_text(message.message).starts_with("add ")) last_.push_back(message.sequence);
        }
        EXPECT_EQ(last_.size(), orders_ + 1);
    }
    std::string number_of(std::uint64_t sequence) const {
        for (std::size_t i = 0; i + 1 < last_.size(); ++i) {
            if (last_[i] + 1 == sequence) return std::to_string(first_order_datagram + i);
        }
        return "?";
    }

    std::size_t orders_ = 0;
    std::uint64_t published_ = venue.feed.last_sequence();
    std::vector<std::uint64_t> last_;  // the last message of datagram 2 and of each one after it
};

TEST(FaultyFeed, DoesAllThreeAtOnceWithABurstInBetween) {
    DamagedFeed feed({"--drop-every", "7", "--dup-every", "5", "--reorder-every", "11", "--drop-burst", "15:2"});
    feed.send(22);
    EXPECT_EQ(feed.arrived(), "3 4 5 5 6 8 9 10 10 12 11 13 17 18 19 20 20 23 22 24");
    EXPECT_EQ(feed.said(), feed.duplicated(5) + feed.dropped(7) + feed.duplicated(10) + feed.reordered(11) +
                               feed.dropped(14) + feed.dropped(15) + feed.dropped(16) + feed.duplicated(20) +
                               feed.dropped(21) + feed.reordered(22));
    EXPECT_EQ(feed.summary(), "kavo_me faults: sent 19 dropped 5 duplicated 3 reordered 2");
}

TEST(FaultyFeed, IsDamagedPeriodicallyOnCommandAndHealed) {
    DamagedFeed feed;
    feed.ask("drop_every 4");
    feed.ask("dup_every 5");
    feed.ask("reorder_every 6");
    feed.send(5);
    EXPECT_EQ(feed.arrived(), "3 5 5 7 6");
    feed.ask("drop_every");
    feed.ask("dup_every 0");
    feed.ask("reorder_every none");
    feed.send(5);
    EXPECT_EQ(feed.arrived(), "8 9 10 11 12");
    EXPECT_EQ(feed.summary(), "kavo_me faults: sent 11 dropped 1 duplicated 1 reordered 1");
}

TEST(FaultyFeed, LosesTheFirstOfTwoHeldDatagramsToAllButRetransmission) {
    DamagedFeed feed;
    feed.ask("reorder 2");
    feed.send(4);
    EXPECT_EQ(feed.arrived(), "5 4 6");
    EXPECT_EQ(feed.said(), feed.reordered(3) + feed.reordered(4));
    const auto lost = fetch_range(feed.first(3), feed.last(3), feed.venue.retransmission_port());
    ASSERT_FALSE(lost.empty());
    EXPECT_EQ(dom_text(lost.back().message), "add 1 #1040 B 100@180");
}

TEST(FaultyFeed, LetsHeartbeatsPassAndHoldsOnThroughThem) {
    DamagedFeed feed;
    feed.ask("reorder");
    feed.send(1);
    for (const std::string command : {"drop_every 1", "dup 1", "reorder 1"}) feed.ask(command);
    const auto packet = feed.venue.feed.next_packet(std::chrono::duration_cast<milliseconds>(patience));
    ASSERT_TRUE(packet);
    EXPECT_EQ(packet->header.type, mach::PacketType::heartbeat);
    EXPECT_EQ(packet->header.sequence, feed.last(3));  // which gives the held datagram away
    EXPECT_EQ(packet->header.length, 12);
    feed.ask("drop_every 0");
    feed.send(2);
    EXPECT_EQ(feed.arrived(), "5 4");  // 4 took the place of 3
}

TEST(FaultyFeed, KeepsAHeldDatagramToTheEnd) {
    DamagedFeed feed;
    feed.ask("reorder");
    feed.send(1);
    feed.venue.stop();
    EXPECT_EQ(feed.arrived(), "");
    const std::string said = feed.venue.process.said();
    EXPECT_NE(said.find("\nkavo_me faults: sent 3 dropped 0 duplicated 0 reordered 1\n"), std::string::npos) << said;
}

// What the next packet of a feed is, and its number.
std::string next_packet(FeedReader& feed) {
    const auto packet = feed.next_packet(std::chrono::duration_cast<milliseconds>(patience));
    if (!packet) return "silence";
    const std::string number = std::to_string(packet->header.sequence);
    if (packet->header.type == mach::PacketType::start) return "start " + number;
    return packet->header.type == mach::PacketType::heartbeat ? "heartbeat " + number : number;
}

TEST(FaultyFeed, AnnouncesTheSessionThoughEverythingElseIsDropped) {
    UnreadVenue venue({"--drop-every", "1"});
    const std::string last = std::to_string(venue.control.next_sequence() - 1);
    EXPECT_EQ(next_packet(venue.feed), "start 0");
    EXPECT_EQ(next_packet(venue.feed), "heartbeat " + last);
    EXPECT_EQ(venue.process.stop(), 0);
    EXPECT_NE(venue.process.said().find("\nkavo_me faults: sent 0 dropped 2 duplicated 0 reordered 0\n"),
              std::string::npos);
}

TEST(FaultyFeed, DropsTheVeryFirstDatagramWhenItsBurstBeginsThere) {
    UnreadVenue venue({"--drop-burst", "1:1"});
    EXPECT_TRUE(venue.process.says("kavo_me fault: dropped seq 1 (packet 1, "));
    const std::uint64_t messages = number_behind("dropped seq 1 (packet 1, ", venue.process.said());
    EXPECT_EQ(next_packet(venue.feed), "start 0");
    EXPECT_EQ(next_packet(venue.feed), std::to_string(messages + 1));
    EXPECT_EQ(fetch_range(1, messages, venue.retransmission_port()).size(), messages);
}

TEST(FaultyFeed, ShowsNothingWhenEveryDatagramTakesThePlaceOfTheHeldOne) {
    UnreadVenue venue({"--reorder-every", "1"});
    EXPECT_EQ(next_packet(venue.feed), "start 0");
    EXPECT_TRUE(next_packet(venue.feed).starts_with("heartbeat "));
    EXPECT_EQ(venue.process.stop(), 0);
    EXPECT_NE(venue.process.said().find("\nkavo_me faults: sent 2 dropped 0 duplicated 0 reordered 2\n"),
              std::string::npos);
}

}  // namespace
}  // namespace kavo::test
