#include "client/feed_receiver.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>

namespace kavo::client {
namespace {

template <typename Packet>
void append(Bytes& bytes, const Packet& packet) {
    bytes.insert(bytes.end(), packet.begin(), packet.end());
}

Bytes bare(mach::PacketType type, std::uint64_t sequence) {
    const auto header = build(mach::Header{sequence, mach::layout::header_size, type, 1});
    return {header.begin(), header.end()};
}
Bytes heartbeat(std::uint64_t last) {
    return bare(mach::PacketType::heartbeat, last);
}

// Message n of the day: number 1 defines product 1, every later one adds a buy order of 100 shares, each at the same
// price of a dollar.
Bytes message(std::uint64_t number) {
    Bytes bytes;
    if (number == 1) {
        append(bytes, build(dom::SeriesDefinition{0, 1, "AAPL", 'Q'}));
    } else {
        append(bytes, build(dom::AddOrder{0, 1, 1000 + number, 'B', 1'000'000, 100, ""}));
    }
    return bytes;
}

Bytes datagram(std::initializer_list<std::uint64_t> numbers) {
    Bytes bytes;
    for (const std::uint64_t number : numbers) {
        const Bytes content = message(number);
        const auto length = static_cast<std::uint16_t>(mach::layout::header_size + content.size());
        append(bytes, build(mach::Header{number, length, mach::PacketType::application_data, 1}));
        append(bytes, content);
    }
    return bytes;
}

std::vector<NumberedMessage> told(std::initializer_list<std::uint64_t> numbers) {
    std::vector<NumberedMessage> messages;
    for (const std::uint64_t number : numbers) messages.push_back({number, message(number)});
    return messages;
}

// What a receiver has applied, one by one, as their numbers.
struct Receiver : FeedReceiver {
    Receiver() {
        on_applied = [this](std::uint64_t sequence, std::uint32_t) { applied += std::to_string(sequence) + " "; };
    }
    std::string applied;
};

TEST(FeedReceiver, AppliesTheMessagesOfTheDayInOrder) {
    Receiver receiver;
    receiver.take(datagram({1, 2}));
    receiver.take(datagram({3}));
    EXPECT_EQ(receiver.applied, "1 2 3 ");
    EXPECT_EQ(receiver.next_sequence(), 4u);
    EXPECT_FALSE(receiver.has_gap());
    EXPECT_EQ(receiver.book().text(1, 1), "AAPL  200@1 |");
}

TEST(FeedReceiver, WaitsBehindAGapAndTellsWhatIsMissing) {
    Receiver receiver;
    receiver.take(datagram({1}));
    receiver.take(datagram({4, 5}));
    EXPECT_EQ(receiver.applied, "1 ");
    ASSERT_TRUE(receiver.has_gap());
    EXPECT_EQ(receiver.missing(), (SequenceRange{2, 3}));
    EXPECT_FALSE(receiver.recovery_due());
}

TEST(FeedReceiver, LetsTheOrderOfDatagramsHeal) {
    Receiver receiver;
    receiver.take(datagram({1}));
    receiver.take(datagram({3}));
    receiver.take(datagram({2}));
    EXPECT_EQ(receiver.applied, "1 2 3 ");
    EXPECT_EQ(receiver.counters.late, 1u);
    EXPECT_EQ(receiver.counters.gaps, 0u);
    EXPECT_FALSE(receiver.recovery_due());
}

TEST(FeedReceiver, AsksWithTheThirdDatagramSinceTheGapShowed) {
    Receiver receiver;
    receiver.take(datagram({1}));
    receiver.take(datagram({3}));
    receiver.take(datagram({4}));
    EXPECT_FALSE(receiver.recovery_due());
    receiver.take(datagram({5}));
    EXPECT_TRUE(receiver.recovery_due());
}

TEST(FeedReceiver, AsksAtOnceForWhatAHeartbeatShows) {
    Receiver receiver;
    receiver.take(datagram({1}));
    receiver.take(heartbeat(3));
    EXPECT_TRUE(receiver.recovery_due());
    EXPECT_EQ(receiver.missing(), (SequenceRange{2, 3}));
}

TEST(FeedReceiver, IsNotAlarmedByAHeartbeatThatShowsNothingNew) {
    Receiver receiver;
    receiver.take(datagram({1}));
    receiver.take(heartbeat(1));
    EXPECT_FALSE(receiver.has_gap());
    EXPECT_FALSE(receiver.recovery_due());
}

TEST(FeedReceiver, PassesOverWhatComesTwice) {
    Receiver receiver;
    receiver.take(datagram({1, 2}));
    receiver.take(datagram({1, 2}));
    receiver.take(datagram({4}));
    receiver.take(datagram({4}));
    EXPECT_EQ(receiver.applied, "1 2 ");
    EXPECT_EQ(receiver.counters.duplicates, 3u);
    EXPECT_EQ(receiver.book().text(1, 1), "AAPL  100@1 |");
}

TEST(FeedReceiver, AsksForTheNeighboursOfAGapToo) {
    Receiver receiver;
    receiver.take(datagram({1}));
    receiver.take(datagram({4}));
    EXPECT_EQ(receiver.begin_recovery(), (SequenceRange{1, 4}));
    Receiver nothing_known;
    nothing_known.take(heartbeat(3));
    EXPECT_EQ(nothing_known.begin_recovery(), (SequenceRange{1, 3}));
}

TEST(FeedReceiver, GoesOnBehindWhatWasRecovered) {
    Receiver receiver;
    receiver.take(datagram({1}));
    receiver.take(datagram({4}));
    std::string gap;
    receiver.on_gap = [&](std::uint64_t first, std::uint64_t last) {
        gap = std::to_string(first) + ".." + std::to_string(last);
    };
    receiver.begin_recovery();
    EXPECT_EQ(gap, "2..3");
    EXPECT_EQ(receiver.take_recovered(told({1, 2, 3, 4})), Recovered::whole);
    EXPECT_EQ(receiver.applied, "1 2 3 4 ");
    EXPECT_EQ(receiver.counters.recovered, 2u);
    EXPECT_EQ(receiver.counters.gaps, 1u);
    EXPECT_FALSE(receiver.has_gap());
}

TEST(FeedReceiver, TakesDatagramsWhileARecoveryIsUnderWay) {
    Receiver receiver;
    receiver.take(datagram({1}));
    receiver.take(datagram({4}));
    receiver.begin_recovery();
    receiver.take(datagram({3}));
    receiver.take(datagram({5}));
    receiver.take(datagram({2}));
    EXPECT_EQ(receiver.take_recovered(told({1, 2, 3, 4})), Recovered::whole);
    EXPECT_EQ(receiver.applied, "1 2 3 4 5 ");
    EXPECT_EQ(receiver.counters.recovered, 0u);
}

TEST(FeedReceiver, NeedsASnapshotWhenTheServiceHasForgottenWhatIsMissing) {
    Receiver receiver;
    receiver.take(datagram({1}));
    receiver.take(datagram({5}));
    receiver.begin_recovery();
    EXPECT_EQ(receiver.take_recovered(told({3, 4, 5})), Recovered::out_of_reach);
    EXPECT_EQ(receiver.applied, "1 ");
}

TEST(FeedReceiver, SeesThatAServiceServesAnotherFeed) {
    Receiver receiver;
    receiver.take(datagram({1, 2}));
    receiver.take(datagram({4}));
    receiver.begin_recovery();
    EXPECT_EQ(receiver.take_recovered({{2, message(9)}, {3, message(3)}}), Recovered::another_feed);
    EXPECT_EQ(receiver.take_recovered({}), Recovered::another_feed);
    EXPECT_EQ(receiver.applied, "1 2 ");
}

TEST(FeedReceiver, GoesOnBehindTheMessageThatASnapshotIsAsOf) {
    Receiver receiver;
    receiver.take(datagram({1}));
    receiver.take(datagram({5, 7}));
    std::uint64_t as_of = 0;
    receiver.on_snapshot = [&](std::uint64_t sequence) { as_of = sequence; };
    receiver.start_from({6, {message(1), message(3)}});
    EXPECT_EQ(as_of, 6u);
    EXPECT_EQ(receiver.applied, "1 7 ") << "5 is in the snapshot, 7 had come already";
    EXPECT_EQ(receiver.next_sequence(), 8u);
    EXPECT_EQ(receiver.book().text(1, 1), "AAPL  200@1 |") << "one order of the snapshot, and number 7";
    EXPECT_EQ(receiver.counters.refreshes, 1u);
}

TEST(FeedReceiver, ForgetsEverythingWhenAnotherSessionStarts) {
    Receiver receiver;
    receiver.take(datagram({1, 2}));
    receiver.take(datagram({5}));
    receiver.take(bare(mach::PacketType::start, 0));
    EXPECT_EQ(receiver.next_sequence(), 1u);
    EXPECT_FALSE(receiver.has_gap());
    EXPECT_TRUE(receiver.early().empty());
    EXPECT_TRUE(receiver.book().books().empty());
    receiver.take(datagram({1}));
    EXPECT_EQ(receiver.applied, "1 2 1 ");
}

TEST(FeedReceiver, FindsThatADatagramContradictsWhatCameBefore) {
    Receiver receiver;
    receiver.take(datagram({1, 2, 3}));
    EXPECT_FALSE(receiver.contradicts(datagram({2, 3, 4})));
    EXPECT_FALSE(receiver.contradicts(heartbeat(3)));
    EXPECT_FALSE(receiver.contradicts(bare(mach::PacketType::start, 0)));
    EXPECT_TRUE(receiver.contradicts(heartbeat(2)));
    Bytes other = datagram({2});
    other.back() = 'X';
    EXPECT_TRUE(receiver.contradicts(other));
}

TEST(FeedReceiver, CountsMessagesAboutOrdersThatItHasNeverHeardOf) {
    Receiver receiver;
    Bytes bytes;
    const auto gone = build(dom::DeleteOrder{0, 1, 1002});
    append(bytes,
           build(mach::Header{1, static_cast<std::uint16_t>(12 + gone.size()), mach::PacketType::application_data, 1}));
    append(bytes, gone);
    receiver.take(bytes);
    EXPECT_EQ(receiver.counters.unconnected, 1u);
    EXPECT_EQ(receiver.next_sequence(), 2u);
}

}  // namespace
}  // namespace kavo::client
