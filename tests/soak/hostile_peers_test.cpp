// Peers at their worst, many at a time, while one client goes on trading: she is answered in time and misses nothing,
// and each of them gets what it asked for. What a single such peer meets is told in tests/system: bad_input_test.cpp
// (bytes one by one, a client that does not read), timers_test.cpp (silence), retransmission_test.cpp (a receiver that
// does not read). Many that are merely slow, or too many, are the matter of slow_receivers_test.cpp and
// floods_test.cpp.
#include <poll.h>
#include <sys/socket.h>

#include <atomic>
#include <deque>

#include "soak/stage.h"
#include "support/scene.h"

namespace kavo::test {
namespace {

using esesm::PacketType;
using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr milliseconds login_limit{30'000};
constexpr milliseconds moment{20};  // for a connection to take what it is given

// Half of the silence after which a client gives its venue up.
const auto longest_answer = sanitized ? milliseconds(5000) : milliseconds(1500);

void expect_answers_in_time(const Trader& trader, std::string_view what) {
    trader.answers().report(what);
    EXPECT_LT(trader.answers().longest(), longest_answer);
    EXPECT_GT(trader.answers().count(), sanitized ? 1u : 50u);
}

TEST(HostilePeers, AHundredThatSendByteByByteAreServedAndHoldUpNobody) {
    constexpr std::size_t peers = 100;
    Stage stage;
    Trader trader(stage.port());
    std::deque<WireClient> dribblers;
    std::vector<Bytes> sent;
    for (std::size_t i = 0; i < peers; ++i) {
        const std::string id = std::to_string(i);
        dribblers.emplace_back(stage.port()).keep_silent();
        Bytes& bytes = sent.emplace_back();
        append(bytes, esesm::build_packet(PacketType::login_request, login("p" + id).payload()));
        append(bytes, framed(buy("d" + id).at("2.00").bytes()));
        append(bytes, framed(cancel("d" + id).bytes()));
        if (i % 8 == 7) trader.trade();  // or the queue of the venue's listener is full
    }
    const auto before = processor_time(stage.pid());
    const std::size_t longest = sent.back().size();
    for (std::size_t at = 0; at < longest; ++at) {
        for (std::size_t i = 0; i < peers; ++i) {
            if (at < sent[i].size()) dribblers[i].send_bytes(ByteView(sent[i]).subspan(at, 1));
        }
        trader.trade();
    }
    for (std::size_t i = 0; i < peers; ++i) {
        const std::string id = "d" + std::to_string(i);
        EXPECT_EQ(dribblers[i].next(3),
                  "login accepted, engine 1, highest 0 | 1: SN MEO2.7 session 1 | 2: SU 1 AAPL Q");
        EXPECT_TRUE(dribblers[i].next().starts_with("3: NR " + id + " accepted "));
        EXPECT_TRUE(dribblers[i].next(2).starts_with("4: O1 " + id));
        EXPECT_TRUE(dribblers[i].next().starts_with("6: CR x" + id + " of " + id + " accepted "));
        EXPECT_TRUE(dribblers[i].next().starts_with("7: XN " + id));
    }
    expect_answers_in_time(trader, "an answer beside a hundred clients that send byte by byte");
    report("processor time of the venue for each byte",
           in_ms(processor_time(stage.pid()) - before) * 1000 / static_cast<double>(peers * longest), "us");
    stage.stop();
}

// One who never gets to the end of what it has to say is a stranger like the silent ones.
TEST(HostilePeers, StrangersAreSentAwayAfterThirtySecondsOnBothServices) {
    constexpr std::size_t each = 100;
    allow_descriptors(3 * each + 50);
    Stage stage;
    Trader trader(stage.port());
    std::deque<WireClient> strangers;
    std::vector<steady_clock::time_point> since;
    const auto before = processor_time(stage.pid());
    const auto start = steady_clock::now();
    for (std::size_t i = 0; i < 3 * each; ++i) {
        since.push_back(steady_clock::now());
        strangers.emplace_back(i < 2 * each ? stage.port() : stage.retransmission_port()).keep_silent();
        if (i % 8 == 7) trader.trade();  // or the queue of the venue's listener is full
    }
    Durations lateness;
    const Bytes one_byte = {1};  // a packet of 257 bytes, which never becomes whole
    auto dribbled = start;
    std::size_t waiting = strangers.size();
    while (waiting > 0 && steady_clock::now() < start + login_limit + patience) {
        trader.trade();
        if (steady_clock::now() - dribbled > seconds(1)) {
            dribbled = steady_clock::now();
            for (std::size_t i = 0; i < each; ++i) strangers[i].send_bytes(one_byte);
        }
        for (std::size_t i = 0; i < strangers.size(); ++i) {
            if (strangers[i].closed()) continue;
            const auto packet = strangers[i].next_packet_of_any_kind(milliseconds(0));
            if (!packet && !strangers[i].closed()) continue;
            if (packet) {
                EXPECT_EQ(packet_text(*packet), "goodbye 'L' timed out waiting for login");
                lateness.add(steady_clock::now() - since[i] - login_limit);
            }
            strangers[i].disconnect();
            --waiting;
        }
        poll(nullptr, 0, 10);
    }
    EXPECT_EQ(lateness.count(), strangers.size());
    EXPECT_GE(lateness.percentile(0), milliseconds(-1));  // a clock of whole milliseconds may hide one
    lateness.report("a goodbye to a stranger comes late by");
    expect_answers_in_time(trader, "an answer beside three hundred strangers");
    report("processor time of the venue in 30 s", in_ms(processor_time(stage.pid()) - before), "ms");
    stage.stop();
}

// A peer without power is told by the system once the venue sends it its heartbeat; one that only stops talking has
// nothing more to say, and is closed at once; one that keeps silent has three seconds.
TEST(HostilePeers, HalfOpenAndSilentClientsAreDroppedWithinThreeSeconds) {
    constexpr std::size_t each = 50;
    Stage stage;
    Trader trader(stage.port());
    std::deque<WireClient> peers;
    for (std::size_t i = 0; i < 3 * each; ++i) {
        WireClient& peer = peers.emplace_back(stage.port());
        peer.keep_silent();
        peer.log_in(login("p" + std::to_string(i)));
        peer.next(3);
        if (i % 8 == 7) trader.trade();  // or the queue of the venue's listener is full
    }
    EXPECT_EQ(stage.control.ask("stats").find("session=down"), std::string::npos);
    for (std::size_t i = 0; i < 3 * each; i += 3) {
        if (!vanish(peers[i])) GTEST_SKIP() << "without CAP_NET_ADMIN no connection can be lost without a word";
        shutdown(peers[i + 1].socket(), SHUT_WR);
    }
    const std::size_t all = 5 + 3 * each + 1;
    const std::size_t before = open_descriptors(stage.pid());
    EXPECT_GE(before, all - each);
    Durations half_closed;
    Durations silent;
    const auto start = steady_clock::now();
    std::size_t open = 2 * each;
    while (open > 0 && steady_clock::now() < start + patience) {
        trader.trade();
        for (std::size_t i = 0; i < 3 * each; ++i) {
            if (i % 3 == 0 || peers[i].closed()) continue;
            while (peers[i].next_packet_of_any_kind(milliseconds(0))) continue;
            if (!peers[i].closed()) continue;
            --open;
            (i % 3 == 1 ? half_closed : silent).add(steady_clock::now() - start);
        }
        poll(nullptr, 0, 5);
    }
    EXPECT_EQ(open, 0u);
    EXPECT_LT(open_descriptors(stage.pid()), before - 2 * each + 5);  // those without power have gone as well
    half_closed.report("a client that has closed its side is closed after");
    silent.report("a client that keeps silent is closed after, less its time since the login");
    expect_answers_in_time(trader, "an answer beside them");
    // Each of them can log in again.
    for (std::size_t i = 0; i < 3 * each; i += each / 2) {
        WireClient again(stage.port());
        again.log_in(login("p" + std::to_string(i)));
        EXPECT_EQ(again.next(), "login accepted, engine 1, highest 2");
    }
    stage.stop();
}

// Their answers find no room, but keep their places in the streams.
TEST(HostilePeers, TwentyClientsThatNeverReadLoseNothingButTime) {
    constexpr std::size_t peers = 20;
    constexpr std::size_t rounds = 60;
    constexpr std::size_t batch = 200;
    Stage stage;
    Trader trader(stage.port());
    std::deque<Peer> blind;
    const Bytes requests = repeated(framed(buy("a1").shares(0).at("100.00").bytes()), batch);
    for (std::size_t i = 0; i < peers; ++i) {
        blind.emplace_back(stage.port(), Peer::little)
            .pour_all(esesm::build_packet(PacketType::login_request, login("p" + std::to_string(i)).payload()));
    }
    const std::size_t memory = resident_bytes(stage.pid());
    for (std::size_t round = 0; round < rounds; ++round) {
        for (Peer& peer : blind) peer.pour_all(requests);
        trader.trade();
    }
    // What a connection that breaks has not handed over yet is lost, so each of them waits until it has been heard.
    for (std::size_t i = 0; i < peers; ++i) {
        blind[i].pour_all(framed(buy("last" + std::to_string(i)).at("2.00").bytes()));
    }
    const std::uint64_t accepts = trader.answers().count() / 2 + peers;
    const auto deadline = steady_clock::now() + patience;
    while (number_behind(" accepts=", stage.control.ask("stats")) < accepts && steady_clock::now() < deadline) continue;
    expect_answers_in_time(trader, "an answer beside twenty clients that never read");
    const std::size_t messages = peers * rounds * batch;
    report("resident bytes of the venue for each message they did not read",
           (resident_bytes(stage.pid()) - memory) / messages);
    blind.clear();
    for (std::size_t i = 0; i < peers; ++i) {
        trader.trade();
        WireClient again(stage.port());
        again.log_in(login("p" + std::to_string(i), 1));
        EXPECT_EQ(again.next(3), "login accepted, engine 1, highest " + std::to_string(2 + rounds * batch + 3) +
                                     " | 1: SN MEO2.7 session 1 | 2: SU 1 AAPL Q");
        for (std::size_t n = 0; n < rounds * batch + 3; ++n) {
            ASSERT_TRUE(again.next_packet());
            ASSERT_EQ(again.last_sequence(), 3 + n);
        }
        EXPECT_EQ(again.next(), "replay complete");
    }
    stage.stop();
}

TEST(HostilePeers, ClientsThatFloodTheVenueDoNotKeepTheOthersWaiting) {
    const std::map<std::string, Bytes> floods = {
        {"heartbeats", esesm::build_packet(PacketType::client_heartbeat, {})},
        {"requests", framed(buy("a1").shares(0).at("100.00").bytes())},
        {"a packet of 64 KiB over and over", esesm::build_packet(PacketType::client_heartbeat, Bytes(65'534))},
    };
    for (const auto& [what, packet] : floods) {
        Stage stage;
        Trader trader(stage.port());
        Bytes many;
        while (many.size() < 262'144) append(many, packet);
        Peer peer(stage.port(), Peer::little);
        peer.pour_all(esesm::build_packet(PacketType::login_request, login("flood").payload()));
        std::size_t poured = 0;
        const std::size_t memory = resident_bytes(stage.pid());
        const auto start = steady_clock::now();
        {
            const Meanwhile flood([&] { poured += peer.pour(ByteView(many).subspan(poured % many.size()), moment); });
            trader.trade_for(seconds(4));
        }
        const double time = std::chrono::duration<double>(steady_clock::now() - start).count();
        report("flood of " + what, static_cast<double>(poured) / 1e6 / time, "MB/s");
        expect_answers_in_time(trader, "an answer during a flood of " + what);
        report("resident bytes more", resident_bytes(stage.pid()) - memory);
        stage.stop();
    }
}

TEST(HostilePeers, AFloodOfCommandsDoesNotKeepTheClientsWaiting) {
    Stage stage;
    Trader trader(stage.port());
    std::atomic<std::size_t> commands{0};
    {
        const Meanwhile flood([&] {
            stage.control.send("drop_every 0");
            ++commands;
        });
        trader.trade_for(seconds(4));
    }
    report("commands", commands);
    expect_answers_in_time(trader, "an answer during a flood of commands");
    stage.stop();
}

// Two of them come and break off as fast as they can.
TEST(HostilePeers, AFloodOfConnectionsDoesNotKeepTheClientsWaiting) {
    Stage stage({"--quiet"});
    Trader trader(stage.port());
    std::atomic<std::size_t> connections{0};
    {
        const auto come_and_go = [&] {
            Peer(stage.port()).break_off();
            ++connections;
        };
        const Meanwhile one(come_and_go);
        const Meanwhile another(come_and_go);
        trader.trade_for(seconds(4));
    }
    report("connections", connections);
    expect_answers_in_time(trader, "an answer during a flood of connections");
    stage.stop();
}

}  // namespace
}  // namespace kavo::test
