// How the program starts, how it refuses to, and what it says when it is stopped.
#include <chrono>
#include <fstream>

#include "model/bench.h"
#include "support/scene.h"
#include "system/live_venue.h"

namespace kavo::test {
namespace {

using Flags = LiveVenue::Flags;

TEST(LiveStart, EchoesItsFlagsInTheBanner) {
    const FeedReader feed;
    const ReservedPort meo_port;
    const ReservedPort retrans_port;
    const std::string port = std::to_string(feed.port());
    const std::string meo = std::to_string(meo_port.number());
    const std::string retrans = std::to_string(retrans_port.number());
    Process process(KAVO_ME_PATH, {"--mcast", "127.0.0.1", "--port", port, "--iface", "127.0.0.2", "--retrans-port",
                                   retrans, "--meo-port", meo, "--session", "255", "--symbols", "ONE,TWO:2.50,",
                                   "--acod", "--max-order-size", "77", "--quiet"});
    EXPECT_TRUE(process.catches(SIGTERM)) << process.said();
    EXPECT_EQ(process.stop(), 0);
    EXPECT_EQ(process.said().substr(0, process.said().find('\n') + 1),
              "[kavo_me] DoM/MACH 127.0.0.1:" + port +
                  " (iface 127.0.0.2, session 255, retransmission ESesM/TCP :" + retrans + ") · MEO/ESesM :" + meo +
                  " · ACOD cancel all open orders · max order size 77 · ONE,TWO:2.50,\n");
}

// What is said of which flags is a matter of their tests; here is how the process ends.
TEST(LiveStart, EndsWithStatusTwoOnABadConfiguration) {
    const std::vector<std::pair<Flags, std::string>> refused = {
        {{"--nonsense"}, "unknown flag --nonsense\n"},
        {{"--mcast"}, "--mcast needs a value\n"},
        {{"--session", "256"}, "--session must be 1..255 (MACH §2.2.1)\n"},
    };
    for (const auto& [flags, said] : refused) {
        Process process(KAVO_ME_PATH, flags);
        EXPECT_EQ(process.wait(), 2);
        EXPECT_EQ(process.said(), said);
    }
}

TEST(LiveStart, AbortsOnAMalformedNumber) {
    const FeedReader feed;
    const auto expect_abort = [&](const Flags& bad, const std::string& scenario, const std::string& conversion) {
        Flags flags = {"--mcast", "127.0.0.1", "--port", std::to_string(feed.port()), "--retrans-port", "0"};
        flags.insert(flags.end(), bad.begin(), bad.end());
        Process process(KAVO_ME_PATH, flags, {{"KAVO_ME_SCENARIO", scenario}});
        EXPECT_EQ(process.wait(), -SIGABRT) << conversion;
        EXPECT_NE(process.said().find(conversion), std::string::npos) << process.said();
    };
    expect_abort({"--meo-port", "http"}, "", "stoi");
    expect_abort({"--drop-burst", "5:"}, "", "stoul");  // read when the feed is built
    expect_abort({"--symbols", "AAPL:much"}, "", "stod");
    expect_abort({}, "reject_every=", "stoul");
}

TEST(LiveStart, AppendsToTheOrderTruthLog) {
    const TemporaryFile log;
    std::ofstream(log.path()) << "what was there before\n";
    const auto ns_since_epoch = [] {
        return std::chrono::nanoseconds(std::chrono::system_clock::now().time_since_epoch()).count();
    };
    const auto before = ns_since_epoch();
    LiveVenue venue({}, {{"BENCH_ORDER_TRUTH", log.path()}});
    User alice(venue, "alice");
    alice.send(buy("b1").shares(300).at("100.00"));
    alice.next(3);
    const std::vector<std::string> lines = log.lines();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0], "what was there before");
    EXPECT_TRUE(lines[1].starts_with("{\"t\":")) << lines[1];
    const auto written = std::stoll(lines[1].substr(5));
    EXPECT_LE(before, written);
    EXPECT_LE(written, ns_since_epoch());
}

TEST(LiveStart, DoesWithoutAnOrderTruthLogThatCannotBeOpened) {
    LiveVenue venue({"--quiet"}, {{"BENCH_ORDER_TRUTH", "/nowhere/at/all"}});
    User alice(venue, "alice");
    alice.send(buy("b1").shares(300).at("100.00"));
    EXPECT_EQ(alice.next(3),
              "3: NR b1 accepted #1040 300@100 | 4: O1 b1 #1040 buy 300@100 tif D type 1 | "
              "5: P1 b1 #1040 @100 behind");
    const std::string said = venue.process.said();
    EXPECT_EQ(said.substr(said.find('\n') + 1),
              "bench: login alice requested seq 0 (stream next 1): accepted at 1, replaying 0 message(s)\n");
}

// The first descriptors to be opened take the places of standard streams that are closed: the log would be one of them.
TEST(LiveStart, KeepsItsWordsOutOfItsFilesWhenTheStandardStreamsAreClosed) {
    const FeedReader feed;
    const ReservedPort meo_port;
    const TemporaryFile log;
    Process process(
        "/bin/sh",
        {"-c", "exec \"$@\" <&- >&- 2>&-", "sh", KAVO_ME_PATH, "--mcast", "127.0.0.1", "--port",
         std::to_string(feed.port()), "--retrans-port", "0", "--meo-port", std::to_string(meo_port.number())},
        {{"BENCH_ORDER_TRUTH", log.path()}});
    EXPECT_TRUE(process.catches(SIGTERM));
    EXPECT_EQ(process.stop(), 0);
    EXPECT_EQ(log.content(), "");
}

TEST(LiveStart, EndsWithStatusOneWhenItsOrderEntryPortIsTaken) {
    FeedReader feed;
    const TakenPort taken(SOCK_STREAM);
    Process process(KAVO_ME_PATH, {"--mcast", "127.0.0.1", "--port", std::to_string(feed.port()), "--retrans-port", "0",
                                   "--meo-port", taken.number(), "--symbols", "AAPL"});
    EXPECT_EQ(process.wait(), 1);
    EXPECT_EQ(process.said(), "kavo_me: MEO listen: Address already in use\n");

    // The feed has opened the day all the same.
    const auto start = feed.next_packet(patience);
    ASSERT_TRUE(start);
    EXPECT_EQ(start->header.type, mach::PacketType::start);
    EXPECT_EQ(feed.next(4), "state session 1 | definition 1 AAPL Q | open 1 | status 1");
}

TEST(LiveStart, HasNobodyToTradeWithWithoutSymbols) {
    FeedReader feed;
    const ReservedPort meo_port;
    Process process(KAVO_ME_PATH, {"--mcast", "127.0.0.1", "--port", std::to_string(feed.port()), "--retrans-port", "0",
                                   "--meo-port", std::to_string(meo_port.number()), "--symbols", ""});
    ASSERT_TRUE(process.catches(SIGTERM)) << process.said();
    WireClient alice(meo_port.number());
    alice.log_in(login("alice"));
    EXPECT_EQ(alice.next(2), "login accepted, engine 1, highest 0 | 1: SN MEO2.7 session 1");
    alice.send(buy("b1").at("1.00"));
    EXPECT_EQ(alice.next(), "2: NR b1 rejected 'S' 100@1");
    EXPECT_EQ(process.stop(), 0);
    EXPECT_EQ(feed.waiting(), "state session 1");
}

// The feed is counted as its receiver saw it, whose numbers include the seconds that happened to turn.
std::string final_report(const FeedReader& feed, const std::string& statistics) {
    return "kavo_me faults: sent " + std::to_string(feed.datagrams()) + " dropped 0 duplicated 0 reordered 0\n" +
           "bench: stats " + statistics + " next_seq=" + std::to_string(feed.last_sequence() + 1) +
           "\n[kavo_me] stopped\n";
}

TEST(LiveStop, BySignalReportsAndEndsWithStatusZero) {
    for (const std::vector<int>& signals : {std::vector{SIGINT}, {SIGTERM}, {SIGTERM, SIGINT, SIGTERM}}) {
        LiveVenue venue;
        const std::string before = venue.process.said();
        for (const int number : signals) venue.process.signal(number);
        venue.stop();
        EXPECT_EQ(venue.feed.waiting(), "");
        EXPECT_EQ(venue.process.said(), before + final_report(venue.feed, model::Bench().statistics()));
    }
}

TEST(LiveStop, ReportsWhatTheDayHasBrought) {
    LiveVenue venue({"--acod"});
    venue.empty_the_books();  // two orders with forty fills, and both lose their rest to a cancel
    {
        User alice(venue, "alice");
        User bob(venue, "bob");
        alice.send(buy("a1").shares(300).at("190.00"));
        alice.next(3);
        bob.send(sell("b1").shares(100).at("190.00"));
        bob.next(3);
        send_together(alice, {replace("a1", "a2").shares(250).at("190.00").bytes(),
                              replace("a2", "a2").shares(200).at("190.00").bytes(),    // its id is taken
                              cancel("a2").bytes(), cancel("a2").bytes(),              // accepted, then late
                              cancel("a0").bytes(),                                    // stale
                              buy("a3").shares(0).at("190.00").bytes(),                // counts nowhere
                              buy("a4").shares(100).at("190.00").immediate().bytes(),  // expires
                              buy("a5").shares(100).at("190.00").bytes()});            // rests until alice leaves
        alice.next_with(" P1 a5 ");
    }
    EXPECT_TRUE(venue.process.says("cancelled 1 open order(s) of alice on disconnect\n"));
    EXPECT_TRUE(venue.process.says("cancelled 0 open order(s) of bob on disconnect\n"));
    WireClient bob(venue.port());
    bob.log_in(login("bob", 2));
    EXPECT_EQ(bob.next(6),
              "login accepted, engine 1, highest 5 | 2: SU 1 AAPL Q | 3: NR b1 accepted #1043 100@190 | "
              "4: O1 b1 #1043 sell 100@190 tif D type 1 | "
              "5: E1 b1 100@190 sell removed RC match 41 exec 42 | replay complete");

    venue.stop();
    venue.feed.waiting();
    const model::Bench counted{.orders = 6,
                               .accepts = 6,
                               .fills = 42,
                               .cancels = 5,
                               .replaces = 1,
                               .replace_rejects = 1,
                               .late_cancels = 1,
                               .stale_cancels = 1,
                               .logins = 4,
                               .replays = 1,
                               .replayed = 4};
    EXPECT_TRUE(venue.process.said().ends_with("\n" + final_report(venue.feed, counted.statistics())))
        << venue.process.said();
}

TEST(LiveStop, HasSaidEverythingButTwoLinesWhenQuiet) {
    LiveVenue venue({"--quiet"});
    {
        User alice(venue, "alice");
        alice.send_packet('X');
        EXPECT_EQ(alice.next(), "closed");
    }
    venue.stop();
    const std::string said = venue.process.said();
    EXPECT_EQ(said.substr(said.find('\n') + 1),
              "bench: login alice requested seq 0 (stream next 1): accepted at 1, replaying 0 message(s)\n"
              "bench: client alice logged out\n"
              "bench: ACOD off (Do Not Cancel All Open Orders): 0 open order(s) of alice stay on the book\n" +
                  final_report(venue.feed, model::Bench{.logins = 1}.statistics()));
}

}  // namespace
}  // namespace kavo::test
