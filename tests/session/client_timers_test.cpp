#include <gtest/gtest.h>

#include "support/said.h"
#include "support/venue.h"

namespace kavo::test {
namespace {

constexpr std::string_view stays_on_the_book =
    "bench: ACOD off (Do Not Cancel All Open Orders): 0 open order(s) of alice stay on the book\n";

// A venue with alice logged in and everything heard that a login brings.
class ClientTimers : public testing::Test {
protected:
    ClientTimers() { venue_.heard(alice_); }

    void pass_after_ms(std::uint64_t ms) {
        venue_.clock.advance_ms(ms);
        venue_.pass();
    }
    std::string heard_after_ms(std::uint64_t ms) {
        pass_after_ms(ms);
        return venue_.heard(alice_);
    }

    Venue venue_;
    ClientHandle alice_ = venue_.log_in("alice");
};

TEST_F(ClientTimers, FillASecondOfSilenceWithAHeartbeat) {
    EXPECT_EQ(heard_after_ms(999), "");
    EXPECT_EQ(heard_after_ms(1), "heartbeat");
    EXPECT_EQ(heard_after_ms(999), "");
    EXPECT_EQ(heard_after_ms(1), "heartbeat");
}

TEST_F(ClientTimers, CountTheSilenceFromTheLastPacketOfAnyKind) {
    venue_.clock.advance_ms(600);
    venue_.request(alice_, buy("b1").shares(0).at("1.00").bytes());
    EXPECT_EQ(venue_.heard(alice_), "3: NR b1 rejected 'K' 0@1");
    EXPECT_EQ(heard_after_ms(999), "");
    EXPECT_EQ(heard_after_ms(1), "heartbeat");
}

TEST_F(ClientTimers, SendOneHeartbeatHoweverLateThePass) {
    EXPECT_EQ(heard_after_ms(2500), "heartbeat");
    venue_.pass();
    EXPECT_EQ(venue_.heard(alice_), "");
}

TEST_F(ClientTimers, SendNoHeartbeatBeforeTheLogin) {
    const ClientHandle stranger = venue_.connect();
    pass_after_ms(5000);
    EXPECT_EQ(venue_.heard(stranger), "");
}

TEST_F(ClientTimers, NeverFireForAPassThatBeganBeforeTheLastPacket) {
    EXPECT_EQ(said_during([&] { venue_.order_entry.run_timers(Venue::start_ms - 60'000); }), "");
    EXPECT_EQ(venue_.heard(alice_), "");
    EXPECT_FALSE(venue_.connection(alice_).closed);
}

TEST_F(ClientTimers, EndAConnectionAfterThreeSecondsOfSilenceThoughItWasSentHeartbeats) {
    EXPECT_EQ(heard_after_ms(1000), "heartbeat");
    EXPECT_EQ(heard_after_ms(1000), "heartbeat");
    EXPECT_EQ(said_during([&] { pass_after_ms(999); }), "");
    EXPECT_FALSE(venue_.connection(alice_).closed);
    EXPECT_EQ(said_during([&] { pass_after_ms(1); }),
              "[kavo_me] client 100 (alice) timed out\n"
              "bench: dropping the connection of alice (3 heartbeat intervals of silence)\n" +
                  std::string(stays_on_the_book));
    EXPECT_EQ(venue_.heard(alice_), "heartbeat");  // still due in that pass; no goodbye follows
    EXPECT_TRUE(venue_.connection(alice_).closed);
    EXPECT_EQ(said_during([&] { pass_after_ms(3000); }), "");
}

TEST_F(ClientTimers, LeaveAConnectionAloneThatSendsHeartbeats) {
    for (int second = 0; second < 60; ++second) {
        venue_.clock.advance_ms(1000);
        venue_.send(alice_, '1');
        venue_.pass();
    }
    EXPECT_FALSE(venue_.connection(alice_).closed);
}

TEST_F(ClientTimers, TakeAnyByteForASignOfLife) {
    const Bytes heartbeat = {0x01, 0x00, '1'};
    for (const std::uint8_t byte : heartbeat) {
        venue_.clock.advance_ms(2999);
        venue_.order_entry.receive(alice_, ByteView(&byte, 1));
        venue_.pass();
    }
    EXPECT_EQ(heard_after_ms(2999), "heartbeat | heartbeat | heartbeat | heartbeat");
    EXPECT_FALSE(venue_.connection(alice_).closed);
    pass_after_ms(1);
    EXPECT_TRUE(venue_.connection(alice_).closed);
}

TEST(SilentClient, LosesItsOrdersUnderAcod) {
    VenueSettings settings;
    settings.engine.acod = true;
    Venue venue(settings);
    const ClientHandle bob = venue.log_in("bob");
    venue.request(bob, buy("b1").at("1.00").bytes());
    venue.clock.advance_ms(3000);
    EXPECT_EQ(said_during([&] { venue.pass(); }),
              "[kavo_me] client 100 (bob) timed out\n"
              "bench: dropping the connection of bob (3 heartbeat intervals of silence)\n"
              "bench: ACOD (Cancel All Open Orders): cancelled 1 open order(s) of bob on disconnect\n");
    EXPECT_EQ(venue.bids(), "");
}

TEST_F(ClientTimers, GiveAStrangerThirtySecondsToLogIn) {
    const ClientHandle stranger = venue_.connect();
    for (int second = 0; second < 29; ++second) {
        venue_.clock.advance_ms(1000);
        venue_.send(alice_, '1');
        venue_.send(stranger, '1');  // buys no time
        venue_.pass();
    }
    venue_.clock.advance_ms(999);
    venue_.send(alice_, '1');
    venue_.pass();
    EXPECT_EQ(venue_.heard(stranger), "");
    EXPECT_FALSE(venue_.connection(stranger).closed);
    const std::string said = said_during([&] { pass_after_ms(1); });
    EXPECT_EQ(said.find("bench: "), std::string::npos) << said;  // the report on the feed alone
    EXPECT_EQ(venue_.heard(stranger), "goodbye 'L' timed out waiting for login");
    EXPECT_TRUE(venue_.connection(stranger).closed);
}

TEST_F(ClientTimers, CountTheTimeToLogInFromTheConnectWhateverWasRejected) {
    const ClientHandle bob = venue_.connect();
    venue_.clock.advance_ms(20'000);
    venue_.send(bob, 'l', login("bob", 9).payload());
    EXPECT_EQ(venue_.heard(bob), "login rejected 'N', engine 1, highest 0");
    pass_after_ms(9999);
    EXPECT_EQ(venue_.heard(bob), "");
    pass_after_ms(1);
    EXPECT_EQ(venue_.heard(bob), "goodbye 'L' timed out waiting for login");
}

TEST_F(ClientTimers, LetALapseKeepTheHeartbeatsBack) {
    venue_.bench.start_lapse(Venue::start_ms, 2500);
    EXPECT_EQ(heard_after_ms(1000), "");
    EXPECT_EQ(heard_after_ms(1499), "");
    EXPECT_EQ(heard_after_ms(1), "heartbeat");  // the lapse is over
}

TEST_F(ClientTimers, CountTheSilenceOfAClientDuringALapseToo) {
    venue_.bench.start_lapse(Venue::start_ms, 60'000);
    pass_after_ms(2999);
    EXPECT_FALSE(venue_.connection(alice_).closed);
    EXPECT_EQ(said_during([&] { pass_after_ms(1); }),
              "[kavo_me] client 100 (alice) timed out\n"
              "bench: dropping the connection of alice (3 heartbeat intervals of silence)\n" +
                  std::string(stays_on_the_book));
    EXPECT_EQ(venue_.heard(alice_), "");
    EXPECT_TRUE(venue_.connection(alice_).closed);
}

TEST_F(ClientTimers, SayGoodbyeToAStrangerDuringALapseToo) {
    const ClientHandle stranger = venue_.connect();
    venue_.bench.start_lapse(Venue::start_ms, 60'000);
    pass_after_ms(30'000);
    EXPECT_EQ(venue_.heard(stranger), "goodbye 'L' timed out waiting for login");
}

TEST(LapseAnnouncement, TellsWhatIsLeftOfItOnce) {
    Venue venue;
    EXPECT_EQ(said_during([&] { venue.pass(); }), "");
    venue.bench.start_lapse(Venue::start_ms, 5000);
    venue.clock.advance_ms(7);
    EXPECT_EQ(said_during([&] { venue.pass(); }),
              "bench: going silent for 4993 ms (no heartbeats; the client should disconnect after 3 s and log in again "
              "with its next expected sequence)\n");
    venue.clock.advance_ms(1000);
    EXPECT_EQ(said_during([&] { venue.pass(); }), "");
}

TEST(LapseAnnouncement, IsMadeAgainForALapseThatStartsAnew) {
    Venue venue;
    venue.bench.start_lapse(Venue::start_ms, 5000);
    venue.pass();
    venue.clock.advance_ms(1000);
    venue.bench.start_lapse(venue.clock.steady_ms(), 20'000);
    EXPECT_EQ(
        said_during([&] { venue.pass(); }),
        "bench: going silent for 20000 ms (no heartbeats; the client should disconnect after 3 s and log in again "
        "with its next expected sequence)\n");
}

TEST(LapseAnnouncement, IsNotMadeForALapseThatIsOverAlready) {
    Venue venue;
    venue.bench.start_lapse(Venue::start_ms, 5000);
    venue.clock.advance_ms(5000);
    EXPECT_EQ(said_during([&] { venue.pass(); }), "");
}

}  // namespace
}  // namespace kavo::test
