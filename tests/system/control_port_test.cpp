// The control port of a running venue: commands in real datagrams, what they do to the market, and how they end a run.
#include "model/bench.h"
#include "support/scene.h"
#include "system/full_venue.h"

namespace kavo::test {
namespace {

using namespace std::string_literals;
using std::chrono::milliseconds;

// The number on the next heartbeat of the feed, which falls silent for a second before it. 0 for none.
std::uint64_t next_heartbeat(FeedReader& feed) {
    for (int i = 0; i < 1'000'000; ++i) {
        const auto packet = feed.next_packet(std::chrono::duration_cast<milliseconds>(patience));
        if (!packet) return 0;
        if (packet->header.type == mach::PacketType::heartbeat) return packet->header.sequence;
    }
    return 0;
}

TEST(ControlPort, SaysWhereItListensAndWhatItUnderstands) {
    FullVenue venue;
    std::string faults;
    for (const model::Bench::Fault& fault : model::Bench().faults) faults += std::string(fault.control_word) + " N | ";
    EXPECT_TRUE(venue.process.says(
        "bench: control on 127.0.0.1:" + std::to_string(venue.control_port()) +
        " (pause | resume | drop N | dup N | reorder N | drop_every N | dup_every N | reorder_every N | rate MS | "
        "disconnect | lapse MS | " +
        faults + "mark LABEL | stats | stop)\n"));
}

TEST(ControlPort, IsNotThereUnlessItIsAskedFor) {
    LiveVenue venue;
    venue.stop();
    EXPECT_EQ(venue.process.said().find("bench: control"), std::string::npos);
}

TEST(ControlPort, ThatIsTakenIsReportedAndDoneWithout) {
    const TakenPort taken(SOCK_DGRAM);
    LiveVenue venue({"--control-port", taken.number()});
    EXPECT_TRUE(venue.process.says("kavo_me: control port: Address already in use\n"));
    User alice(venue, "alice");
    alice.send(buy("b1").at("180.00"));
    EXPECT_EQ(alice.next(), "3: NR b1 accepted #1040 100@180");
    venue.stop();
    EXPECT_EQ(venue.process.said().find("bench: control on"), std::string::npos);
}

TEST(ControlPort, AnswersThePauseAndThenTheCountersOfAQuietBench) {
    FullVenue venue;
    EXPECT_EQ(venue.control.ask("pause"), "ok pause\n");
    const std::string next = std::to_string(venue.feed.last_sequence() + 1);
    EXPECT_EQ(venue.control.ask("stats"), "ok "s + model::Bench().statistics() + " next_seq=" + next +
                                              " kavo_me faults: sent 2 dropped 0 duplicated 0 reordered 0 "
                                              "session=down\n");
    EXPECT_TRUE(venue.process.says("bench: paused at seq " + std::to_string(venue.feed.last_sequence()) + "\n"));
}

TEST(ControlPort, PausesAndResumesTheMarket) {
    FullVenue venue({"--interval-ms", "1"});
    EXPECT_EQ(venue.control.ask("pause"), "ok pause\n");
    const std::uint64_t next = venue.control.next_sequence();
    const std::string last = std::to_string(next - 1);
    EXPECT_TRUE(venue.process.says("bench: paused at seq " + last + "\n"));
    EXPECT_EQ(std::to_string(next_heartbeat(venue.feed)), last);
    EXPECT_EQ(venue.control.next_sequence(), next);

    EXPECT_EQ(venue.control.ask("resume"), "ok resume\n");
    EXPECT_TRUE(venue.process.says("bench: resumed at seq " + last + "\n"));
    EXPECT_NE(venue.feed.next(), "silence");
    EXPECT_GT(venue.control.next_sequence(), next);
}

TEST(ControlPort, GivesAMarketThatStoodStillTheBuiltInRate) {
    FullVenue venue;
    EXPECT_EQ(venue.control.ask("rate 0"), "ok rate 0\n");
    EXPECT_NE(venue.feed.next(), "silence");
    EXPECT_EQ(venue.control.ask("rate -1"), "ok rate -1\n");
    const std::uint64_t next = venue.control.next_sequence();
    EXPECT_EQ(next_heartbeat(venue.feed), next - 1);
}

TEST(ControlPort, AppliesCommandsInTheOrderOfTheirArrival) {
    FullVenue venue;
    User alice(venue, "alice");
    for (const std::string command :
         {"reject 5", "reject 1", "pause", "resume", "drop_every 7", "drop_every", "mark a", "nonsense", "mark b"}) {
        venue.control.send(command);
    }
    std::string replies;
    for (int i = 0; i < 9; ++i) replies += venue.control.next_reply();
    EXPECT_EQ(replies,
              "ok reject 5\nok reject 1\nok pause\nok resume\nok drop_every 7\nok drop_every\nok mark a\n"
              "err unknown command 'nonsense'\nok mark b\n");
    for (const std::string id : {"b1", "b2"}) alice.send(buy(id).at("180.00"));
    EXPECT_EQ(alice.next(2), "3: NR b1 rejected 'R' 100@180 | 4: NR b2 accepted #1040 100@180");

    venue.stop();
    const std::string last = std::to_string(venue.feed.last_sequence());
    const std::string said = venue.process.said();
    EXPECT_NE(said.find("bench: paused at seq " + last + "\nbench: resumed at seq " + last + "\nbench: mark a at seq " +
                        last + " orders 0\nbench: mark b at seq " + last + " orders 0\n"),
              std::string::npos)
        << said;
}

TEST(ControlPort, AnswersEachSenderItsOwnCommands) {
    FullVenue venue;
    const ControlClient other(venue.control_port());
    venue.control.send("mark here");
    other.send("mark there");
    EXPECT_EQ(other.next_reply(), "ok mark there\n");
    EXPECT_EQ(venue.control.next_reply(), "ok mark here\n");
}

TEST(ControlPort, LeavesAnEmptyDatagramUnansweredAndGoesOnBehindIt) {
    FullVenue venue;
    venue.control.send("");
    venue.control.send("mark one");
    venue.control.send("");
    venue.control.send("");
    EXPECT_EQ(venue.control.ask("mark two"), "ok mark one\n");
    EXPECT_EQ(venue.control.next_reply(), "ok mark two\n");
}

TEST(ControlPort, StopsTheProcessOnTheSpot) {
    TemporaryFile truth;
    FullVenue venue({"--truth-out", truth.path()});
    User alice(venue, "alice");
    EXPECT_EQ(venue.control.ask("mark before"), "ok mark before\n");
    alice.send(buy("b1").shares(100).at("180.00"));
    alice.next(3);

    EXPECT_EQ(venue.control.ask("stop"), "ok stopping");
    EXPECT_EQ(venue.process.wait(), 0);
    EXPECT_EQ(alice.next(), "closed");
    const std::string said = venue.process.said();
    EXPECT_TRUE(said.ends_with("\nkavo_me faults: sent 3 dropped 0 duplicated 0 reordered 0\n")) << said;
    EXPECT_EQ(said.find("[kavo_me] stopped"), std::string::npos);

    // What the book truth held back is lost with the process, and that is what tells this stop from the other one.
    ASSERT_FALSE(truth.lines().empty());
    EXPECT_TRUE(truth.lines().back().starts_with("{\"mark\":\"before\",\"seq\":")) << truth.lines().back();
    EXPECT_TRUE(truth.content().ends_with("}\n"));
}

TEST(ControlPort, AnswersTheStopAndNothingThatWaitsBehindIt) {
    FullVenue venue;
    venue.control.send("mark one");
    venue.control.send("stop");
    venue.control.send("mark two");
    EXPECT_EQ(venue.control.next_reply(), "ok mark one\n");
    EXPECT_EQ(venue.control.next_reply(), "ok stopping");
    EXPECT_EQ(venue.process.wait(), 0);
    EXPECT_EQ(venue.process.said().find("mark two"), std::string::npos);
}

}  // namespace
}  // namespace kavo::test
