// Whatever somebody does to a bench: it is judged, the bench is not blamed for it, and nothing is missing.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <nlohmann/json.hpp>
#include <thread>

#include "client/dial.h"
#include "client/wire_client.h"
#include "feed/mach.h"
#include "kavo/audit/audit.h"
#include "kavo/bench/bench.h"
#include "kavo/bench/catching_up.h"
#include "kavo/report/report.h"
#include "kavo/verbs/judge.h"
#include "kavo_run.h"

namespace kavo::companion {
namespace {

using namespace std::chrono_literals;
using client::WireClient;
using kavo::test::content_of;

// Ids that would be lines, members, markup and commands to a terminal, if anybody took them for that.
const std::vector<std::string> hostile_ids{"\"}\n{\"ev\":\"fill\",\"\":\"",
                                           "a\",\"ev\":\"fill\",\"x\":\"",
                                           "\",\"oid\":7,\"x\":\"",
                                           "\n[kavo_me] stopped\n",
                                           "\x1b[2J\x07",
                                           "\xff\xfe\xc3(",
                                           "]]></failure><x>",
                                           "</script><b>",
                                           "\\",
                                           "\\\"",
                                           "\r\n",
                                           "}\n",
                                           "\xed\xa0\x80"};

// A bench, and somebody who acts against it. All is done before anything is judged.
class StagedRun {
public:
    explicit StagedRun(const std::vector<std::string>& flags = {})
        : bench_(loop_, {.folder = folder_.path("run"), .venue = KAVO_ME_PATH, .scenario = {}, .flags = flags}) {}

    const BenchFacts& facts() const { return bench_.facts(); }

    // In a thread of its own, since the relay needs this one.
    StagedRun& acts(const std::function<void(const BenchFacts&)>& act) {
        std::atomic<bool> done = false;
        std::thread thread([&] {
            act(bench_.facts());
            done = true;
        });
        EXPECT_TRUE(loop_.turn_until([&] { return done.load(); }, 60s));
        thread.join();
        return *this;
    }

    StagedRun& hears_messages(std::uint64_t number) {
        EXPECT_TRUE(loop_.turn_until([&] { return bench_.feed().received().last() >= number; }, 60s));
        return *this;
    }

    // Each rule that is broken, with its grade, once; "" for none. Remarks are left out.
    std::string judged() {
        bench_.stop();
        const Journal journal = read_journal(bench_.folder().path);
        verdict = audit(journal);
        std::string all;
        for (const Finding& finding : verdict.findings) {
            if (finding.grade == Grade::remark) continue;
            const std::string one = std::string(grade_word(finding.grade)) + " " + std::string(finding.rule->name);
            if (all.find(one) == std::string::npos) all += (all.empty() ? "" : ", ") + one;
        }
        testing::internal::CaptureStdout();
        EXPECT_EQ(judge(bench_.folder(), {}), verdict.status());
        said = testing::internal::GetCapturedStdout();
        return all;
    }

    std::string report(const std::string& ending) const { return content_of(bench_.folder().verdict(ending)); }

    Verdict verdict;
    std::string said;

private:
    kavo::test::TemporaryFolder folder_;
    Loop loop_;
    Bench bench_;
};

bool has_control_bytes(const std::string& text) {
    return std::ranges::any_of(text, [](unsigned char c) { return (c < 0x20 && c != '\n' && c != '\t') || c == 0x7f; });
}

// Says something by a connection of its own, and waits until the service hangs up or falls silent.
void say_to(std::uint16_t port, ByteView bytes) {
    WireClient client(port);
    client.keep_silent();
    client.send_bytes(bytes);
    while (client.next_packet_of_any_kind(100ms)) {
    }
}

Bytes bytes_of(std::string_view text) {
    return {text.begin(), text.end()};
}

TEST(HostileClient, WithIdsThatForgeLinesIsReadAsItWroteThem) {
    StagedRun run;
    run.acts([](const BenchFacts& facts) {
        WireClient client(facts.orders_port);
        client.log_in(client::login("\"<&\n", 1));
        for (const std::string& id : hostile_ids) {
            client.send(client::buy(id).shares(100).at("150.00"));
            client.next_with("P1");
            client.send(client::cancel(id));
            client.next_with("XN");
        }
        client.send(client::buy(hostile_ids[0]).shares(100).market());
        client.next_with("E1");
        client.disconnect();
    });
    EXPECT_EQ(run.judged(), "finding order.id-unique");  // the first of them was given twice
    EXPECT_EQ(run.verdict.counts.requests, 2 * hostile_ids.size() + 1);
    EXPECT_EQ(nlohmann::json::parse(run.report("json"))["status"], "findings");
    for (const char* ending : {"txt", "xml", "html", "json"}) {
        EXPECT_FALSE(has_control_bytes(run.report(ending))) << ending;
    }
    EXPECT_FALSE(has_control_bytes(run.said));
    EXPECT_EQ(run.report("html").find("</script><b>"), std::string::npos);
}

TEST(HostileClient, ThatCancelsWhatItNeverEnteredIsConvictedOfThatAlone) {
    StagedRun run;
    run.acts([](const BenchFacts& facts) {
        WireClient client(facts.orders_port);
        client.log_in(client::login("c01", 1));
        for (const std::string& id : hostile_ids) client.send(client::cancel(id));
        for (std::size_t i = 0; i < hostile_ids.size(); ++i) client.next_with("CR");
        client.disconnect();
    });
    EXPECT_EQ(run.judged(), "finding order.cancel-of-unknown");
}

TEST(HostileClient, ThatTalksNonsenseIsConvictedAndNotTheBench) {
    StagedRun run;
    run.acts([](const BenchFacts& facts) {
        const Bytes length_0 = bytes_of(std::string_view("\0\0\0\0\0\0", 6));
        Bytes longest(2 + 0xffff, 'x');
        longest[0] = longest[1] = 0xff;
        for (const std::uint16_t port : {facts.orders_port, facts.recovery_port}) {
            say_to(port, bytes_of("GET / HTTP/1.1\r\nHost: \x1b[2J\r\n\r\n"));
            say_to(port, length_0);
            say_to(port, longest);
            say_to(port, Bytes{5});
        }
    });
    const std::string found = run.judged();
    EXPECT_EQ(run.verdict.status(), Status::findings) << found;
    EXPECT_EQ(found.find("bench."), std::string::npos) << found;
}

TEST(HostileClient, ThatIsKilledInTheMiddleOfAPacketIsJudgedByWhatItDid) {
    StagedRun run;
    run.acts([](const BenchFacts& facts) {
        WireClient client(facts.orders_port);
        client.log_in(client::login("c01", 1));
        client.send(client::buy("b1").shares(100).at("150.00"));
        client.next_with("P1");
        const Bytes packet = esesm::build_packet(esesm::PacketType::unsequenced_data, client::cancel("b1").bytes());
        client.send_bytes(ByteView(packet).first(20));
        client.reset();
    });
    EXPECT_EQ(run.judged(), "");
    EXPECT_EQ(run.verdict.counts.requests, 1U);
}

TEST(HostileClient, ThatConnectsAgainAndAgainAndSaysNothingIsNoConcern) {
    StagedRun run;
    run.acts([](const BenchFacts& facts) {
        std::vector<int> sockets;
        for (int i = 0; i < 40; ++i) {
            sockets.push_back(client::dial(i % 2 == 0 ? facts.orders_port : facts.recovery_port));
        }
        for (const int socket : sockets) close(socket);
    });
    EXPECT_EQ(run.judged(), "");
}

Bytes forged_heartbeat() {
    const auto header = mach::build({.sequence = 5'000'000,
                                     .length = mach::layout::header_size,
                                     .type = mach::PacketType::heartbeat,
                                     .session = 1});
    return {header.begin(), header.end()};
}

// Of the venue it would promise messages that there never were.
TEST(HostileClient, ThatSendsToTheFeedDoesNotPassForTheVenue) {
    StagedRun run;
    run.acts([](const BenchFacts& facts) {
        const int sender = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        const in_addr interface { htonl(INADDR_LOOPBACK) };
        setsockopt(sender, IPPROTO_IP, IP_MULTICAST_IF, &interface, sizeof interface);
        sockaddr_in name{};
        name.sin_family = AF_INET;
        name.sin_port = htons(facts.feed_port);
        name.sin_addr = client::ipv4_address(facts.group);
        for (const Bytes& forged : {forged_heartbeat(), bytes_of("x")}) {
            sendto(sender, forged.data(), forged.size(), 0, reinterpret_cast<const sockaddr*>(&name), sizeof name);
        }
        close(sender);
    });
    EXPECT_EQ(run.judged(), "inconclusive command.leaves-feed-alone");
}

// Without what is fetched at the end, each dropped datagram would leave lines that nothing can be held against.
TEST(RunOfDroppedDatagrams, IsComparedWithTheTruthToTheLastLine) {
    StagedRun run({"--drop-every", "3", "--reorder-every", "4", "--interval-ms", "2"});
    EXPECT_EQ(run.hears_messages(400).judged(), "");
    EXPECT_GT(run.verdict.counts.gaps_planned, 0U);
    EXPECT_GT(run.verdict.counts.book_lines, 300U);
    EXPECT_EQ(run.verdict.counts.book_lines_not_compared, 0U);
    EXPECT_EQ(run.verdict.counts.recoveries, 0U);  // kavo's own is none of the client's
}

TEST(RequestsForWhatIsMissing, AreOneWhereHolesLieClose) {
    constexpr std::uint64_t all_there_is = UINT64_MAX;
    NumberRanges received;
    EXPECT_EQ(requests_for_missing(received), (std::vector<SequenceRange>{{1, all_there_is}}));
    received.add({1, 10});
    received.add({12, 1010});  // a thousand behind the first hole
    received.add({1012, 5000});
    EXPECT_EQ(requests_for_missing(received), (std::vector<SequenceRange>{{11, 1011}, {5001, all_there_is}}));
}

struct Ended {
    int status = -1;
    std::string out;
};

Ended kavo_test(const std::string& rest) {
    const kavo::test::TemporaryFile out;
    kavo::test::Process process(
        "/bin/sh", {"-c", std::string(KAVO_PATH) + " test --venue " KAVO_ME_PATH + rest + " >" + out.path()});
    const int status = process.wait();
    return {status, out.content()};
}

TEST(CommandThatNeverComesNearTheBench, IsNoRightClient) {
    const kavo::test::TemporaryFolder folder;
    const Ended ended = kavo_test(" --dir " + folder.path("run") + " -- true");
    EXPECT_EQ(ended.status, 4) << ended.out;
    EXPECT_NE(ended.out.find("does it connect to KAVO_ORDERS"), std::string::npos) << ended.out;
}

TEST(CommandThatFails, IsToldOnce) {
    const kavo::test::TemporaryFolder folder;
    const Ended ended = kavo_test(" --json --dir " + folder.path("run") + " -- false");
    EXPECT_EQ(ended.status, 1);
    const auto verdict = nlohmann::json::parse(ended.out);
    const auto& findings = verdict["findings"];
    EXPECT_EQ(std::ranges::count(findings, "command.succeeds", [](const auto& it) { return it["rule"]; }), 1)
        << ended.out;
}

TEST(CommandWithABenchOfItsOwn, IsJudgedByWhatItDidToThisOne) {
    const kavo::test::TemporaryFolder folder;
    std::ofstream(folder.path("command")) << R"(set -e
"$KAVO" test --venue "$VENUE" --dir inner -- sh -c 'echo buy b1 100 150.00 | "$KAVO" trade --user c02' >&2
echo buy b1 100 150.00 | "$KAVO" trade --user c01
)";
    const Ended ended = kavo_test(" --dir " + folder.path("outer") + " -- env KAVO=" KAVO_PATH " VENUE=" KAVO_ME_PATH +
                                  " sh -c 'cd " + folder.path("") + "; . ./command'");
    EXPECT_EQ(ended.status, 0) << ended.out;
    EXPECT_EQ(read_journal(folder.path("outer")).conversations.front().user, "c01");
    EXPECT_EQ(read_journal(folder.path("inner")).conversations.front().user, "c02");
}

}  // namespace
}  // namespace kavo::companion
