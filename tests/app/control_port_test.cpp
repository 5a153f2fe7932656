// Commands one by one: what each sets, what it answers and what it says, and how the text of a datagram is read.
#include "app/control_port.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "client/control_client.h"
#include "common/socket.h"
#include "model/bench.h"
#include "support/process.h"
#include "support/said.h"
#include "support/venue.h"

namespace kavo::test {
namespace {

using namespace std::string_literals;

// Six messages have been published, in one datagram.
struct ControlPortTest : testing::Test {
    ControlPortTest() {
        venue.feed.publish(Bytes(5));
        for (int i = 0; i < 5; ++i) venue.feed.publish(Bytes(20));
        venue.feed.flush();
    }

    std::string reply(const std::string& datagram) {
        std::string reply;
        said = said_during([&] { reply = port.handle(datagram); });
        return reply;
    }

    Venue venue;
    std::int32_t& tick_interval_ms = venue.engine.market.interval_ms = 7;
    ControlPort& port = venue.venue.control_port;
    std::string said;  // on standard error during the last command
};

std::uint16_t port_of(int socket) {
    sockaddr_in name{};
    socklen_t size = sizeof name;
    getsockname(socket, reinterpret_cast<sockaddr*>(&name), &size);
    return ntohs(name.sin_port);
}

using ControlCommand = ControlPortTest;
using ControlText = ControlPortTest;
using ControlNumber = ControlPortTest;
using ControlStatistics = ControlPortTest;

TEST_F(ControlCommand, PauseStopsTheMarketAndSaysAtWhichMessage) {
    EXPECT_EQ(reply("pause"), "ok pause\n");
    EXPECT_TRUE(venue.engine.market.paused);
    EXPECT_EQ(said, "bench: paused at seq 6\n");
    EXPECT_EQ(reply("pause"), "ok pause\n");
    EXPECT_TRUE(venue.engine.market.paused);
    EXPECT_EQ(said, "bench: paused at seq 6\n");
}

TEST_F(ControlCommand, ResumeLetsTheMarketGoOnAndSaysAtWhichMessage) {
    venue.engine.market.paused = true;
    venue.feed.publish(Bytes(20));
    EXPECT_EQ(reply("resume"), "ok resume\n");
    EXPECT_FALSE(venue.engine.market.paused);
    EXPECT_EQ(said, "bench: resumed at seq 7\n");
}

TEST_F(ControlCommand, PauseTakesNoArgument) {
    EXPECT_EQ(reply("pause 0"), "ok pause 0\n");
    EXPECT_TRUE(venue.engine.market.paused);
}

TEST_F(ControlCommand, WaitsForTheNextPassBehindTwoHundredAndFiftySixOthers) {
    const int socket = open_local_datagrams(0, "control port", standard_error);
    ASSERT_GE(socket, 0);
    const int room = 1 << 20;
    setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &room, sizeof room);
    ControlPort reached(venue.bench, venue.engine, venue.feed, venue.order_entry, venue.clock, standard_error,
                        command_socket(socket));
    const ControlClient harness(port_of(socket));
    const auto drops_waiting = [&] { return venue.feed.faults.drop_next; };
    for (std::uint32_t i = 1; i <= 260; ++i) harness.send("drop " + std::to_string(i));
    reached.drain();
    EXPECT_EQ(drops_waiting(), 256u);
    reached.drain();
    EXPECT_EQ(drops_waiting(), 260u);
    close_socket(socket);
}

TEST(CommandSocket, GivesFiveHundredAndElevenBytesOfADatagramAtMost) {
    const int socket = open_local_datagrams(0, "control port", standard_error);
    ASSERT_GE(socket, 0);
    const CommandSource source = command_socket(socket);
    const ControlClient harness(port_of(socket));
    for (const auto& [sent, given] : {std::pair{510u, 510u}, {511u, 511u}, {512u, 511u}, {600u, 511u}}) {
        harness.send(std::string(sent, 'a'));
        EXPECT_EQ(source.receive(), std::string(given, 'a'));
    }
    EXPECT_EQ(source.receive(), std::nullopt);
    close_socket(socket);
}

// A setting that takes a number: where it lands, and what stands for a number that is none.
struct Setting {
    std::string word;
    std::uint32_t& value;
    std::uint32_t otherwise;
};

struct ControlSetting : ControlPortTest {
    FeedFaults& faults = venue.feed.faults;
    Bench& bench = venue.bench;
    std::vector<Setting> settings{
        {"drop", faults.drop_next, 1},
        {"dup", faults.dup_next, 1},
        {"reorder", faults.reorder_next, 1},
        {"drop_every", faults.drop_every, 0},
        {"dup_every", faults.dup_every, 0},
        {"reorder_every", faults.reorder_every, 0},
        {"reject", bench.reject_next, 1},
        {"partial", bench.partial_next, 1},
        {"fill_on_cancel", bench.fill_on_cancel_next, 1},
        {"unsolicited_cancel", bench.unsolicited_cancel_next, 1},
        {"replace_reject", bench.replace_reject_next, 1},
    };
};

TEST_F(ControlSetting, IsStoredAndEchoedWithoutAWordOnStandardError) {
    for (const Setting& setting : settings) {
        EXPECT_EQ(reply(setting.word + " 17"), "ok " + setting.word + " 17\n");
        EXPECT_EQ(setting.value, 17u) << setting.word;
        EXPECT_EQ(said, "") << setting.word;
    }
}

TEST_F(ControlSetting, ChangesNoOther) {
    for (std::size_t i = 0; i < settings.size(); ++i) {
        for (const Setting& setting : settings) setting.value = 1000;
        reply(settings[i].word + " 5");
        for (std::size_t j = 0; j < settings.size(); ++j) {
            EXPECT_EQ(settings[j].value, i == j ? 5u : 1000u) << settings[i].word << " and " << settings[j].word;
        }
    }
}

TEST_F(ControlSetting, OfTheScenarioIsNotTouchedByAny) {
    bench.reject_every = bench.partial_fill_every = bench.fill_on_cancel_every = 1000;
    bench.unsolicited_cancel_every = bench.replace_reject_every = bench.disconnect_after = 1000;
    for (const Setting& setting : settings) reply(setting.word + " 5");
    for (const std::uint32_t knob :
         {bench.reject_every, bench.partial_fill_every, bench.fill_on_cancel_every, bench.unsolicited_cancel_every,
          bench.replace_reject_every, bench.disconnect_after}) {
        EXPECT_EQ(knob, 1000u);
    }
}

TEST_F(ControlSetting, TakesItsDefaultWithoutANumber) {
    for (const Setting& setting : settings) {
        setting.value = 1000;
        EXPECT_EQ(reply(setting.word), "ok " + setting.word + "\n");
        EXPECT_EQ(setting.value, setting.otherwise) << setting.word;
    }
}

TEST_F(ControlSetting, TakesItsDefaultForAWordThatIsNoNumber) {
    for (const Setting& setting : settings) {
        for (const std::string bad : {"many", "-", "+", "--3", "x5", "#2"}) {
            setting.value = 1000;
            EXPECT_EQ(reply(setting.word + " " + bad), "ok " + setting.word + " " + bad + "\n");
            EXPECT_EQ(setting.value, setting.otherwise) << setting.word << " " << bad;
            EXPECT_EQ(said, "");
        }
    }
}

TEST_F(ControlSetting, TakesItsDefaultForANumberThatNoIntegerHolds) {
    for (const Setting& setting : settings) {
        for (const std::string bad :
             {"18446744073709551616", "-18446744073709551616", "99999999999999999999999999999999999999999999999999"}) {
            setting.value = 1000;
            reply(setting.word + " " + bad);
            EXPECT_EQ(setting.value, setting.otherwise) << setting.word << " " << bad;
        }
    }
}

TEST_F(ControlSetting, OfZeroIsZero) {
    for (const Setting& setting : settings) {
        setting.value = 1000;
        reply(setting.word + " 0");
        EXPECT_EQ(setting.value, 0u) << setting.word;
    }
}

TEST_F(ControlSetting, ReplacesTheOneBeforeInsteadOfAddingToIt) {
    for (const Setting& setting : settings) {
        reply(setting.word + " 5");
        reply(setting.word + " 2");
        EXPECT_EQ(setting.value, 2u) << setting.word;
    }
}

TEST_F(ControlNumber, IsDecimalWithASignAndAnyTextBehindIt) {
    const std::vector<std::pair<std::string, std::uint32_t>> numbers = {
        {"007", 7},   {"+5", 5},  {"12abc", 12}, {"3.9", 3}, {"0x10", 0},
        {"1e3", 1},   {"5,6", 5}, {"2-1", 2},    {"-0", 0},  {"4294967295", 4294967295},
        {"1 2 3", 1},
    };
    for (const auto& [text, number] : numbers) {
        venue.bench.reject_next = 1000;
        EXPECT_EQ(reply("reject " + text), "ok reject " + text + "\n");
        EXPECT_EQ(venue.bench.reject_next, number) << text;
    }
}

// As every count on the command line too: converted wide, then kept to 32 bits.
TEST_F(ControlNumber, IsKeptToThirtyTwoBits) {
    const std::vector<std::pair<std::string, std::uint32_t>> numbers = {
        {"-1", 4294967295},
        {"-4294967295", 1},
        {"4294967296", 0},
        {"4294967297", 1},
        {"18446744073709551615", 4294967295},
        {"-18446744073709551615", 1},
    };
    for (const auto& [text, number] : numbers) {
        venue.bench.reject_next = 1000;
        reply("reject " + text);
        EXPECT_EQ(venue.bench.reject_next, number) << text;
    }
}

TEST_F(ControlNumber, IsTheSecondWordAndNoFurtherOne) {
    reply("drop 3 9");
    EXPECT_EQ(venue.feed.faults.drop_next, 3u);
    reply("drop word 9");
    EXPECT_EQ(venue.feed.faults.drop_next, 1u);
}

TEST_F(ControlCommand, RateSetsTheTickInterval) {
    EXPECT_EQ(reply("rate 250"), "ok rate 250\n");
    EXPECT_EQ(tick_interval_ms, 250);
    EXPECT_EQ(said, "");
    reply("rate 2147483647");
    EXPECT_EQ(tick_interval_ms, 2147483647);
}

TEST_F(ControlCommand, RateOfNothingOrZeroIsTheBuiltInOneWhateverTheProcessWasStartedWith) {
    for (const std::string command :
         {"rate", "rate 0", "rate -0", "rate fast", "rate 18446744073709551616", "rate 4294967296"}) {
        tick_interval_ms = 7;
        EXPECT_EQ(reply(command), "ok " + command + "\n");
        EXPECT_EQ(tick_interval_ms, 40) << command;
        EXPECT_EQ(said, "") << command;
    }
}

// The interval is signed, so that a market can be told never to tick.
TEST_F(ControlCommand, RateBeyondTheSignedRangeIsNegative) {
    reply("rate -1");
    EXPECT_EQ(tick_interval_ms, -1);
    reply("rate 4294967295");
    EXPECT_EQ(tick_interval_ms, -1);
    reply("rate 2147483648");
    EXPECT_EQ(tick_interval_ms, -2147483647 - 1);
}

TEST_F(ControlCommand, DisconnectIsARequestForTheNextOccasion) {
    const ClientHandle alice = venue.log_in("alice");
    EXPECT_EQ(reply("disconnect"), "ok disconnect\n");
    EXPECT_TRUE(venue.bench.disconnect_requested);
    EXPECT_EQ(said, "");
    venue.pass();
    EXPECT_TRUE(venue.bench.disconnect_requested);
    EXPECT_FALSE(venue.connection(alice).closed);

    said = said_during([&] { venue.request(alice, buy("b1").at("189.95").bytes()); });
    EXPECT_TRUE(venue.connection(alice).closed);
    EXPECT_FALSE(venue.bench.disconnect_requested);
    EXPECT_TRUE(said.starts_with("bench: dropping the connection of alice (driven)\n")) << said;
}

TEST_F(ControlCommand, DisconnectGivesTheReasonOfTheScenarioWhereThereIsOne) {
    venue.bench.disconnect_after = 1000;
    const ClientHandle alice = venue.log_in("alice");
    reply("disconnect");
    said = said_during([&] { venue.request(alice, buy("b1").at("189.95").bytes()); });
    EXPECT_TRUE(
        said.starts_with("bench: dropping the connection of alice (scripted: the client must log in again with "
                         "its next expected sequence)\n"))
        << said;
    EXPECT_TRUE(venue.bench.disconnect_done);
}

TEST_F(ControlCommand, DisconnectHitsWhicheverClientSpeaksNextAndOnlyThatOne) {
    const ClientHandle alice = venue.log_in("alice");
    const ClientHandle bob = venue.log_in("bob");
    reply("disconnect");
    said_during([&] {
        venue.request(bob, cancel("nothing").bytes());
        venue.request(alice, buy("a1").at("189.95").bytes());
    });
    EXPECT_TRUE(venue.connection(bob).closed);
    EXPECT_FALSE(venue.connection(alice).closed);
}

TEST_F(ControlCommand, LapseBeginsNowAndIsAnnouncedAnew) {
    venue.bench.lapse_announced = true;
    EXPECT_EQ(reply("lapse 5000"), "ok lapse 5000\n");
    EXPECT_EQ(venue.bench.lapse_until_ms, Venue::start_ms + 5000);
    EXPECT_FALSE(venue.bench.lapse_announced);
    EXPECT_EQ(said, "");
    EXPECT_EQ(said_during([&] { venue.pass(); }),
              "bench: going silent for 5000 ms (no heartbeats; the client should disconnect after 3 s and log in again "
              "with its next expected sequence)\n");
    EXPECT_EQ(said_during([&] { venue.pass(); }), "");
}

TEST_F(ControlCommand, LapseLastsTwentySecondsUnlessANumberSaysOtherwise) {
    for (const std::string command : {"lapse", "lapse long", "lapse 18446744073709551616"}) {
        venue.bench.lapse_until_ms = 0;
        EXPECT_EQ(reply(command), "ok " + command + "\n");
        EXPECT_EQ(venue.bench.lapse_until_ms, Venue::start_ms + 20'000) << command;
    }
    reply("lapse -1");
    EXPECT_EQ(venue.bench.lapse_until_ms, Venue::start_ms + 4294967295);
}

TEST_F(ControlCommand, LapseOfZeroEndsOneThatRuns) {
    reply("lapse 5000");
    reply("lapse 0");
    EXPECT_EQ(venue.bench.lapse_until_ms, Venue::start_ms);
    EXPECT_EQ(said_during([&] { venue.pass(); }), "");
}

TEST_F(ControlCommand, LapseWithholdsHeartbeatsUntilItsLastMillisecond) {
    const ClientHandle alice = venue.log_in("alice");
    venue.heard(alice);
    reply("lapse 1500");
    venue.clock.advance_ms(1499);
    said_during([&] { venue.pass(); });
    EXPECT_EQ(venue.heard(alice), "");
    venue.clock.advance_ms(1);
    venue.pass();
    EXPECT_EQ(venue.heard(alice), "heartbeat");
}

TEST_F(ControlCommand, MarkIsSaidWithTheLastNumberUsedAndTheOrders) {
    venue.bench.counters.orders = 12;
    EXPECT_EQ(reply("mark here"), "ok mark here\n");
    EXPECT_EQ(said, "bench: mark here at seq 6 orders 12\n");
}

TEST_F(ControlCommand, MarkIsWrittenIntoTheBookTruthAndFlushed) {
    const TemporaryFile truth;
    venue.engine.books.truth.open(truth.path());
    venue.engine.books.truth.write("before\n");
    EXPECT_EQ(reply("mark here"), "ok mark here\n");
    EXPECT_EQ(truth.content(), "before\n{\"mark\":\"here\",\"seq\":6}\n");
    EXPECT_EQ(said, "bench: mark here at seq 6 orders 0\n");
}

TEST_F(ControlCommand, MarkTakesItsLabelAsItIs) {
    const TemporaryFile truth;
    venue.engine.books.truth.open(truth.path());
    EXPECT_EQ(reply("mark a\"b\\%s"), "ok mark a\"b\\%s\n");
    EXPECT_EQ(truth.content(), "{\"mark\":\"a\"b\\%s\",\"seq\":6}\n");
    EXPECT_EQ(said, "bench: mark a\"b\\%s at seq 6 orders 0\n");
}

TEST_F(ControlCommand, MarkWithoutALabelHasAnEmptyOne) {
    const TemporaryFile truth;
    venue.engine.books.truth.open(truth.path());
    EXPECT_EQ(reply("mark"), "ok mark\n");
    EXPECT_EQ(truth.content(), "{\"mark\":\"\",\"seq\":6}\n");
    EXPECT_EQ(said, "bench: mark  at seq 6 orders 0\n");
}

TEST_F(ControlCommand, MarkWithTwoWordsUsesTheFirstAndEchoesBoth) {
    const TemporaryFile truth;
    venue.engine.books.truth.open(truth.path());
    EXPECT_EQ(reply("mark before lunch"), "ok mark before lunch\n");
    EXPECT_EQ(truth.content(), "{\"mark\":\"before\",\"seq\":6}\n");
    EXPECT_EQ(said, "bench: mark before at seq 6 orders 0\n");
}

TEST_F(ControlCommand, MarkIsSaidThoughTheBookTruthCannotBeWritten) {
    venue.engine.books.truth.open("/dev/full");
    EXPECT_EQ(reply("mark one"), "ok mark one\n");
    EXPECT_FALSE(venue.engine.books.truth.is_on());
    EXPECT_EQ(reply("mark two"), "ok mark two\n");
    EXPECT_EQ(said, "bench: mark two at seq 6 orders 0\n");
}

TEST_F(ControlCommand, StopIsAnsweredWithoutALineFeed) {
    for (const std::string command : {"stop", "stop now", " stop \r\n"}) EXPECT_EQ(reply(command), "ok stopping");
}

TEST_F(ControlCommand, StopTellsTheFaultsAndEndsTheProcessWhenItsReplyIsOnItsWay) {
    std::vector<std::string> events;
    bool waits = true;
    const Commentary commentary([&](std::string_view text) { events.emplace_back(text); });
    ControlPort reached(
        venue.bench, venue.engine, venue.feed, venue.order_entry, venue.clock, commentary,
        {[&]() -> std::optional<std::string_view> {
             return std::exchange(waits, false) ? std::optional("stop") : std::nullopt;
         },
         [&](std::string_view text) { events.emplace_back(text); }, [&] { events.emplace_back("exit"); }});
    reached.drain();
    EXPECT_EQ(events, (std::vector<std::string>{
                          "ok stopping", "kavo_me faults: sent 1 dropped 0 duplicated 0 reordered 0\n", "exit"}));
}

TEST_F(ControlCommand, ThatIsUnknownIsQuotedBackAndChangesNothing) {
    const FeedFaults before = venue.feed.faults;
    for (const std::string word : {"PAUSE", "Pause", "pauses", "paus", "drop-every", "dropevery", "stats.", "exit", "0",
                                   "err", "'", "mark:", "STOP"}) {
        EXPECT_EQ(reply(word), "err unknown command '" + word + "'\n");
        EXPECT_EQ(said, "") << word;
    }
    EXPECT_FALSE(venue.engine.market.paused);
    EXPECT_EQ(venue.feed.faults.drop_every, before.drop_every);
}

TEST_F(ControlCommand, ThatIsUnknownIsQuotedWithoutItsArguments) {
    EXPECT_EQ(reply("PAUSE the market"), "err unknown command 'PAUSE'\n");
}

TEST_F(ControlText, OfBlanksAloneIsTheEmptyCommand) {
    for (const std::string blank : {" ", "     ", "\n", "\r\n", " \r \n ", "\t", "\t \n", "\v", "\f"}) {
        EXPECT_EQ(reply(blank), "err unknown command ''\n");
    }
}

TEST_F(ControlText, EndsBeforeTrailingBlanksAndLineEnds) {
    for (const std::string end : {"\n", "\r\n", " ", "   ", " \n \r\n "}) {
        EXPECT_EQ(reply("pause" + end), "ok pause\n");
        EXPECT_EQ(reply("drop 3" + end), "ok drop 3\n");
    }
}

TEST_F(ControlText, KeepsATrailingTabInItsEcho) {
    EXPECT_EQ(reply("pause\t"), "ok pause\t\n");
    EXPECT_EQ(reply("pause\t\n"), "ok pause\t\n");
    EXPECT_EQ(reply("pause \t "), "ok pause \t\n");
    EXPECT_TRUE(venue.engine.market.paused);
}

TEST_F(ControlText, IsReadBehindLeadingBlanksWhichItsEchoKeeps) {
    EXPECT_EQ(reply("  pause"), "ok   pause\n");
    EXPECT_EQ(reply("\r\n\tpause"), "ok \r\n\tpause\n");
    EXPECT_TRUE(venue.engine.market.paused);
}

TEST_F(ControlText, HasWordsThatAnyWhiteSpaceSeparates) {
    std::uint32_t number = 2;
    for (const std::string separator : {" ", "\t", "\n", "\r", "\v", "\f", " \t\n "}) {
        const std::string command = "drop" + separator + std::to_string(++number);
        EXPECT_EQ(reply(command), "ok " + command + "\n");
        EXPECT_EQ(venue.feed.faults.drop_next, number);
    }
}

TEST_F(ControlText, EndsAtTheFirstNul) {
    EXPECT_EQ(reply("pause\0resume"s), "ok pause\n");
    EXPECT_TRUE(venue.engine.market.paused);
    EXPECT_EQ(reply("drop 5\0006"s), "ok drop 5\n");
    EXPECT_EQ(venue.feed.faults.drop_next, 5u);
    EXPECT_EQ(reply("drop 7 \0\0"s), "ok drop 7\n");
}

TEST_F(ControlText, ThatBeginsWithANulIsTheEmptyCommand) {
    EXPECT_EQ(reply("\0pause"s), "err unknown command ''\n");
    EXPECT_EQ(reply("\0"s), "err unknown command ''\n");
    EXPECT_FALSE(venue.engine.market.paused);
}

TEST_F(ControlStatistics, AreEveryCounterInItsPlace) {
    venue.bench.counters = {.orders = 1,
                            .accepts = 2,
                            .fills = 3,
                            .partials = 4,
                            .cancels = 5,
                            .replaces = 6,
                            .rejects = 7,
                            .replace_rejects = 8,
                            .unsolicited_cancels = 9,
                            .race_fills = 10,
                            .late_cancels = 11,
                            .stale_cancels = 12,
                            .logins = 13,
                            .replays = 14,
                            .replayed = 18446744073709551615u};
    venue.feed.counters.packets = 100;
    venue.feed.counters.dropped = 30;
    venue.feed.counters.duplicated = 21;
    venue.feed.counters.reordered = 32;
    const std::string expected =
        "ok orders=1 accepts=2 fills=3 partials=4 cancels=5 replaces=6 rejects=7 replace_rejects=8 "
        "unsolicited_cancels=9 race_fills=10 late_cancels=11 stale_cancels=12 logins=13 replays=14 "
        "replayed=18446744073709551615 next_seq=7 kavo_me faults: sent 70 dropped 30 duplicated 21 reordered 32 "
        "session=down\n";
    EXPECT_EQ(reply("stats"), expected);
    EXPECT_EQ(said, "");
    EXPECT_EQ(reply("stats of today\n"), expected);
}

TEST_F(ControlStatistics, OfABenchThatHasSeenNothingAreZeros) {
    EXPECT_EQ(reply("stats"),
              "ok " + model::Bench().statistics() +
                  " next_seq=7 kavo_me faults: sent 1 dropped 0 duplicated 0 reordered 0 session=down\n");
}

TEST_F(ControlStatistics, ShowASessionWhileAnyoneIsLoggedIn) {
    const auto state = [this] {
        const std::string text = reply("stats");
        return text.substr(text.find(" session="));
    };
    const ClientHandle silent = venue.connect();
    EXPECT_EQ(state(), " session=down\n");
    const ClientHandle alice = venue.log_in("alice");
    EXPECT_EQ(state(), " session=up\n");
    said_during([&] { venue.send(silent, 'X'); });
    EXPECT_EQ(state(), " session=up\n");
    said_during([&] { venue.send(alice, 'X'); });
    EXPECT_EQ(state(), " session=down\n");
}

TEST_F(ControlSetting, OutlivesTheClients) {
    for (const Setting& setting : settings) setting.value = 9;
    said_during([&] {
        const ClientHandle alice = venue.log_in("alice");
        venue.send(alice, 'X');
        venue.log_in("alice");
    });
    for (const Setting& setting : settings) EXPECT_EQ(setting.value, 9u) << setting.word;
}

}  // namespace
}  // namespace kavo::test
