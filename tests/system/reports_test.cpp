// What a run says about itself: every two seconds, every ten seconds, and at its end.
#include "common/socket.h"
#include "model/bench.h"
#include "support/said.h"
#include "support/scene.h"
#include "system/full_venue.h"

namespace kavo::test {
namespace {

using namespace std::string_literals;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr char no_faults[] = "kavo_me faults: sent 2 dropped 0 duplicated 0 reordered 0";

std::size_t times(const std::string& what, const std::string& text) {
    std::size_t count = 0;
    for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += what.size()) ++count;
    return count;
}

std::string next_number(const FeedReader& feed) {
    return std::to_string(feed.last_sequence() + 1);
}

TEST(BenchReport, IsNeitherForAVenueWithoutAScenarioNorWithoutAControlPort) {
    LiveVenue venue;
    // Three heartbeats of the idle feed come three seconds after the start of the day.
    for (int heartbeats = 0; heartbeats < 3;) {
        const auto packet = venue.feed.next_packet(std::chrono::duration_cast<milliseconds>(patience));
        ASSERT_TRUE(packet);
        if (packet->header.type == mach::PacketType::heartbeat) ++heartbeats;
    }
    EXPECT_EQ(times("bench: stats ", venue.process.said()), 0u);
    venue.stop();
    EXPECT_EQ(times("bench: stats ", venue.process.said()), 1u);
}

TEST(BenchReport, ComesAfterTwoSecondsWhereThereIsAControlPort) {
    const auto start = steady_clock::now();
    FullVenue venue;
    EXPECT_TRUE(venue.process.says("bench: stats "s + model::Bench().statistics() +
                                   " next_seq=" + next_number(venue.feed) + " " + no_faults + " session=down\n"))
        << venue.process.said();
    EXPECT_GE(steady_clock::now() - start, milliseconds(2000));
}

TEST(BenchReport, ComesAfterTwoSecondsWhereAnyKnobOfAScenarioIsSet) {
    for (const std::string scenario : {"lapse_ms=-1", "disconnect_after=1000"}) {
        LiveVenue venue({}, {{"KAVO_ME_SCENARIO", scenario}});
        EXPECT_TRUE(venue.process.says("bench: stats "s + model::Bench().statistics() +
                                       " next_seq=" + next_number(venue.feed) + " " + no_faults + " session=down\n"))
            << venue.process.said();
    }
}

TEST(BenchReport, ShowsThatSomebodyIsLoggedIn) {
    FullVenue venue;
    User alice(venue, "alice");
    // While alice waits for the answer to nothing in particular, her heartbeats keep her in.
    const auto deadline = steady_clock::now() + patience;
    while (venue.process.said().find(" session=up\n") == std::string::npos && steady_clock::now() < deadline) {
        alice.send_heartbeat();
        alice.next_packet_of_any_kind(milliseconds(100));
    }
    EXPECT_NE(venue.process.said().find("logins=1 replays=0 replayed=0 next_seq=" + next_number(venue.feed) + " " +
                                        no_faults + " session=up\n"),
              std::string::npos)
        << venue.process.said();
}

TEST(FeedReport, ComesAfterTenSecondsAndCountsEveryConnectionThereEverWas) {
    const auto start = steady_clock::now();
    FullVenue venue({"--drop-burst", "3"});
    {
        User alice(venue, "alice");
        alice.send(buy("b1").shares(100).at("180.00"));  // dropped on the feed
        alice.send(buy("b2").shares(100).at("180.00"));
        alice.next(6);
    }
    ASSERT_TRUE(venue.process.says("bench: client alice disconnected\n"));
    WireClient again(venue.port());
    again.log_in(login("alice"));
    EXPECT_EQ(again.next(), "login accepted, engine 1, highest 8");
    again.disconnect();
    fetch_range(1, 5, venue.retransmission_port());
    fetch_range(1, 5, venue.retransmission_port());
    fetch_snapshot('s', venue.retransmission_port());

    const std::string messages = std::to_string(venue.control.next_sequence() - 1);
    EXPECT_TRUE(venue.process.says("[kavo_me] dom msgs " + messages +
                                   " packets 4 dropped 1 retrans 2 refreshes 1 resting 42 clients 2\n"
                                   "kavo_me faults: sent 3 dropped 1 duplicated 0 reordered 0\n"))
        << venue.process.said();
    const auto elapsed = steady_clock::now() - start;
    EXPECT_GE(elapsed, milliseconds(10'000));
    // One bench report for each two seconds, each of them a little late at most.
    const std::size_t reports = times("bench: stats ", venue.process.said());
    EXPECT_LE(reports, static_cast<std::size_t>(elapsed / milliseconds(2000)));
    EXPECT_GE(reports, 2u);
    EXPECT_EQ(times("[kavo_me] dom msgs ", venue.process.said()), 1u);
}

}  // namespace
}  // namespace kavo::test
