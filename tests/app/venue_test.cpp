// The order of a pass, by what the clients, the receivers and the person at the controls notice of it.
#include "app/venue.h"

#include <gtest/gtest.h>

#include <string>

#include "client/recovery_client.h"
#include "support/said.h"
#include "support/venue.h"

namespace kavo::test {
namespace {

// A market without asks is given one, and that sale meets the best bid.
TEST(Pass, TellsAClientOfAFillInTheTickThatBroughtItAbout) {
    Venue venue;
    const ClientHandle alice = venue.log_in("alice");
    venue.request(alice, buy("b1").shares(10'000).at("250.00").bytes());
    venue.heard(alice);
    venue.engine.market.interval_ms = 40;
    venue.clock.advance_ms(39);
    venue.pass();
    EXPECT_EQ(venue.heard(alice), "");
    venue.clock.advance_ms(1);
    venue.pass();
    const std::string heard = venue.heard(alice);
    EXPECT_TRUE(heard.starts_with("6: E1 b1 ")) << heard;  // behind SN, SU, NR, O1 and P1
}

TEST(Pass, AnnouncesALapseBeforeItsTimersDropAClient) {
    Venue venue;
    venue.log_in("alice");
    venue.bench.start_lapse(Venue::start_ms, 60'000);
    venue.clock.advance_ms(3000);
    EXPECT_EQ(said_during([&] { venue.pass(); }),
              "bench: going silent for 57000 ms (no heartbeats; the client should disconnect after 3 s and log in "
              "again with its next expected sequence)\n"
              "[kavo_me] client 100 (alice) timed out\n"
              "bench: dropping the connection of alice (3 heartbeat intervals of silence)\n"
              "bench: ACOD off (Do Not Cancel All Open Orders): 0 open order(s) of alice stay on the book\n");
}

TEST(Pass, SendsTheHeartbeatOfTheFeedBeforeItServesReceivers) {
    Venue venue;
    venue.pass();
    MemoryPeer& receiver = venue.receivers.call(200);
    receiver.sends = esesm::build_packet(esesm::PacketType::login_request, receiver_login().payload());
    std::size_t datagrams_before_reply = 0;
    venue.receivers.when_sent = [&](int) { datagrams_before_reply = venue.datagrams.size(); };
    venue.clock.advance_ms(1000);
    venue.venue.retransmission.connections_waiting = true;
    venue.pass();
    EXPECT_EQ(receiver.packets.size(), 1u);
    EXPECT_EQ(datagrams_before_reply, 1u);
    EXPECT_EQ(venue.datagrams.size(), 1u);
}

}  // namespace
}  // namespace kavo::test
