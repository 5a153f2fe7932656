// What is kept for those who have missed something: the history of the feed over real connections, with receivers that
// behave and receivers that do not, and the streams of the users.
#include <sys/socket.h>

#include <deque>

#include "common/socket.h"
#include "feed/dom_messages.h"
#include "support/figures.h"
#include "support/said.h"
#include "support/venue.h"
#include "system/full_venue.h"

namespace kavo::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr std::uint64_t largest = 0xFFFFFFFFFFFFFFFF;
constexpr std::size_t history_limit = 200'000;
constexpr std::size_t stream_limit = 500'000;

// A TCP port on which somebody else listens.
class TakenPort {
public:
    TakenPort() : socket_(open_listener(port_.number(), 1, "a port that is to be taken", standard_error)) {
        EXPECT_GE(socket_, 0);
    }
    ~TakenPort() { close_socket(socket_); }
    TakenPort(const TakenPort&) = delete;
    TakenPort& operator=(const TakenPort&) = delete;

    std::string number() const { return std::to_string(port_.number()); }

private:
    ReservedPort port_;
    int socket_;
};

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
    const std::vector<NumberedMessage> again = fetch_range(first, largest, venue.retransmission_port());
    ASSERT_EQ(again.size(), carried.size());
    for (std::size_t i = 0; i < again.size(); ++i) {
        EXPECT_EQ(again[i].sequence, carried[i].header.sequence);
        EXPECT_EQ(again[i].message, carried[i].message);
    }
}

TEST(RetransmissionService, HoldsTheDayFromItsFirstMessage) {
    FullVenue venue;
    const std::uint64_t last = venue.feed.last_sequence();
    const std::vector<NumberedMessage> day = fetch_range(1, largest, venue.retransmission_port());
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

TEST(RetransmissionService, ServesRangesAsFarAsItCan) {
    FullVenue venue;
    const std::uint64_t last = venue.feed.last_sequence();
    using Numbers = std::vector<std::uint64_t>;
    const auto numbers = [&](std::uint64_t from, std::uint64_t to) {
        Numbers list;
        for (const auto& message : fetch_range(from, to, venue.retransmission_port())) {
            list.push_back(message.sequence);
        }
        return list;
    };
    EXPECT_EQ(numbers(3, 5), (Numbers{3, 4, 5}));
    EXPECT_EQ(numbers(7, 7), Numbers{7});
    EXPECT_EQ(numbers(0, 2), (Numbers{1, 2}));
    EXPECT_EQ(numbers(last - 1, last + 1000), (Numbers{last - 1, last}));
    EXPECT_EQ(numbers(last, largest), Numbers{last});
    EXPECT_EQ(numbers(last + 1, largest), Numbers{});
    EXPECT_EQ(numbers(5, 3), Numbers{});
    EXPECT_EQ(numbers(0, 0), Numbers{});
    EXPECT_EQ(numbers(largest, 0), Numbers{});
    EXPECT_EQ(numbers(1, largest).size(), last);
}

TEST(RetransmissionService, SaysGoodbyeForAReason) {
    FullVenue venue;
    struct Scene {
        bool logged_in;
        char type;
        std::string payload;
        std::string goodbye;
    };
    const std::string range(16, '\0');
    const std::vector<Scene> scenes = {
        {false, 'a', range, "goodbye 'B' not logged in"},
        {false, 'a', "", "goodbye 'B' not logged in"},
        {false, 'U', "RO", "goodbye 'B' unknown request"},
        {false, 'l', std::string(26, ' '), "goodbye 'B' malformed login"},
        {false, 'Z', "", "goodbye 'B' unknown packet type"},
        {true, 'Z', "", "goodbye 'B' unknown packet type"},
        {true, 's', range, "goodbye 'B' unknown packet type"},
        {true, 'a', range.substr(1), "goodbye 'B' malformed retransmission request"},
        {true, 'a', range, "goodbye 'A' retransmission complete"},
        {true, 'U', "", "goodbye 'B' unknown request"},
        {true, 'U', "R", "goodbye 'B' unknown request"},
        {true, 'U', "XO", "goodbye 'B' unknown request"},
        {true, 'U', "RX", "goodbye 'B' unknown refresh type"},
        {true, 'l', std::string(26, ' '), "goodbye 'B' malformed login"},
    };
    for (const Scene& scene : scenes) {
        RecoveryClient receiver(venue.retransmission_port());
        if (scene.logged_in) {
            receiver.log_in();
            receiver.next();
        }
        receiver.wire.send_packet(scene.type, as_bytes(scene.payload));
        EXPECT_EQ(receiver.rest(), scene.goodbye + " | closed") << scene.type << scene.payload;
    }
}

TEST(RetransmissionService, RejectsALoginForAReason) {
    FullVenue venue({"--session", "9"});
    const std::string highest = ", engine 9, highest " + std::to_string(venue.feed.last_sequence());
    struct Scene {
        Login login;
        char status;
        std::string text;
    };
    std::vector<Scene> scenes(3, {receiver_login("eve"), 'I', "incompatible session protocol version"});
    scenes[0].login.session_protocol = "1.1";
    scenes[1].login.application_protocol = "MEO2.7";
    scenes[1].status = 'A';
    scenes[1].text = "incompatible application protocol version";
    scenes[2].login.matching_engine_count = 0;
    scenes[2].status = 'C';
    scenes[2].text = "invalid number of matching engines";
    for (const Scene& scene : scenes) {
        RecoveryClient receiver(venue.retransmission_port());
        receiver.log_in(scene.login);
        EXPECT_EQ(receiver.rest(), std::string("login rejected '") + scene.status + "'" + highest + " | goodbye 'A' " +
                                       scene.text + " | closed");
        EXPECT_TRUE(venue.process.says(std::string("bench: retransmission login eve REJECTED (") + scene.status + ": " +
                                       scene.text + ")\n"));
    }
}

TEST(RetransmissionService, LetsAReceiverThatAskedForASequenceTryAgain) {
    FullVenue venue;
    const std::string highest = ", engine 1, highest " + std::to_string(venue.feed.last_sequence());
    RecoveryClient receiver(venue.retransmission_port());
    Login from_one = receiver_login();
    from_one.requested_sequence = 1;
    receiver.log_in(from_one);
    EXPECT_EQ(receiver.next(), "login rejected 'N'" + highest);
    receiver.log_in(from_one);
    EXPECT_EQ(receiver.next(), "login rejected 'N'" + highest);
    receiver.log_in();
    EXPECT_EQ(receiver.next(), "login accepted" + highest);
    receiver.request(2, 2);
    EXPECT_EQ(receiver.rest(), "2: state session 1 | goodbye 'A' retransmission complete | closed");
    EXPECT_TRUE(
        venue.process.says("bench: retransmission login recv REJECTED (N: invalid start sequence number requested)\n"));
}

TEST(RetransmissionService, ServesOneRequestAConnection) {
    FullVenue venue;
    LoggedInReceiver receiver(venue.retransmission_port());
    Bytes two = esesm::build_packet(esesm::PacketType::retransmission_request, retransmission_payload(2, 2));
    two.insert(two.end(), two.begin(), two.end());
    receiver.wire.send_bytes(two);
    EXPECT_EQ(receiver.rest(), "2: state session 1 | goodbye 'A' retransmission complete | closed");
}

TEST(RetransmissionService, IgnoresHeartbeats) {
    FullVenue venue;
    RecoveryClient receiver(venue.retransmission_port());
    receiver.wire.send_packet('1');
    receiver.wire.send_packet('T', as_bytes("payload"));
    receiver.log_in();
    receiver.wire.send_packet('T');
    receiver.wire.send_packet('1');
    receiver.request(2, 2);
    EXPECT_TRUE(receiver.next().starts_with("login accepted"));
    EXPECT_EQ(receiver.rest(), "2: state session 1 | goodbye 'A' retransmission complete | closed");
}

TEST(RetransmissionService, ClosesTheConnectionOfAReceiverThatLogsOutWithoutAWord) {
    FullVenue venue;
    RecoveryClient before(venue.retransmission_port());
    before.wire.send_packet('X');
    EXPECT_EQ(before.rest(), "closed");
    LoggedInReceiver after(venue.retransmission_port());
    after.wire.send_packet('X');
    EXPECT_EQ(after.rest(), "closed");
}

TEST(RetransmissionService, ReadsARequestThatComesByteByByte) {
    FullVenue venue;
    LoggedInReceiver receiver(venue.retransmission_port());
    for (const std::uint8_t byte :
         esesm::build_packet(esesm::PacketType::retransmission_request, retransmission_payload(2, 2))) {
        receiver.wire.send_bytes(Bytes{byte});
    }
    EXPECT_EQ(receiver.rest(), "2: state session 1 | goodbye 'A' retransmission complete | closed");
}

TEST(RetransmissionService, ThrowsAwayWhatComesWithALengthOfZero) {
    FullVenue venue;
    LoggedInReceiver receiver(venue.retransmission_port());
    Bytes unreadable = {0, 0};
    const Bytes request = esesm::build_packet(esesm::PacketType::retransmission_request, retransmission_payload(3, 3));
    unreadable.insert(unreadable.end(), request.begin(), request.end());
    receiver.wire.send_bytes(unreadable);
    fetch_range(1, 1, venue.retransmission_port());  // once somebody later is served, this has been read
    receiver.request(2, 2);
    EXPECT_EQ(receiver.rest(), "2: state session 1 | goodbye 'A' retransmission complete | closed");
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
        leaving.request(1, largest);
        LoggedInReceiver breaking(venue.retransmission_port());
        breaking.request(1, largest);
        breaking.wire.reset();
    }
    EXPECT_EQ(fetch_range(1, largest, venue.retransmission_port()).size(), venue.feed.last_sequence());
}

TEST(RetransmissionService, IsSwitchedOffByPortZero) {
    LiveVenue venue({"--retrans-port", "0"});
    venue.stop();
    EXPECT_NE(venue.process.said().find(" (iface 127.0.0.1, session 1, retransmission ESesM/TCP :0) "),
              std::string::npos);
    EXPECT_EQ(venue.process.said().find("retransmission listen"), std::string::npos);
}

TEST(RetransmissionService, OnAPortThatIsTakenIsReportedAndDoneWithout) {
    const TakenPort taken;
    LiveVenue venue({"--retrans-port", taken.number()});
    EXPECT_TRUE(venue.process.says("kavo_me: retransmission listen: Address already in use\n"));
    User alice(venue, "alice");
    alice.send(buy("b1").at("180.00"));
    EXPECT_EQ(alice.next(), "3: NR b1 accepted #1040 100@180");
    EXPECT_TRUE(venue.feed.next_message("add 1 #1040").starts_with("add 1 #1040"));
    EXPECT_TRUE(venue.process.says("retransmission ESesM/TCP :" + taken.number() + ")"));
}

TEST(FeedHistory, HoldsTwoHundredThousandMessagesAndNoMore) {
    UnreadVenue venue({"--symbols", many_symbols(500), "--interval-ms", "0"});
    while (venue.control.next_sequence() <= history_limit + 1) continue;
    ASSERT_EQ(venue.control.ask("pause"), "ok pause\n");
    const std::uint64_t next = venue.control.next_sequence();
    const std::uint64_t oldest = next - history_limit;
    const std::uint16_t port = venue.retransmission_port();

    const std::vector<NumberedMessage> history = fetch_range(1, largest, port);
    ASSERT_EQ(history.size(), history_limit);
    std::uint64_t expected = oldest;
    std::uint64_t newest_order = 0;
    std::uint32_t second = 0;
    for (const NumberedMessage& message : history) {
        ASSERT_EQ(message.sequence, expected++);
        // Orders are numbered as they come and time does not go back, so the messages are in order too, and not only
        // their numbers.
        if (dom::AddOrder add; read(message.message, add)) {
            ASSERT_GT(add.order_id, newest_order);
            newest_order = add.order_id;
        } else if (dom::SystemTime time; read(message.message, time)) {
            ASSERT_GT(time.seconds, second);
            second = time.seconds;
        } else {
            ASSERT_FALSE(dom_text(message.message).starts_with("unknown")) << message.sequence;
        }
    }
    EXPECT_EQ(expected, next);
    EXPECT_GT(newest_order, 0u);

    EXPECT_TRUE(fetch_range(1, oldest - 1, port).empty());
    const std::vector<NumberedMessage> at_the_edge = fetch_range(oldest - 1, oldest, port);
    ASSERT_EQ(at_the_edge.size(), 1u);
    EXPECT_EQ(at_the_edge[0].sequence, oldest);
    EXPECT_EQ(at_the_edge[0].message, history[0].message);
    const std::vector<NumberedMessage> middle = fetch_range(oldest + 1000, oldest + 1999, port);
    ASSERT_EQ(middle.size(), 1000u);
    for (std::size_t i = 0; i < middle.size(); ++i) {
        ASSERT_EQ(middle[i].sequence, oldest + 1000 + i);
        ASSERT_EQ(middle[i].message, history[1000 + i].message);
    }
    report("resident bytes of the venue with a full history", resident_bytes(venue.process.pid()));
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
    silent.request(1, largest);

    LoggedInReceiver other(venue.retransmission_port());
    other.request(largest, largest);
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
         {esesm::build_packet(esesm::PacketType::retransmission_request, retransmission_payload(1, largest)),
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

// How many messages a replay brings, from its first packet on.
struct Replay {
    std::uint64_t first = 0;
    std::uint64_t last = 0;
    std::size_t count = 0;
};
Replay replay_of(const MemoryPeer& connection) {
    namespace at = esesm::layout::sequenced_packet;
    Replay replay;
    for (const Bytes& packet : connection.packets) {
        if (get(packet, esesm::layout::packet::type) != 's') continue;
        const std::uint64_t sequence = get(packet, at::sequence);
        if (replay.count++ == 0) {
            replay.first = sequence;
        } else {
            EXPECT_EQ(sequence, replay.last + 1);
        }
        replay.last = sequence;
    }
    return replay;
}

TEST(UserStream, HoldsHalfAMillionMessagesAndWhatComesWhileTheUserIsAway) {
    Venue venue;
    const ClientHandle alice = venue.log_in("alice");  // messages 1 and 2
    for (const std::string id : {"b1", "b2", "b3"}) venue.request(alice, buy(id).shares(100).at("189.99").bytes());
    MessageLog& stored = venue.order_entry.client(alice).stream->stored;
    ASSERT_EQ(stored.next(), 12u);

    const Bytes message(85);  // about as long as they are
    const std::size_t before = resident_bytes("self");
    const std::size_t already = stored.size();
    while (stored.size() < stream_limit) {
        const std::uint64_t number = stored.next();
        esesm::write_sequenced(stored.append(esesm::sequenced_size(message.size())), number, message);
    }
    report("resident bytes for each stored packet of 97 bytes",
           (resident_bytes("self") - before) / (stored.size() - already));
    EXPECT_EQ(stored.oldest(), 1u);

    venue.request(alice, cancel("unknown").bytes());  // one more, and the oldest goes
    EXPECT_EQ(stored.size(), stream_limit);
    EXPECT_EQ(stored.oldest(), 2u);

    said_during([&] {
        venue.send(alice, 'X');
        const ClientHandle bob = venue.log_in("bob");
        for (const std::string id : {"s1", "s2", "s3"}) {
            venue.request(bob, sell(id).shares(100).at("189.99").bytes());
        }
        venue.pass();
    });
    EXPECT_EQ(stored.size(), stream_limit + 3);  // three executions wait, and nothing was trimmed for them
    EXPECT_EQ(stored.oldest(), 2u);

    ClientHandle again = 0;
    EXPECT_EQ(said_during([&] { again = venue.log_in("alice", 1); }),
              "bench: login alice requested seq 1 (stream next 500005): accepted at 2, replaying 500003 message(s)\n");
    const Replay replay = replay_of(venue.connection(again));
    EXPECT_EQ(replay.count, stream_limit + 3);
    EXPECT_EQ(replay.first, 2u);
    EXPECT_EQ(replay.last, 500'004u);

    said_during([&] { venue.request(again, cancel("unknown").bytes()); });
    EXPECT_EQ(stored.size(), stream_limit);  // the next live message trims what had been let stand
    EXPECT_EQ(stored.oldest(), 6u);
}

}  // namespace
}  // namespace kavo::test
