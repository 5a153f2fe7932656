#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

#include "client/dial.h"
#include "client/feed_handler.h"
#include "client/recovery_client.h"
#include "client/transcript.h"
#include "feed/dom_messages.h"
#include "feed/mach.h"
#include "kavo/basics/problem.h"
#include "kavo/wire/feed_history.h"
#include "kavo/wire/recording.h"
#include "kavo/wire/recovery_talk.h"
#include "support/process.h"

namespace kavo::companion {
namespace {

using namespace std::chrono_literals;
using client::recovery_text;

constexpr std::uint32_t group = 0xe9361c6f;  // 233.54.28.111
const std::string group_text = "233.54.28.111";

template <typename Message>
Bytes bytes_of(const Message& message) {
    return Bytes(message.begin(), message.end());
}

Bytes add(std::uint64_t id, char side, std::uint32_t cents, std::uint32_t quantity) {
    return bytes_of(dom::build(dom::AddOrder{5, 1, id, side, WirePrice{cents} * 10'000, quantity, "TEST"}));
}

// One datagram with these messages, numbered from `first`.
Bytes datagram(std::uint64_t first, const std::vector<Bytes>& messages) {
    Bytes all;
    for (const Bytes& message : messages) {
        const auto length = static_cast<std::uint16_t>(mach::layout::header_size + message.size());
        const auto header = mach::build({first++, length, mach::PacketType::application_data, 7});
        all.insert(all.end(), header.begin(), header.end());
        all.insert(all.end(), message.begin(), message.end());
    }
    return all;
}

Bytes start_packet() {
    return bytes_of(mach::build({0, mach::layout::header_size, mach::PacketType::start, 7}));
}

const Bytes definition = bytes_of(dom::build(dom::SeriesDefinition{5, 1, "AAPL", 'Q'}));
const Bytes status = bytes_of(dom::build(dom::SeriesTradingStatus{5, 1}));
const Bytes state = bytes_of(dom::build(dom::SystemState{5, 7}));

class Replayed : public testing::Test {
protected:
    void record(const Bytes& bytes) { recording.datagram(t_ns += 1'000'000, group, 25377, bytes); }
    FeedHistory history() {
        EXPECT_TRUE(recording.flush());
        return FeedHistory(file);
    }
    // What the service says to these packets, from the login on, as lines.
    static std::string told(PublishedFeed& feed, const Bytes& said) {
        RecoveryTalk talk;
        PacketCutter answer;
        answer.take(talk.take(said, feed));
        std::string lines;
        while (const auto packet = answer.next()) lines += (lines.empty() ? "" : " | ") + recovery_text(*packet);
        return lines;
    }
    static Bytes login() {
        return esesm::build_packet(esesm::PacketType::login_request, client::receiver_login().payload());
    }
    test::TemporaryFolder folder;
    std::string file = folder.path("feed.pcapng");
    Recording recording{file};
    std::uint64_t t_ns = 1'700'000'000'000'000'000;
};

TEST_F(Replayed, ServiceSendsAgainWhatHasBeenPublishedAndLeavesOutWhatTheRecordingLacks) {
    record(start_packet());
    record(datagram(1, {definition, status}));
    record(datagram(4, {add(10, 'B', 100, 5)}));  // 3 was dropped by the recorder
    record(datagram(5, {add(11, 'S', 110, 5)}));
    const FeedHistory all = history();
    EXPECT_EQ(all.missing(), 1U);
    PublishedFeed feed(all);
    for (std::size_t i = 0; i < 3; ++i) feed.publish(all.datagrams()[i]);
    EXPECT_EQ(told(feed, client::Recovery::of_messages(2, 9).opening()),
              "login accepted, engine 7, highest 4 | 2: status 1 | 4: add 1 #10 B 5@1 TEST | "
              "goodbye 'A' retransmission complete");
    EXPECT_EQ(told(feed, client::Recovery::of_messages(3, 3).opening()),
              "login accepted, engine 7, highest 4 | goodbye 'A' retransmission complete");
}

// Worked out by hand: 10 loses its place to 11 by the modification, 12 has traded 3 of its 8, 13 is better than both
// and so comes first, 14 has gone, and of 99 nobody knows anything.
TEST_F(Replayed, ServiceRefreshesWithTheOrdersInTheirQueues) {
    record(datagram(1, {state, definition, status, add(10, 'B', 100, 5), add(11, 'B', 100, 6)}));
    record(datagram(6, {add(12, 'S', 110, 8), add(13, 'B', 101, 7), add(14, 'S', 109, 1)}));
    record(datagram(
        9, {bytes_of(dom::build(dom::ModifyOrder{5, 1, 10, 1'000'000, 4, false})),
            bytes_of(dom::build(dom::OrderExecuted{5, 1, 12, 1, 1'100'000, 3, true})),
            bytes_of(dom::build(dom::DeleteOrder{5, 1, 14})), bytes_of(dom::build(dom::DeleteOrder{5, 1, 99}))}));
    const FeedHistory all = history();
    PublishedFeed feed(all);
    for (const auto& each : all.datagrams()) feed.publish(each);
    std::string lines = told(feed, client::Recovery::of_state('O').opening());
    const std::size_t time = lines.find("time ");  // the present one
    lines.erase(time, lines.find(" |", time) - time);
    EXPECT_EQ(lines, "login accepted, engine 7, highest 12 | as of 12:  | as of 12: " + client::dom_text(state) +
                         " | as of 12: " + client::dom_text(definition) +
                         " | as of 12: status 1 | as of 12: add 1 #13 B 7@1.01 TEST | as of 12: add 1 #11 B 6@1 TEST | "
                         "as of 12: add 1 #10 B 4@1 TEST | as of 12: add 1 #12 S 5@1.1 TEST | end of 'O' | "
                         "goodbye 'A' refresh complete");
}

TEST_F(Replayed, ServiceTurnsAwayWhatItCannotServe) {
    record(datagram(1, {definition}));
    const FeedHistory all = history();
    PublishedFeed feed(all);
    feed.publish(all.datagrams()[0]);
    const auto request = [](char type, const Bytes& payload) {
        return esesm::build_packet(static_cast<esesm::PacketType>(type), payload);
    };
    const auto behind_login = [](Bytes said) {
        const Bytes in_front = login();
        said.insert(said.begin(), in_front.begin(), in_front.end());
        return said;
    };
    const std::string accepted = "login accepted, engine 7, highest 1 | ";
    EXPECT_EQ(told(feed, request('a', client::retransmission_payload(1, 1))), "goodbye 'B' not logged in");
    EXPECT_EQ(told(feed, request('U', client::refresh_payload('O'))), "goodbye 'B' unknown request");
    EXPECT_EQ(told(feed, request('l', {1, 2})), "goodbye 'B' malformed login");
    EXPECT_EQ(told(feed, behind_login(request('a', {1}))), accepted + "goodbye 'B' malformed retransmission request");
    EXPECT_EQ(told(feed, behind_login(request('U', client::refresh_payload('x')))),
              accepted + "goodbye 'B' unknown refresh type");
    EXPECT_EQ(told(feed, behind_login(request('?', {}))), accepted + "goodbye 'B' unknown packet type");
    client::Login other = client::receiver_login();
    other.application_protocol = "MEO2.7";
    EXPECT_EQ(told(feed, request('l', other.payload())),
              "login rejected 'A', engine 7, highest 1 | goodbye 'A' incompatible application protocol version");
}

// A start packet is the beginning of another day: nothing of the one before is told any more.
TEST_F(Replayed, ServiceForgetsADayWhenTheNextOneBegins) {
    record(datagram(1, {definition, add(10, 'B', 100, 5)}));
    record(start_packet());
    record(datagram(1, {status}));
    const FeedHistory all = history();
    PublishedFeed feed(all);
    for (const auto& each : all.datagrams()) feed.publish(each);
    EXPECT_EQ(told(feed, client::Recovery::of_messages(1, 9).opening()),
              "login accepted, engine 7, highest 1 | 1: status 1 | goodbye 'A' retransmission complete");
}

TEST_F(Replayed, HistoryIsThatOfTheLargestFeedInTheCapture) {
    recording.datagram(t_ns, group, 9999, datagram(1, {status}));
    recording.datagram(t_ns, group, 25377, as_bytes("no feed at all"));
    record(datagram(1, {definition}));
    record(datagram(2, {status}));
    const FeedHistory all = history();
    EXPECT_EQ(all.destination().port, 25377);
    EXPECT_EQ(all.datagrams().size(), 2U);
    EXPECT_EQ(all.other_feeds(), 1U);
}

TEST_F(Replayed, HistoryOfACaptureWithoutAFeedIsRefused) {
    recording.datagram(t_ns, group, 25377, as_bytes("no feed at all"));
    EXPECT_TRUE(recording.flush());
    EXPECT_THROW(FeedHistory{file}, Problem);
}

// The last line of each product that the simulator has written down.
std::map<std::uint32_t, std::string> last_books(const std::string& truth) {
    std::map<std::uint32_t, std::string> last;
    std::istringstream lines(truth);
    for (std::string line; std::getline(lines, line);) {
        const std::size_t secid = line.find("\"secid\":");
        if (secid != std::string::npos) last[static_cast<std::uint32_t>(std::stoul(line.substr(secid + 8)))] = line;
    }
    return last;
}

std::string book_line(const client::ReceivedBook& book, std::uint32_t secid, const std::string& like) {
    return book.truth_line(std::stoull(like.substr(like.find(':') + 1)), secid);
}

// A while of a real simulator's life: recorded beside it, sent again with everything wrong with it that can be, and
// taken by a receiver that ends with the books of the simulator itself.
TEST(Replay, LetsAFeedHandlerBeTestedAgainstARecording) {
    const test::ReservedPort feed, orders, recovery, again, recovery_again;
    const test::TemporaryFolder folder;
    const std::string file = folder.path("feed.pcapng");
    const auto text = [](const test::ReservedPort& port) { return std::to_string(port.number()); };
    std::uint64_t last = 0;
    {
        test::Process recorder(KAVO_PATH, {"record", file, "--port", text(feed)});
        ASSERT_TRUE(recorder.says("Ctrl-C ends it"));
        client::FeedReader reader(group_text, feed.number(), "127.0.0.1");
        test::Process venue(KAVO_ME_PATH, {"--port", text(feed), "--meo-port", text(orders), "--retrans-port",
                                           text(recovery), "--interval-ms", "2", "--symbols", "AAPL:190,MSFT:410",
                                           "--truth-out", folder.path("books.jsonl")});
        while (reader.last_sequence() < 1500) ASSERT_TRUE(reader.next_packet(client::patience));
        venue.signal(SIGTERM);
        ASSERT_EQ(venue.wait(), 0);
        while (reader.next_packet(0ms)) last = reader.last_sequence();
        EXPECT_EQ(recorder.stop(), 0);
        EXPECT_TRUE(recorder.says("messages 1 to " + std::to_string(last)));
    }
    client::FeedReader reader(group_text, again.number(), "127.0.0.1");
    test::Process replay(
        KAVO_PATH, {"replay", file, "--port", text(again), "--speed", "5", "--drop-every", "7", "--duplicate-every",
                    "5", "--reorder-every", "3", "--recovery-port", text(recovery_again), "--linger", "60"});
    ASSERT_TRUE(replay.says("Ctrl-C ends it"));
    client::FeedHandler handler(reader, recovery_again.number());
    ASSERT_TRUE(handler.follow_to(last));
    EXPECT_GT(handler.receiver.counters.duplicates, 0U);
    EXPECT_GT(handler.receiver.counters.late, 0U);
    EXPECT_GT(handler.receiver.counters.recovered, 0U);
    client::ReceivedBook refreshed;
    const client::Snapshot snapshot = client::fetch_snapshot('O', recovery_again.number());
    EXPECT_EQ(snapshot.as_of, last);
    for (const Bytes& message : snapshot.messages) refreshed.apply(message);
    const auto truth = last_books(test::content_of(folder.path("books.jsonl")));
    EXPECT_EQ(truth.size(), 2U);
    for (const auto& [secid, line] : truth) {
        EXPECT_EQ(book_line(handler.receiver.book(), secid, line), line);
        EXPECT_EQ(book_line(refreshed, secid, line), line);
    }
    EXPECT_EQ(replay.stop(), 0);
    EXPECT_TRUE(replay.says("1 refreshes"));
}

TEST(Replay, RefusesInWordsWhatItCannotDo) {
    const test::TemporaryFolder folder;
    const std::string file = folder.path("feed.pcapng");
    Recording(file).datagram(1'700'000'000'000'000'000, group, 25377, datagram(1, {definition}));
    const test::ReservedPort port, taken;
    const int listening = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_port = htons(taken.number());
    name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(bind(listening, reinterpret_cast<const sockaddr*>(&name), sizeof name), 0);
    ASSERT_EQ(listen(listening, 1), 0);
    test::Process clash(KAVO_PATH, {"replay", file, "--port", std::to_string(port.number()), "--recovery-port",
                                    std::to_string(taken.number())});
    EXPECT_EQ(clash.wait(), 3);
    EXPECT_TRUE(clash.says("name another with --recovery-port"));
    close(listening);
    test::Process nothing(KAVO_PATH, {"replay", "/proc/version"});
    EXPECT_EQ(nothing.wait(), 2);
    EXPECT_TRUE(nothing.says("name a pcap or pcapng file"));
}

// A run's folder will do; a recording without a service ends when everything has been sent.
TEST(Replay, SendsTheFeedOfARunAndEnds) {
    const test::TemporaryFolder folder;
    Recording(folder.path("wire.pcapng")).datagram(1'700'000'000'000'000'000, group, 25377, datagram(1, {definition}));
    const test::ReservedPort port;
    client::FeedReader reader(group_text, port.number(), "127.0.0.1");
    test::Process replay(KAVO_PATH, {"replay", std::filesystem::path(folder.path("wire.pcapng")).parent_path(),
                                     "--speed", "max", "--port", std::to_string(port.number())});
    EXPECT_EQ(replay.wait(), 0);
    EXPECT_EQ(reader.waiting(), client::dom_text(definition));
}

// Whoever records the wrong port is told so, and a script sees it.
TEST(Record, SaysWhenNothingHasCome) {
    const test::TemporaryFolder folder;
    const test::ReservedPort port;
    test::Process record(KAVO_PATH, {"record", folder.path("feed.pcapng"), "--seconds", "0.05", "--port",
                                     std::to_string(port.number())});
    EXPECT_EQ(record.wait(), 4);
    EXPECT_TRUE(record.says("nothing has come"));
}

}  // namespace
}  // namespace kavo::companion
