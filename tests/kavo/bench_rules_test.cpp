#include "kavo/audit/bench_rules.h"

#include <gtest/gtest.h>

#include <fstream>

#include "client/packets.h"
#include "kavo/audit/audit.h"
#include "kavo/recorded_run.h"

namespace kavo::companion {

using kavo::test::damage;
using kavo::test::drop_line;
using kavo::test::RecordedRun;
using Event = RecordedRun::Event;

namespace {

// What is found, as "bench.book-line bench" for each finding, each once.
std::string bench_findings(RecordedRun& run) {
    Verdict verdict;
    const Journal journal = run.journal();
    audit_bench(journal, verdict, {});
    std::string all;
    for (const Finding& finding : verdict.findings) {
        EXPECT_FALSE(finding.expected.empty());
        EXPECT_FALSE(finding.got.empty());
        const std::string grade = finding.grade == Grade::bench ? "" : "?";
        const std::string one = std::string(finding.rule->name) + grade;
        if (all.find(one) != std::string::npos) continue;
        all += (all.empty() ? "" : " ") + one;
    }
    return all;
}

// Everything that an order can go through: two users, of whom one leaves and comes back, trades on both sides,
// replaces, cancels, and rejects of each kind.
void trade(RecordedRun& run) {
    RecordedRun::Client& alice = run.user("alice");
    RecordedRun::Client& bob = run.user("bob");
    run.step();
    alice.session.send(client::buy("b1").shares(100).at("190.50"));
    alice.session.send(client::buy("b2").shares(300).at("189.50"));
    alice.session.send(client::buy("b3").shares(100).at("191.00").post_only());
    alice.session.send(client::buy("b2").shares(100).at("189.00"));
    run.step();
    alice.session.send(client::replace("b2", "b4").shares(300).at("190.00"));
    alice.session.send(client::replace("nobody", "b5").shares(300).at("190.00"));
    alice.session.send(client::cancel("b1"));
    run.step();
    bob.session.send(client::sell("s1").shares(100).at("189.98"));
    bob.session.send(client::sell("s\",\"oid\":7\n").shares(50).at("195.00"));
    bob.session.send(client::sell("s3").shares(500).market());
    run.step();
    run.leave(alice);
    bob.session.send(client::sell("s4").shares(200).at("189.00"));
    run.step();
    bob.session.send(client::cancel("s\",\"oid\":7\n"));
    run.user("alice", 4);
    run.steps(300);
}

// The place in the recording of the first message from the venue of this type, such as "E1".
Bytes& said_message(RecordedRun& run, std::string_view type, std::size_t& at) {
    for (Event& event : run.events) {
        if (event.kind != Event::Kind::said || event.by_client) continue;
        at = as_text(event.bytes).find(type);
        if (at != std::string_view::npos) return event.bytes;
    }
    throw std::runtime_error("no such message");
}

// A market that moves, and a receiver that asks for what it has missed.
const std::vector<std::string> busy{"--symbols", "AAPL:190.00", "--interval-ms", "5"};

std::vector<std::string> with(std::vector<std::string> arguments, const std::vector<std::string>& more) {
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
}

// Changes a datagram that carries messages; the first packet of it begins at byte 0.
Event& datagram(RecordedRun& run, std::size_t number) {
    for (Event& event : run.events) {
        if (event.kind == Event::Kind::datagram && event.bytes.size() > 100 && number-- == 0) return event;
    }
    throw std::runtime_error("no such datagram");
}

void drop(RecordedRun& run, const Event& event) {
    run.events.erase(run.events.begin() + (&event - run.events.data()));
}

// Gives every message of the feed from here on the next number, as a venue does that skips one; and the truth too.
void skip_a_number(RecordedRun& run, std::uint64_t from) {
    for (Event& event : run.events) {
        if (event.kind != Event::Kind::datagram) continue;
        for (std::size_t at = 0; at < event.bytes.size();) {
            const MutableBytes packet = MutableBytes(event.bytes).subspan(at);
            const std::uint64_t number = get(packet, mach::layout::sequence);
            if (number >= from) put(packet, mach::layout::sequence, number + 1);
            at += get(packet, mach::layout::length);
        }
    }
    std::string moved;
    for (std::size_t at = 0; at < run.books.size();) {
        const std::size_t end = run.books.find('\n', at) + 1;
        std::string line = run.books.substr(at, end - at);
        const std::uint64_t number = std::stoull(line.substr(7));
        if (number >= from) line.replace(7, std::to_string(number).size(), std::to_string(number + 1));
        moved += line;
        at = end;
    }
    run.books = moved;
}

}  // namespace

TEST(Bench, ThatIsRightIsAcquitted) {
    RecordedRun run;
    trade(run);
    EXPECT_EQ(bench_findings(run), "");
}

TEST(Bench, IsAcquittedWithEveryFaultThatItSpeaksOf) {
    RecordedRun run(with(busy, {"--drop-every", "7", "--dup-every", "5", "--reorder-every", "11", "--acod"}),
                    {.scenario = "reject_every=3,partial_fill_every=2,fill_on_cancel_every=2,"
                                 "unsolicited_cancel_every=2,replace_reject_every=2"});
    RecordedRun::Client& bob = run.user("bob");
    trade(run);
    for (int i = 0; i < 12; ++i) {
        const std::string id = std::to_string(i);
        bob.session.send(client::sell("x" + id).shares(200).at("190.40"));
        bob.session.send(client::buy("y" + id).shares(100).at("189.20"));
        bob.session.send(client::replace("y" + id, "z" + id).shares(150).at("189.30"));
        run.step();
        bob.session.send(client::cancel("z" + id));
        run.steps(20);
    }
    run.leave(bob);
    run.recover(client::Recovery::of_messages(1, 200));
    run.recover(client::Recovery::of_state('O'));
    run.user("bob", 2);
    run.steps(300);
    EXPECT_EQ(bench_findings(run), "");
}

TEST(Bench, IsAcquittedWhenMessagesWaitForAUserWhoIsAway) {
    RecordedRun run;
    RecordedRun::Client& alice = run.user("alice");
    RecordedRun::Client& bob = run.user("bob");
    run.step();
    alice.session.send(client::buy("b1").shares(100).at("190.00"));
    run.step();
    run.leave(alice);
    run.step();
    bob.session.send(client::sell("s1").shares(1000).at("189.50"));
    run.steps(400);
    EXPECT_EQ(bench_findings(run), "");
}

// The truth has six significant digits of a price: 12345.67 is 12345.7 there.
TEST(Bench, IsAcquittedOfPricesThatItsTruthRounds) {
    const auto run_at = [](RecordedRun& run) {
        RecordedRun::Client& alice = run.user("alice");
        run.step();
        alice.session.send(client::buy("b1").shares(100).at("12345.67"));
        run.step();
        alice.session.send(client::cancel("b1"));
        run.steps(300);
        run.finish();
    };
    const std::vector<std::string> dear{"--symbols", "AAPL:12350.00", "--interval-ms", "-1"};
    RecordedRun right(dear);
    run_at(right);
    EXPECT_NE(right.orders.find("12345.7"), std::string::npos);
    EXPECT_EQ(bench_findings(right), "");
    RecordedRun wrong(dear);
    run_at(wrong);
    damage(wrong.orders, "12345.7", "12345.8");
    EXPECT_NE(bench_findings(wrong), "");
}

TEST(Bench, IsConvictedOfAFillThatIsLeftOutOfTheTruth) {
    RecordedRun run;
    trade(run);
    run.finish();
    drop_line(run.orders, "\"ev\":\"fill\",\"cl\":\"s4\"");
    EXPECT_EQ(bench_findings(run), "bench.order-line bench.counter");
}

TEST(Bench, IsConvictedOfATruthLineThatNobodyWasToldOf) {
    RecordedRun run;
    trade(run);
    run.clients.back().session.send(client::buy("much later").shares(100).at("180.00"));
    run.step();
    run.finish();
    const std::size_t at = run.orders.find("{\"t\":", run.orders.find("\"cl\":\"b1\""));
    run.orders.insert(at,
                      R"({"t":1700000000000000001,"ev":"cancel_reject","cl":"b1","oid":0,"symbol":"AAPL","side":" ",)"
                      R"("qty":0,"px":0,"cum":0,"leaves":0,"last_qty":0,"text":"stale"})"
                      "\n");
    EXPECT_EQ(bench_findings(run), "bench.order-line bench.counter");
}

TEST(Bench, IsConvictedOfALineThatTellsAnotherQuantityThanItsMessage) {
    RecordedRun run;
    trade(run);
    run.finish();
    damage(run.orders, R"("last_qty":100)", R"("last_qty":200)");
    EXPECT_EQ(bench_findings(run), "bench.order-life bench.order-line");
}

TEST(Bench, IsConvictedOfAnOrderThatAddsUpWrongly) {
    RecordedRun run;
    trade(run);
    run.finish();
    damage(run.orders, R"("cum":100,"leaves":0,)", R"("cum":100,"leaves":100,)");
    EXPECT_EQ(bench_findings(run), "bench.order-life");
}

TEST(Bench, IsConvictedOfANumberOfTheFeedThatIsSkipped) {
    RecordedRun run(busy);
    run.steps(50);
    run.finish();
    skip_a_number(run, 200);
    EXPECT_EQ(bench_findings(run), "bench.feed-number bench.counter");
}

// The same hole, but in the recording alone: the book truth knows what was lost.
TEST(Bench, IsNotConvictedOfADatagramThatTheMachineHasLost) {
    RecordedRun run(busy);
    run.steps(50);
    run.finish();
    drop(run, datagram(run, 10));
    EXPECT_EQ(bench_findings(run), "bench.feed-number?");
}

// A machine with much to do may let a datagram overtake another.
TEST(Bench, IsNotConvictedOfADatagramThatComesLate) {
    RecordedRun run(busy);
    run.steps(50);
    run.finish();
    std::swap(datagram(run, 10).bytes, datagram(run, 11).bytes);
    EXPECT_EQ(bench_findings(run), "");
}

TEST(Bench, IsConvictedOfADatagramThatComesTwiceUnsaid) {
    RecordedRun run(busy);
    run.steps(50);
    run.finish();
    const Event again = datagram(run, 10);
    run.events.push_back(again);
    EXPECT_EQ(bench_findings(run), "bench.fault-line bench.counter");
}

// The largest number that there is leads nowhere, and takes no time.
TEST(Bench, IsConvictedOfANumberBeyondAllMeasure) {
    RecordedRun run(busy);
    run.steps(50);
    run.finish();
    put(datagram(run, 10).bytes, mach::layout::sequence, UINT64_MAX);
    EXPECT_NE(bench_findings(run).find("bench.feed-message"), std::string::npos);
}

TEST(Bench, IsConvictedOfANumberThatIsUsedTwice) {
    RecordedRun run(busy);
    run.steps(50);
    run.finish();
    Event again = datagram(run, 10);
    again.bytes[again.bytes.size() - 1] ^= 1;
    run.events.push_back(again);
    EXPECT_EQ(bench_findings(run), "bench.feed-number bench.fault-line bench.counter");
}

TEST(Bench, IsConvictedOfADatagramThatItSaysItHasDropped) {
    RecordedRun run(busy);
    run.steps(50);
    const std::uint64_t first = get(datagram(run, 10).bytes, mach::layout::sequence);
    run.venue_log.insert(
        0, "1700000000.000000001 kavo_me fault: dropped seq " + std::to_string(first) + " (packet 11, 3 message(s))\n");
    EXPECT_EQ(bench_findings(run), "bench.fault-line bench.counter");
}

TEST(Bench, IsConvictedOfAWrongBookLine) {
    RecordedRun run(busy);
    run.steps(50);
    run.finish();
    const std::size_t line = run.books.find("\"bid\":[[", run.books.size() / 2);
    const std::size_t comma = run.books.find(',', line + 8);
    run.books[comma + 1] = run.books[comma + 1] == '9' ? '8' : '9';
    EXPECT_EQ(bench_findings(run), "bench.book-line");
}

TEST(Bench, IsConvictedOfABookLineThatIsMissing) {
    RecordedRun run(busy);
    run.steps(50);
    run.finish();
    drop_line(run.books, "{\"seq\":100,");
    EXPECT_EQ(bench_findings(run), "bench.book-line");
}

// A venue that was killed keeps its last lines for itself.
TEST(Bench, IsNotConvictedOfLinesThatItsEndHasLost) {
    RecordedRun run(busy);
    run.steps(50);
    run.finish();
    run.books.resize(run.books.rfind('\n', run.books.size() / 2) + 1);
    run.venue_log.resize(run.venue_log.rfind('\n', run.venue_log.size() - 2) + 1);
    EXPECT_EQ(bench_findings(run), "");
}

TEST(Bench, IsConvictedOfAHeartbeatThatPromisesTooMuch) {
    RecordedRun run(busy);
    run.steps(50);
    run.venue.command("pause");
    run.steps(300);
    run.venue.command("resume");
    run.steps(10);
    run.finish();
    for (Event& event : run.events) {
        const bool heartbeat = event.kind == Event::Kind::datagram && event.bytes.size() == mach::layout::header_size &&
                               get(event.bytes, mach::layout::type) == 0;
        if (!heartbeat) continue;
        put(event.bytes, mach::layout::sequence, get(event.bytes, mach::layout::sequence) + 1);
        break;
    }
    EXPECT_EQ(bench_findings(run), "bench.feed-heartbeat");
}

TEST(Bench, IsConvictedOfAMessageThatIsSentAgainDifferently) {
    RecordedRun run(busy);
    run.steps(20);
    run.recover(client::Recovery::of_messages(60, 60));
    run.finish();
    for (Event& event : run.events) {
        if (event.kind == Event::Kind::said && !event.by_client) event.bytes[event.bytes.size() - 30] ^= 1;
    }
    EXPECT_NE(bench_findings(run).find("bench.recovery"), std::string::npos);
}

TEST(Bench, IsConvictedOfARefreshThatLacksAnOrder) {
    RecordedRun run;
    run.recover(client::Recovery::of_state('O'));
    run.finish();
    for (Event& event : run.events) {
        if (event.kind != Event::Kind::said || event.by_client) continue;
        const std::string add("\x2c\0U", 3);  // an Add Order of 34 bytes, its nine bytes of refresh, and the type
        const std::size_t at = as_text(event.bytes).find(add);
        if (at == std::string_view::npos) continue;
        const auto begin = event.bytes.begin() + static_cast<std::ptrdiff_t>(at);
        event.bytes.erase(begin, begin + 46);
        break;
    }
    EXPECT_EQ(bench_findings(run), "bench.recovery");
}

TEST(Bench, IsConvictedOfAReplayThatSaysSomethingElse) {
    RecordedRun run;
    RecordedRun::Client& alice = run.user("alice");
    run.step();
    alice.session.send(client::buy("b1").shares(100).at("190.50"));
    run.step();
    run.leave(alice);
    run.step();
    run.user("alice", 3);
    run.steps(3);
    run.finish();
    for (Event& event : run.events) {
        if (event.kind == Event::Kind::said && !event.by_client && event.ends.client == 40'002) {
            const std::size_t at = as_text(event.bytes).find("E1");
            if (at != std::string_view::npos) event.bytes[at + 64] ^= 1;
        }
    }
    EXPECT_EQ(bench_findings(run), "bench.stream");
}

TEST(Bench, IsConvictedOfAnExecutionThatTheFeedTellsOtherwise) {
    RecordedRun run;
    RecordedRun::Client& alice = run.user("alice");
    run.step();
    alice.session.send(client::buy("b1").shares(100).at("190.50"));
    run.step();
    run.finish();
    std::size_t at = 0;
    Bytes& said = said_message(run, "E1", at);
    put(MutableBytes(said).subspan(at), meo::layout::execution::price, WirePrice{190'010'000});
    EXPECT_EQ(bench_findings(run), "bench.trade");
}

// A fault of the relay would explain it; so would a recording that is cut short.
TEST(Bench, IsConvictedOfARelayThatChangesWhatItPasses) {
    RecordedRun run;
    trade(run);
    run.write();
    {
        Recording recording(run.folder.wire());
        const Recording::Ends front{40'001, run.facts.orders_port};
        const Recording::Ends behind{40'001, run.facts.orders_behind_port};
        recording.opened(1, front);
        recording.opened(2, behind);
        recording.said(3, behind, false, Bytes{1, 0, '0'});
        recording.said(4, front, false, Bytes{1, 0, '1'});
        recording.flush();
    }
    Verdict verdict;
    audit_bench(read_journal(run.folder.path), verdict, {});
    const auto is_of_relay = [](const Finding& finding) { return finding.rule->name == "bench.relay"; };
    EXPECT_EQ(std::ranges::count_if(verdict.findings, is_of_relay), 1);
    std::ofstream(run.folder.log(), std::ios::app) << R"({"t":1,"ev":"relay","user":"alice","what":"swallow 1"})"
                                                      "\n";
    verdict = {};
    audit_bench(read_journal(run.folder.path), verdict, {});
    EXPECT_EQ(std::ranges::count_if(verdict.findings, is_of_relay), 0);
}

// Numbers in one datagram follow each other: nothing on the way can change that.
TEST(Bench, IsConvictedOfAMessageThatNeverLeftWithItsDatagram) {
    RecordedRun run(busy);
    run.steps(50);
    run.finish();
    Event& damaged = datagram(run, 10);
    const std::size_t first = get(damaged.bytes, mach::layout::length);
    const std::size_t second = get(MutableBytes(damaged.bytes).subspan(first), mach::layout::length);
    damaged.bytes.erase(damaged.bytes.begin() + static_cast<std::ptrdiff_t>(first),
                        damaged.bytes.begin() + static_cast<std::ptrdiff_t>(first + second));
    EXPECT_EQ(bench_findings(run), "bench.feed-number");
}

TEST(Bench, IsConvictedOfAReportThatCountsOtherwise) {
    RecordedRun run;
    trade(run);
    run.finish();
    damage(run.venue_log, " late_cancels=", " late_cancels=1");
    EXPECT_EQ(bench_findings(run), "bench.counter");
}

TEST(Bench, IsDoubtedWhenAPartOfTheRecordingIsMissing) {
    RecordedRun run;
    trade(run);
    run.write();
    std::filesystem::resize_file(run.folder.order_truth(), run.orders.size() / 2);
    Verdict verdict;
    audit_bench(read_journal(run.folder.path), verdict, {});
    EXPECT_EQ(verdict.status(), Status::inconclusive);
}

}  // namespace kavo::companion
