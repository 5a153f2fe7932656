// The control port of a running venue: commands in real datagrams, what they do to the feed and to the users, and the
// two ways in which a run ends.
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "model/bench.h"
#include "support/scene.h"
#include "system/full_venue.h"

namespace kavo::test {
namespace {

using namespace std::string_literals;
using std::chrono::milliseconds;

const std::string all_zeros = model::Bench().statistics();

// A UDP port of 127.0.0.1 that is not to be shared.
class TakenDatagramPort {
public:
    TakenDatagramPort() : socket_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in name{};
        name.sin_family = AF_INET;
        name.sin_port = htons(port_.number());
        name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(bind(socket_, reinterpret_cast<const sockaddr*>(&name), sizeof name), 0);
    }
    ~TakenDatagramPort() { close(socket_); }
    TakenDatagramPort(const TakenDatagramPort&) = delete;
    TakenDatagramPort& operator=(const TakenDatagramPort&) = delete;

    std::string number() const { return std::to_string(port_.number()); }

private:
    ReservedPort port_;
    int socket_;
};

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
    EXPECT_TRUE(venue.process.says(
        "bench: control on 127.0.0.1:" + std::to_string(venue.control_port()) +
        " (pause | resume | drop N | dup N | reorder N | drop_every N | dup_every N | reorder_every N | rate MS | "
        "disconnect | lapse MS | reject N | partial N | fill_on_cancel N | unsolicited_cancel N | replace_reject N | "
        "mark LABEL | stats | stop)\n"));
}

TEST(ControlPort, IsNotThereUnlessItIsAskedFor) {
    LiveVenue venue;
    venue.stop();
    EXPECT_EQ(venue.process.said().find("bench: control"), std::string::npos);
}

TEST(ControlPort, ThatIsTakenIsReportedAndDoneWithout) {
    const TakenDatagramPort taken;
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
    EXPECT_EQ(venue.control.ask("stats"), "ok "s + all_zeros + " next_seq=" + next +
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

TEST(ControlPort, RejectsTheNextOrders) {
    FullVenue venue;
    User alice(venue, "alice");
    EXPECT_EQ(venue.control.ask("reject 2"), "ok reject 2\n");
    for (const std::string id : {"b1", "b2", "b3"}) alice.send(buy(id).at("180.00"));
    EXPECT_EQ(alice.next(3),
              "3: NR b1 rejected 'R' 100@180 | 4: NR b2 rejected 'R' 100@180 | "
              "5: NR b3 accepted #1040 100@180");
}

TEST(ControlPort, CutsTheNextFill) {
    FullVenue venue;
    venue.empty_the_books();
    User alice(venue, "alice");
    User bob(venue, "bob");
    EXPECT_EQ(venue.control.ask("partial"), "ok partial\n");
    alice.send(buy("b1").shares(400).at("189.95"));
    alice.next(3);
    bob.send(sell("s1").shares(400).at("189.95"));
    EXPECT_EQ(alice.next(), "6: E1 b1 200@189.95 buy added AC match 41 exec 41");
    EXPECT_TRUE(venue.process.says("bench: partial fill of b1: 200 of 400\n"));
}

TEST(ControlPort, LetsTheNextCancelLoseItsRace) {
    FullVenue venue;
    venue.empty_the_books();
    User alice(venue, "alice");
    alice.send(buy("b1").shares(100).at("189.95"));
    alice.next(3);
    EXPECT_EQ(venue.control.ask("fill_on_cancel"), "ok fill_on_cancel\n");
    alice.send(cancel("b1"));
    EXPECT_EQ(alice.next(2), "6: E1 b1 100@189.95 buy added AC match 41 exec 41 | 7: CR xb1 of b1 rejected 'D'");
}

TEST(ControlPort, CancelsTheNextOrderUnasked) {
    FullVenue venue;
    User alice(venue, "alice");
    EXPECT_EQ(venue.control.ask("unsolicited_cancel 1"), "ok unsolicited_cancel 1\n");
    alice.send(buy("b1").shares(100).at("180.00"));
    alice.next(3);
    EXPECT_EQ(alice.next(), "6: XN b1 #1040 leaves 0 'H'");
}

TEST(ControlPort, RejectsTheNextReplace) {
    FullVenue venue;
    User alice(venue, "alice");
    alice.send(buy("b1").shares(100).at("180.00"));
    alice.next(3);
    EXPECT_EQ(venue.control.ask("replace_reject"), "ok replace_reject\n");
    alice.send(replace("b1", "b2").shares(200).at("180.00"));
    EXPECT_EQ(alice.next(), "6: MR b2 for b1 rejected 'H' #1040");
    alice.send(replace("b1", "b3").shares(200).at("180.00"));
    EXPECT_EQ(alice.next(), "7: MR b3 for b1 accepted #1040 leaves 200");
}

TEST(ControlPort, DropsTheClientThatSpeaksNextOnceItIsAnswered) {
    FullVenue venue;
    User alice(venue, "alice");
    EXPECT_EQ(venue.control.ask("disconnect"), "ok disconnect\n");
    alice.send(buy("b1").shares(100).at("180.00"));
    EXPECT_EQ(alice.next(4),
              "3: NR b1 accepted #1040 100@180 | 4: O1 b1 #1040 buy 100@180 tif D type 1 | "
              "5: P1 b1 #1040 @180 behind | closed");
    EXPECT_TRUE(venue.process.says("bench: dropping the connection of alice (driven)\n"));
    EXPECT_NE(venue.control.ask("stats").find(" session=down\n"), std::string::npos);
}

TEST(ControlPort, MakesTheVenueGoSilent) {
    FullVenue venue;
    User alice(venue, "alice");
    EXPECT_NE(venue.control.ask("stats").find(" session=up\n"), std::string::npos);
    EXPECT_EQ(venue.control.ask("lapse 60000"), "ok lapse 60000\n");
    ASSERT_TRUE(venue.process.says("bench: going silent for "));
    // The pass that finds the lapse may be a few milliseconds later than the command.
    const std::string said = venue.process.said();
    EXPECT_LE(number_behind("bench: going silent for ", said), 60'000u);
    EXPECT_GT(number_behind("bench: going silent for ", said), 50'000u);
    EXPECT_NE(said.find(" ms (no heartbeats; the client should disconnect after 3 s and log in again with its next "
                        "expected sequence)\n"),
              std::string::npos);

    // The silence takes the answers too; they wait on the stream for the next login.
    alice.send(buy("b1").shares(100).at("180.00"));
    EXPECT_TRUE(venue.feed.next_message("add 1 #1040").starts_with("add 1 #1040"));
    EXPECT_EQ(venue.control.ask("lapse 0"), "ok lapse 0\n");
    EXPECT_NE(venue.control.ask("stats").find("orders=1 accepts=1 "), std::string::npos);
    alice.send(buy("b2").shares(100).at("180.00"));
    EXPECT_EQ(alice.next(), "6: NR b2 accepted #1041 100@180");
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

TEST(ControlPort, CutsADatagramAtFiveHundredAndElevenBytes) {
    FullVenue venue;
    const std::string longest(511, 'a');
    for (const std::size_t size : {510u, 511u}) {
        const std::string command(size, 'a');
        EXPECT_EQ(venue.control.ask(command), "err unknown command '" + command + "'\n");
    }
    for (const std::size_t size : {512u, 513u, 1024u, 60'000u}) {
        EXPECT_EQ(venue.control.ask(std::string(size, 'a')), "err unknown command '" + longest + "'\n") << size;
    }
    EXPECT_EQ(venue.control.ask("mark " + std::string(506, 'x') + "yz"), "ok mark " + std::string(506, 'x') + "\n");
    EXPECT_EQ(venue.control.ask("pause" + std::string(600, ' ')), "ok pause\n");
}

TEST(ControlPort, ReadsADatagramUpToItsFirstNul) {
    FullVenue venue;
    EXPECT_EQ(venue.control.ask("pause\0resume"s), "ok pause\n");
    EXPECT_EQ(venue.control.ask("\0pause"s), "err unknown command ''\n");
    EXPECT_EQ(venue.control.ask("mark a\0b"s + std::string(600, 'c')), "ok mark a\n");
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

TEST(ControlPort, AnswersBlankLinesAsTheEmptyCommand) {
    FullVenue venue;
    for (const std::string blank : {" ", "\n", "\r\n", "    \n", "\t"}) {
        EXPECT_EQ(venue.control.ask(blank), "err unknown command ''\n");
    }
}

TEST(ControlPort, KnowsNoUpperCase) {
    FullVenue venue;
    EXPECT_EQ(venue.control.ask("PAUSE"), "err unknown command 'PAUSE'\n");
    EXPECT_EQ(venue.control.ask("STOP"), "err unknown command 'STOP'\n");
}

TEST(ControlPort, CountsWhatAUserDoes) {
    FullVenue venue;
    venue.empty_the_books();  // two orders with twenty fills each or so, forty in all, whose rest is cancelled
    {
        User alice(venue, "alice");
        alice.send(buy("b1").shares(100).at("180.00"));
        alice.send(replace("b1", "b2").shares(200).at("180.00"));
        alice.send(cancel("b2"));
        alice.send(cancel("b2"));
        alice.send(cancel("never"));
        alice.next(8);
        EXPECT_EQ(alice.next(), "11: CR xnever of never rejected 'D'");
    }
    ASSERT_TRUE(venue.process.says("bench: client alice disconnected\n"));
    WireClient again(venue.port());
    again.log_in(login("alice", 10));
    EXPECT_EQ(again.next(4),
              "login accepted, engine 1, highest 11 | 10: CR xb2 of b2 rejected 'D' | "
              "11: CR xnever of never rejected 'D' | replay complete");
    const std::string statistics = venue.control.ask("stats");
    const model::Bench counted{.orders = 3,
                               .accepts = 3,
                               .fills = 40,
                               .cancels = 3,
                               .replaces = 1,
                               .late_cancels = 1,
                               .stale_cancels = 1,
                               .logins = 3,
                               .replays = 1,
                               .replayed = 2};
    EXPECT_TRUE(statistics.starts_with("ok " + counted.statistics() + " next_seq=")) << statistics;
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

TEST(ControlPort, StopsWithTheFaultsThatWereCountedSoFar) {
    FullVenue venue({"--drop-every", "3", "--dup-every", "4", "--reorder-every", "5"});
    User alice(venue, "alice");
    for (const std::string id : {"b3", "b4", "b5", "b6"}) {
        alice.send(buy(id).shares(100).at("180.00"));
        alice.next(3);
    }
    EXPECT_EQ(venue.control.ask("stop now"), "ok stopping");
    EXPECT_EQ(venue.process.wait(), 0);
    EXPECT_TRUE(venue.process.said().ends_with("\nkavo_me faults: sent 4 dropped 2 duplicated 1 reordered 1\n"))
        << venue.process.said();
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

TEST(ControlPort, IsNotNeededForAnOrderlyEndWhichFlushesTheBookTruth) {
    TemporaryFile truth;
    FullVenue venue({"--truth-out", truth.path()});
    User alice(venue, "alice");
    venue.control.ask("mark before");
    alice.send(buy("b1").shares(100).at("180.00"));
    alice.next(3);
    venue.stop();
    const std::vector<std::string> lines = truth.lines();
    ASSERT_GE(lines.size(), 2u);
    EXPECT_TRUE(lines[lines.size() - 2].starts_with("{\"mark\":\"before\",\"seq\":"));
    EXPECT_TRUE(lines.back().starts_with("{\"seq\":"));
}

}  // namespace
}  // namespace kavo::test
