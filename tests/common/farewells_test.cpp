#include "common/farewells.h"

#include <gtest/gtest.h>

#include <string>

#include "memory/memory_peers.h"

namespace kavo::test {
namespace {

constexpr int fd = 100;

struct FarewellTest : testing::Test {
    FarewellTest() { clock.stand_at(1'000'000, 0); }

    void part(const std::string& last_words) {
        Outgoing outgoing;
        outgoing.add(as_bytes(last_words), clock.steady_ms());
        farewells.add(fd, std::move(outgoing));
    }
    void pass_after(std::uint64_t ms) {
        clock.advance_ms(ms);
        farewells.serve();
    }
    MemoryPeer& peer() { return peers.peers[fd]; }

    Clock clock;
    MemoryPeers peers;
    Transport transport = peers.transport();
    Farewells farewells{transport, clock};
};

using Farewell = FarewellTest;

TEST_F(Farewell, IsOverAtOnceForAPeerThatTakesAllAndCloses) {
    part("goodbye");
    EXPECT_EQ(as_text(peer().received), "goodbye");
    EXPECT_TRUE(peer().finished);
    EXPECT_EQ(peer().closed, 1);
    EXPECT_TRUE(farewells.under_way().empty());
}

TEST_F(Farewell, SaysTheEndBehindTheLastByteAndNotBefore) {
    peer().room = 4;
    part("goodbye");
    EXPECT_EQ(as_text(peer().received), "good");
    EXPECT_FALSE(peer().finished);
    peer().room = 2;
    pass_after(1);
    EXPECT_EQ(as_text(peer().received), "goodby");
    EXPECT_FALSE(peer().finished);
    peer().room = 10;
    pass_after(1);
    EXPECT_EQ(as_text(peer().received), "goodbye");
    EXPECT_EQ(peer().closed, 1);
}

TEST_F(Farewell, ThrowsAwayWhatStillArrives) {
    peer().stays = true;
    part("goodbye");
    for (int i = 0; i < 10; ++i) {
        peer().sends = Bytes(1000, '1');
        pass_after(10);
        EXPECT_TRUE(peer().sends.empty());
        EXPECT_EQ(peer().closed, 0);
    }
    peer().ended = true;
    pass_after(10);
    EXPECT_EQ(peer().closed, 1);
    EXPECT_EQ(as_text(peer().received), "goodbye");
}

TEST_F(Farewell, GivesAPeerUpThatTakesNothingForTwoSeconds) {
    peer().room = 3;
    part("goodbye");
    pass_after(1'999);
    EXPECT_EQ(peer().closed, 0);
    peer().room = 1;
    pass_after(0);  // it takes one more, and has two seconds again
    pass_after(1'999);
    EXPECT_EQ(peer().closed, 0);
    pass_after(1);
    EXPECT_EQ(peer().closed, 1);
    EXPECT_EQ(as_text(peer().received), "good");
    EXPECT_FALSE(peer().finished);
}

TEST_F(Farewell, WaitsForAPeerWhoseSideStillTakesWhatTheSocketHolds) {
    peer().stays = true;
    peer().unacknowledged = 7;
    part("goodbye");
    for (std::size_t left = 7; left-- > 0;) {
        pass_after(1'999);
        EXPECT_EQ(peer().closed, 0);
        peer().unacknowledged = left;
        pass_after(0);
    }
    pass_after(1'999);
    EXPECT_EQ(peer().closed, 0);
    pass_after(1);
    EXPECT_EQ(peer().closed, 1);
}

TEST_F(Farewell, IsNotCutShortForAPeerThatHasOnlyEndedItsOwnSide) {
    peer().room = 3;
    peer().ended = true;
    part("goodbye");
    pass_after(1);
    EXPECT_EQ(peer().closed, 0);
    peer().room = 100;
    pass_after(1);
    EXPECT_EQ(as_text(peer().received), "goodbye");
    EXPECT_EQ(peer().closed, 1);
}

TEST_F(Farewell, IsOverWithAPeerThatIsGone) {
    peer().room = 3;
    part("goodbye");
    peer().broken = true;
    pass_after(1);
    EXPECT_EQ(peer().closed, 1);
    EXPECT_TRUE(farewells.under_way().empty());
}

TEST_F(Farewell, OfManyGoesOnWhereTheTimeOfAPassIsUp) {
    peers.when_sent = [this](int) { clock.advance_ms(15); };
    for (int i = 0; i < 4; ++i) {
        peers.peers[fd + i].room = 0;
        Outgoing outgoing;
        outgoing.add(as_bytes("x"), clock.steady_ms());
        farewells.add(fd + i, std::move(outgoing));
    }
    for (int i = 0; i < 4; ++i) peers.peers[fd + i].room = 10;
    farewells.serve();  // 30 of its 20 ms
    EXPECT_EQ(farewells.under_way().size(), 2u);
    EXPECT_EQ(peers.peers[fd + 1].closed, 1);
    EXPECT_EQ(peers.peers[fd + 2].closed, 0);
    farewells.serve();
    EXPECT_TRUE(farewells.under_way().empty());
}

}  // namespace
}  // namespace kavo::test
