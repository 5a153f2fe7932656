// The page on the venue inside a test shows code that compiles and holds: all of it stands here, word for word.
#include <gtest/gtest.h>

#include "client/feed_receiver.h"
#include "client/transcript.h"
#include "memory/memory_user.h"
#include "memory/venue_test.h"
#include "page.h"

using namespace std::chrono_literals;
using namespace kavo::client;

// Five milliseconds of the day, and what the user has heard by their end.
std::string step(kavo::MemoryVenue& venue, kavo::MemoryUser& user) {
    user.exchange();
    venue.advance(5ms);
    user.exchange();
    std::vector<std::string> heard;
    while (const auto arrival = user.session.next()) heard.push_back(packet_text(arrival->packet));
    return joined(heard);
}

using Buying = kavo::VenueTest;

TEST_F(Buying, IsAnsweredFilledAndWrittenDown) {
    kavo::MemoryVenue& venue = open({"--symbols", "AAPL:190.00", "--interval-ms", "-1"});
    kavo::MemoryUser alice(venue, login("alice", 1));
    EXPECT_EQ(step(venue, alice), "login accepted, engine 1, highest 0 | 1: SN MEO2.7 session 1 | 2: SU 1 AAPL Q");

    alice.session.send(buy("b1").shares(100).at("190.50"));
    EXPECT_EQ(step(venue, alice),
              "3: NR b1 accepted #1040 100@190.5 | 4: O1 b1 #1040 buy 100@190.5 tif D type 1 | "
              "5: E1 b1 100@190 buy removed RC match 1 exec 1");

    const std::vector<std::string> truth = venue.take_order_truth();
    ASSERT_EQ(truth.size(), 2u);
    EXPECT_NE(truth[1].find(R"("ev":"fill","cl":"b1")"), std::string::npos);
}

using Receiving = kavo::VenueTest;

void recover(kavo::MemoryVenue& venue, FeedReceiver& receiver) {
    const auto [first, last] = receiver.begin_recovery();
    Recovery recovery = Recovery::of_messages(first, last);
    kavo::MemoryConnection service = venue.connect_receiver();
    service.send(recovery.opening());
    while (!recovery.over()) {
        venue.advance(5ms);
        recovery.receive(service.take());
        if (service.closed()) recovery.disconnected();
    }
    service.close();
    ASSERT_EQ(receiver.take_recovered(recovery.messages), Recovered::whole);
}

TEST_F(Receiving, EndsWithTheVenuesBookWhateverIsLost) {
    kavo::MemoryVenue& venue = open({"--symbols", "AAPL:190.00", "--drop-every", "3"});
    FeedReceiver receiver;
    venue.advance(4s);
    venue.command("pause");
    venue.advance(1s);  // and a heartbeat tells the last number
    for (const kavo::Bytes& datagram : venue.take_datagrams()) receiver.take(datagram);
    while (receiver.has_gap() && !HasFailure()) recover(venue, receiver);

    EXPECT_GT(receiver.counters.recovered, 0u);
    EXPECT_EQ(receiver.book().truth_line(receiver.next_sequence() - 1, 1), venue.take_book_truth().back());
}

std::vector<kavo::Bytes> feed_of(const std::string& seed) {
    kavo::MemoryVenue venue({"--seed", seed});
    venue.advance(10s);
    return venue.take_datagrams();
}

TEST(Seed, GivesOneFeed) {
    EXPECT_EQ(feed_of("7"), feed_of("7"));
    EXPECT_NE(feed_of("7"), feed_of("8"));
}

namespace kavo::docs {
namespace {

TEST(InATestPage, ShowsNothingButWhatStandsHere) {
    std::string here;
    for (const std::string& line : lines_of("../tests/docs/in_a_test_page_test.cpp")) here += line + "\n";
    const std::vector<std::string> blocks = blocks_on("in_a_test.md", "cpp");
    EXPECT_EQ(blocks.size(), 4u);
    for (const std::string& block : blocks) EXPECT_NE(here.find(block), std::string::npos) << block;
}

}  // namespace
}  // namespace kavo::docs
