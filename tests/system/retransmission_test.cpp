// The history of the feed over real connections, with receivers that behave and receivers that do not.
#include <sys/socket.h>

#include <deque>

#include "support/figures.h"
#include "system/full_venue.h"

namespace kavo::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr std::size_t history_limit = 200'000;

// A receiver that has logged in.
class LoggedInReceiver : public RecoveryClient {
public:
    explicit LoggedInReceiver(std::uint16_t port) : RecoveryClient(port) {
        log_in();
        const std::string answer = next();
        EXPECT_TRUE(answer.starts_with("login accepted, engine 1, highest ")) << answer;
    }
};

TEST(RetransmissionService, SendsAgainTheVeryBytesThatTheFeedCarried) {
    FullVenue venue;
    User alice(venue, "alice");
    for (const std::string id : {"b1", "b2", "b3"}) {
        alice.send(buy(id).shares(100).at("180.00"));
        alice.next(3);
    }
    alice.send(cancel("b2"));
    alice.next(2);
    std::vector<FeedReader::Packet> carried;
    const std::uint64_t first = venue.feed.last_sequence() + 1;
    for (std::size_t orders = 0; orders < 4;) {
        carried.push_back(*venue.feed.next_packet(std::chrono::duration_cast<milliseconds>(patience)));
        if (!dom_text(carried.back().message).starts_with("time ")) ++orders;
    }
    const std::vector<NumberedMessage> again = fetch_range(first, largest_number, venue.retransmission_port());
    ASSERT_EQ(again.size(), carried.size());
    for (std::size_t i = 0; i < again.size(); ++i) {
        EXPECT_EQ(again[i].sequence, carried[i].header.sequence);
        EXPECT_EQ(again[i].message, carried[i].message);
    }
}

TEST(RetransmissionService, HoldsTheDayFromItsFirstMessage) {
    FullVenue venue;
    const std::uint64_t last = venue.feed.last_sequence();
    const std::vector<NumberedMessage> day = fetch_range(1, largest_number, venue.retransmission_port());
    ASSERT_EQ(day.size(), last);
    std::vector<std::string> lines;
    for (std::size_t i = 0; i < day.size(); ++i) {
        EXPECT_EQ(day[i].sequence, i + 1);
        const std::string line = dom_text(day[i].message);
        if (!line.starts_with("time ")) lines.push_back(line);
    }
    EXPECT_TRUE(dom_text(day[0].message).starts_with("time "));
    ASSERT_EQ(lines.size(), 44u);
    EXPECT_EQ(joined({lines.begin(), lines.begin() + 4}), "state session 1 | definition 1 AAPL Q | open 1 | status 1");
    EXPECT_EQ(std::vector<std::string>(lines.begin() + 4, lines.end()), venue.quotes());
}

TEST(RetransmissionService, ServesManyReceiversSideBySide) {
    FullVenue venue;
    std::deque<LoggedInReceiver> receivers;
    for (int i = 0; i < 20; ++i) receivers.emplace_back(venue.retransmission_port());
    for (std::uint64_t i = 0; i < 20; ++i) receivers[i].request(i + 1, i + 2);
    for (std::uint64_t i = 20; i-- > 0;) {
        const std::string lines = receivers[i].rest();
        EXPECT_TRUE(lines.starts_with(std::to_string(i + 1) + ": ")) << lines;
        EXPECT_NE(lines.find(" | " + std::to_string(i + 2) + ": "), std::string::npos) << lines;
        EXPECT_TRUE(lines.ends_with(" | goodbye 'A' retransmission complete | closed")) << lines;
    }
}

TEST(RetransmissionService, GoesOnWhenReceiversGoAway) {
    FullVenue venue;
    for (int i = 0; i < 5; ++i) {
        RecoveryClient silent(venue.retransmission_port());
        LoggedInReceiver leaving(venue.retransmission_port());
        leaving.request(1, largest_number);
        LoggedInReceiver breaking(venue.retransmission_port());
        breaking.request(1, largest_number);
        breaking.wire.reset();
    }
    EXPECT_EQ(fetch_range(1, largest_number, venue.retransmission_port()).size(), venue.feed.last_sequence());
}

TEST(RetransmissionService, IsSwitchedOffByPortZero) {
    LiveVenue venue({"--retrans-port", "0"});
    venue.stop();
    EXPECT_NE(venue.process.said().find(" (iface 127.0.0.1, session 1, retransmission ESesM/TCP :0) "),
              std::string::npos);
    EXPECT_EQ(venue.process.said().find("retransmission listen"), std::string::npos);
}

TEST(RetransmissionService, OnAPortThatIsTakenIsReportedAndDoneWithout) {
    const TakenPort taken(SOCK_STREAM);
    LiveVenue venue({"--retrans-port", taken.number()});
    EXPECT_TRUE(venue.process.says("kavo_me: retransmission listen: Address already in use\n"));
    User alice(venue, "alice");
    alice.send(buy("b1").at("180.00"));
    EXPECT_EQ(alice.next(), "3: NR b1 accepted #1040 100@180");
    EXPECT_TRUE(venue.feed.next_message("add 1 #1040").starts_with("add 1 #1040"));
    EXPECT_TRUE(venue.process.says("retransmission ESesM/TCP :" + taken.number() + ")"));
}

// A history and a state of about nine million bytes each: more than the socket buffers take at once.
struct BigVenue : testing::Test {
    static constexpr int products = 5000;
    UnreadVenue venue{{"--symbols", many_symbols(products)}};

    static void limit_receive_buffer(const RecoveryClient& receiver, int bytes) {
        setsockopt(receiver.wire.socket(), SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
    }
};

TEST_F(BigVenue, ServesTheOthersAtOnceAndCutsOffAReceiverThatDoesNotRead) {
    const std::size_t without = open_descriptors(venue.process.pid());
    LoggedInReceiver silent(venue.retransmission_port());
    limit_receive_buffer(silent, 64 * 1024);
    const auto start = steady_clock::now();
    silent.request(1, largest_number);

    LoggedInReceiver other(venue.retransmission_port());
    other.request(largest_number, largest_number);
    EXPECT_EQ(other.rest(), "goodbye 'A' retransmission complete | closed");
    EXPECT_GT(open_descriptors(venue.process.pid()), without);  // the silent one is still waited for

    while (open_descriptors(venue.process.pid()) > without && steady_clock::now() - start < patience) {
        std::this_thread::yield();
    }
    EXPECT_GE(steady_clock::now() - start, milliseconds(1900));  // two seconds in which nothing was taken
    std::uint64_t received = 0;
    while (const auto packet = silent.wire.next_packet()) {
        ASSERT_TRUE(recovery_text(*packet).find("goodbye") == std::string::npos);
        ++received;
    }
    EXPECT_TRUE(silent.wire.closed());
    EXPECT_LT(received, history_limit);
    const std::uint64_t last = venue.control.next_sequence() - 1;
    ASSERT_GT(last, history_limit);
    EXPECT_EQ(fetch_range(last, last, venue.retransmission_port()).size(), 1u);
}

TEST_F(BigVenue, SendsEverythingToAReceiverThatIsSlowerThanItself) {
    RecoveryClient slow(venue.retransmission_port());
    limit_receive_buffer(slow, 64 * 1024);
    slow.log_in();
    slow.request_refresh('O');
    std::size_t messages = 0;
    std::string last;
    while (const auto packet = slow.wire.next_packet()) {
        ++messages;
        if (packet->size() < 46) last = recovery_text(*packet);  // what is shorter than an order
    }
    // The login, the time and the state; a definition, a status and forty orders for each symbol; the end and the
    // goodbye.
    EXPECT_EQ(messages, 3u + products * 42u + 2u);
    EXPECT_EQ(last, "goodbye 'A' refresh complete");
    EXPECT_TRUE(slow.wire.closed());
}

TEST_F(BigVenue, KeepsTheReplyOfAReceiverThatGoesOnTalking) {
    RecoveryClient talker(venue.retransmission_port());
    limit_receive_buffer(talker, 64 * 1024);
    Bytes words = esesm::build_packet(esesm::PacketType::login_request, receiver_login().payload());
    for (const Bytes& packet :
         {esesm::build_packet(esesm::PacketType::retransmission_request, retransmission_payload(1, largest_number)),
          esesm::build_packet(esesm::PacketType::client_heartbeat, {}),
          esesm::build_packet(esesm::PacketType::logout_request, {}), Bytes(1'000, '?')}) {
        words.insert(words.end(), packet.begin(), packet.end());
    }
    talker.wire.send_bytes(words);
    std::uint64_t messages = 0;
    std::string last;
    while (const auto packet = talker.wire.next_packet()) {
        if (++messages % 1'000 == 0) talker.wire.send_packet('1');
        if (packet->size() < 30) last = recovery_text(*packet);
    }
    EXPECT_EQ(messages, 1 + history_limit + 1);  // the login response comes first, the goodbye last
    EXPECT_EQ(last, "goodbye 'A' retransmission complete");
    EXPECT_TRUE(talker.wire.closed());
}

}  // namespace
}  // namespace kavo::test
