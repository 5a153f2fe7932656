#include "kavo/wire/relay.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <optional>

#include "client/dial.h"
#include "client/requests.h"
#include "kavo/wire/capture.h"
#include "session/esesm.h"
#include "support/process.h"

namespace kavo::companion {
namespace {

using namespace std::chrono_literals;

int listener_on_some_port() {
    const int listening = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(bind(listening, reinterpret_cast<const sockaddr*>(&name), sizeof name), 0);
    EXPECT_EQ(listen(listening, 64), 0);
    return listening;
}

std::uint16_t port_of(int listening) {
    sockaddr_in name{};
    socklen_t size = sizeof name;
    getsockname(listening, reinterpret_cast<sockaddr*>(&name), &size);
    return ntohs(name.sin_port);
}

// One end of a connection in the test's hand.
class Peer {
public:
    explicit Peer(int socket) : socket_(socket) {}
    ~Peer() { close(); }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    void say(std::string_view text) const {
        ASSERT_EQ(send(socket_, text.data(), text.size(), MSG_NOSIGNAL), static_cast<ssize_t>(text.size()));
    }
    void say(const Bytes& bytes) const { say(as_text(bytes)); }
    void finish() const { shutdown(socket_, SHUT_WR); }
    void close() {
        if (socket_ != -1) ::close(std::exchange(socket_, -1));
    }
    void reset() {
        const linger at_once{1, 0};
        setsockopt(socket_, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
        close();
    }

    // Reads what is there; the end shows in `ended`.
    void look() {
        char room[65'536];
        ssize_t count = 0;
        while (ended.empty() && (count = recv(socket_, room, sizeof room, MSG_DONTWAIT)) != -1) {
            if (count == 0) ended = "finish";
            heard.append(room, static_cast<std::size_t>(count));
        }
        if (count == -1 && errno != EAGAIN) ended = errno == ECONNRESET ? "reset" : std::strerror(errno);
    }

    std::string heard;
    std::string ended;

private:
    int socket_;
};

// A relay between a client and a venue that are both the test's.
struct Stage {
    // The clients' own calls block, so they are made while the loop stands still: the system takes them for the relay.
    Stage() : venue_listener(listener_on_some_port()) {
        const int listening = listener_on_some_port();
        relay_port = port_of(listening);
        relay.emplace(loop, recording, log, listening, port_of(venue_listener));
    }
    ~Stage() { close(venue_listener); }

    void connect() {
        client.emplace(client::dial(relay_port));
        loop.turn_until([&] { return relay->open_connections() > 0; }, 20s);
        venue.emplace(accept4(venue_listener, nullptr, nullptr, SOCK_CLOEXEC));
    }
    void log_in(std::string_view user = "alice") {
        connect();
        client->say(esesm::build_packet(esesm::PacketType::login_request, client::login(user).payload()));
        EXPECT_TRUE(until([&] { return !venue->heard.empty(); }));
        venue->heard.clear();
    }
    bool until(const std::function<bool()>& done) {
        return loop.turn_until(
            [&] {
                if (client) client->look();
                if (venue) venue->look();
                return done();
            },
            20s);
    }
    // Turns the loop until it has nothing left to do at once.
    void settle() {
        for (int turn = 0; turn < 20; ++turn) loop.turn(0ms);
        client->look();
        venue->look();
    }
    // What the relay has noted that it did: "up held 5 | up released 5".
    std::string did() const {
        std::string told;
        std::ifstream in(folder.path("kavo.jsonl"));
        for (std::string line; std::getline(in, line);) {
            const auto note = nlohmann::json::parse(line);
            EXPECT_EQ(note["ev"], "relay_did");
            told += (told.empty() ? "" : " | ") + note["direction"].get<std::string>() + " " +
                    note["what"].get<std::string>() + " " + std::to_string(note["bytes"].get<int>());
        }
        return told;
    }

    kavo::test::TemporaryFolder folder;
    Loop loop;
    Recording recording{folder.path("wire.pcapng")};
    RunLog log{folder.path("kavo.jsonl")};
    int venue_listener;
    std::uint16_t relay_port = 0;
    std::optional<Relay> relay;
    std::optional<Peer> client, venue;
};

std::string packet(char type, std::string_view payload) {
    return std::string(as_text(esesm::build_packet(static_cast<esesm::PacketType>(type), as_bytes(payload))));
}

TEST(Relay, PassesOnWhatBothSay) {
    Stage stage;
    stage.connect();
    stage.client->say("hello");
    stage.venue->say("welcome");
    EXPECT_TRUE(stage.until([&] { return stage.venue->heard == "hello" && stage.client->heard == "welcome"; }));
    EXPECT_EQ(stage.did(), "");
}

TEST(Relay, PassesOnAFinishBehindEverythingAndHearsTheOtherSideOut) {
    Stage stage;
    stage.connect();
    stage.client->say("last words");
    stage.client->finish();
    ASSERT_TRUE(stage.until([&] { return stage.venue->ended == "finish"; }));
    EXPECT_EQ(stage.venue->heard, "last words");
    stage.venue->say("goodbye");
    ASSERT_TRUE(stage.until([&] { return stage.client->heard == "goodbye"; }));
    EXPECT_EQ(stage.client->ended, "");
    stage.venue->close();
    stage.venue.reset();
    EXPECT_TRUE(stage.until([&] { return stage.client->ended == "finish" && stage.relay->open_connections() == 0; }));
}

TEST(Relay, PassesOnAResetOfTheClientBehindEverythingItSaid) {
    Stage stage;
    stage.connect();
    const std::string much(100'000, 'x');
    stage.client->say(much);
    stage.client->reset();
    stage.client.reset();
    ASSERT_TRUE(stage.until([&] { return !stage.venue->ended.empty(); }));
    EXPECT_EQ(stage.venue->ended, "reset");
    EXPECT_EQ(stage.venue->heard.size(), much.size());
    EXPECT_TRUE(stage.until([&] { return stage.relay->open_connections() == 0; }));
}

TEST(Relay, PassesOnAResetOfTheVenueBehindItsGoodbye) {
    Stage stage;
    stage.connect();
    stage.venue->say("goodbye");
    stage.venue->reset();
    stage.venue.reset();
    ASSERT_TRUE(stage.until([&] { return !stage.client->ended.empty(); }));
    EXPECT_EQ(stage.client->ended, "reset");
    EXPECT_EQ(stage.client->heard, "goodbye");
}

// A venue that closes with something unread resets: its goodbye still comes through, though what the client goes on
// saying finds nobody.
TEST(Relay, DeliversAGoodbyeToAClientThatGoesOnTalking) {
    Stage stage;
    stage.connect();
    stage.client->say("unread");
    stage.settle();
    stage.venue->say("goodbye");
    stage.client->say("more");
    stage.venue->close();
    stage.venue.reset();
    ASSERT_TRUE(stage.until([&] { return !stage.client->ended.empty(); }));
    EXPECT_EQ(stage.client->heard, "goodbye");
}

TEST(Relay, ResetsWhoeverCallsWhileNobodyIsBehindIt) {
    Stage stage;
    shutdown(stage.venue_listener, SHUT_RDWR);
    stage.client.emplace(client::dial(stage.relay_port));
    ASSERT_TRUE(stage.until([&] { return !stage.client->ended.empty(); }));
    EXPECT_EQ(stage.client->ended, "reset");
    EXPECT_EQ(stage.relay->open_connections(), 0U);
}

// What neither the relay nor the system keeps for a venue that does not read stays with the client, and its writes
// block as they would without a relay; once the venue reads, all of it comes, in order.
TEST(Relay, ReadsNoMoreThanTheOtherSideTakes) {
    Stage stage;
    stage.connect();
    const int socket = client::dial(stage.relay_port);
    ASSERT_TRUE(stage.until([&] { return stage.relay->open_connections() == 2; }));
    Peer slow(accept4(stage.venue_listener, nullptr, nullptr, SOCK_CLOEXEC));
    const std::string block(65'536, 'b');
    std::size_t said = 0;
    int idle = 0;
    while (idle < 50 && said < (64U << 20)) {
        const ssize_t count = send(socket, block.data(), block.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        if (count > 0) said += static_cast<std::size_t>(count);
        idle = count > 0 ? 0 : idle + 1;
        stage.loop.turn(0ms);
    }
    EXPECT_LT(said, 24U << 20);
    close(socket);
    ASSERT_TRUE(stage.until([&] {
        slow.look();
        return !slow.ended.empty();
    }));
    EXPECT_EQ(slow.heard.size(), said);
    EXPECT_EQ(slow.ended, "finish");
}

TEST(Relay, TellsEachWholePacketOnceItHasBeenPassedOn) {
    Stage stage;
    std::string told;
    stage.relay->on_packet = [&](const std::string& user, bool by_client, ByteView bytes) {
        told += user + (by_client ? ">" : "<") + static_cast<char>(bytes[2]) + " ";
    };
    stage.log_in("bob");
    const std::string two = packet('U', "order") + packet('1', "");
    stage.client->say(two.substr(0, 4));
    ASSERT_TRUE(stage.until([&] { return stage.venue->heard.size() == 4; }));
    EXPECT_EQ(told, "bob>l ");
    stage.client->say(two.substr(4));
    stage.venue->say(packet('0', ""));
    ASSERT_TRUE(
        stage.until([&] { return stage.client->heard.size() == 3 && stage.venue->heard.size() == two.size(); }));
    EXPECT_EQ(told.size(), std::string("bob>l bob>U bob>1 bob<0 ").size());
}

TEST(RelayFaults, HoldsOneDirectionAndReleasesItWhole) {
    Stage stage;
    stage.log_in();
    stage.relay->faults("alice").up.hold = true;
    stage.relay->apply("alice");
    stage.client->say("first");
    stage.settle();
    stage.client->say("second");
    stage.client->finish();
    stage.venue->say("still heard");
    ASSERT_TRUE(stage.until([&] { return stage.client->heard == "still heard"; }));
    stage.settle();
    EXPECT_EQ(stage.venue->heard, "");
    EXPECT_EQ(stage.venue->ended, "");
    stage.relay->faults("alice").up.hold = false;
    stage.relay->apply("alice");
    ASSERT_TRUE(stage.until([&] { return stage.venue->ended == "finish"; }));
    EXPECT_EQ(stage.venue->heard, "firstsecond");
    EXPECT_EQ(stage.did(), "up held 5 | up released 11");
}

TEST(RelayFaults, MeetTheirUserAlone) {
    Stage stage;
    stage.relay->faults("bob").up.hold = true;
    stage.log_in("alice");
    stage.client->say("through");
    EXPECT_TRUE(stage.until([&] { return stage.venue->heard == "through"; }));
    EXPECT_EQ(stage.relay->break_connections("bob", Breaking::cut), 0U);
    EXPECT_EQ(stage.did(), "");
}

TEST(RelayFaults, SwallowWholePacketsButNoHeartbeats) {
    Stage stage;
    stage.log_in();
    stage.relay->faults("alice").down.swallow = 2;
    stage.relay->apply("alice");
    const std::string all = packet('s', "one") + packet('0', "") + packet('s', "three") + packet('s', "four");
    stage.venue->say(all.substr(0, 1));  // also when a header comes in pieces
    stage.settle();
    stage.venue->say(all.substr(1));
    ASSERT_TRUE(stage.until([&] { return stage.client->heard == packet('0', "") + packet('s', "four"); }));
    EXPECT_EQ(stage.relay->faults("alice").down.swallow, 0U);
    EXPECT_EQ(stage.did(), "down swallowed 6 | down swallowed 8");
}

TEST(RelayFaults, LeaveAPacketAloneOfWhichABeginningHasBeenPassedOn) {
    Stage stage;
    stage.log_in();
    stage.venue->say(packet('s', "one").substr(0, 4));
    ASSERT_TRUE(stage.until([&] { return stage.client->heard.size() == 4; }));
    stage.relay->faults("alice").down.swallow = 1;
    stage.relay->apply("alice");
    stage.venue->say(packet('s', "one").substr(4) + packet('s', "two") + packet('s', "three"));
    EXPECT_TRUE(stage.until([&] { return stage.client->heard == packet('s', "one") + packet('s', "three"); }));
}

TEST(RelayFaults, PassHalfAPacketOnAndCut) {
    Stage stage;
    stage.log_in();
    stage.relay->faults("alice").up.half = true;
    stage.relay->apply("alice");
    stage.client->say(packet('1', "") + packet('U', "1234567") + packet('U', "never"));
    ASSERT_TRUE(stage.until([&] { return !stage.venue->ended.empty() && !stage.client->ended.empty(); }));
    EXPECT_EQ(stage.venue->heard, packet('1', "") + packet('U', "1234567").substr(0, 5));
    EXPECT_EQ(stage.venue->ended + " " + stage.client->ended, "finish finish");
    EXPECT_EQ(stage.did(), "up half 5 | up cut 0");
    EXPECT_FALSE(stage.relay->faults("alice").up.half);
}

TEST(RelayFaults, PassBytesOnOneByOne) {
    Stage stage;
    stage.log_in();
    stage.relay->faults("alice").up.piece = 1;
    stage.relay->apply("alice");
    stage.client->say("abcdef");
    ASSERT_TRUE(stage.until([&] { return stage.venue->heard == "abcdef"; }));
    EXPECT_TRUE(stage.recording.flush());
    Capture capture(stage.folder.path("wire.pcapng"));
    std::string segments;
    for (Capture::Packet packet; capture.next(packet);) {
        const bool to_venue = packet.destination.port == port_of(stage.venue_listener) && !packet.payload.empty();
        if (to_venue && packet.payload.size() != 39) segments += std::string(as_text(packet.payload)) + ".";
    }
    EXPECT_EQ(segments, "a.b.c.d.e.f.");
    EXPECT_EQ(stage.did(), "up split 6");
}

TEST(RelayFaults, EndAConnectionInGoodOrderOrWithAReset) {
    for (const auto& [how, ended, did] : {std::tuple{Breaking::cut, "finish finish", "both cut 0"},
                                          std::tuple{Breaking::reset, "reset reset", "both reset 0"}}) {
        Stage stage;
        stage.log_in();
        EXPECT_EQ(stage.relay->break_connections("alice", how), 1U);
        ASSERT_TRUE(stage.until([&] { return !stage.venue->ended.empty() && !stage.client->ended.empty(); }));
        EXPECT_EQ(stage.client->ended + " " + stage.venue->ended, ended);
        EXPECT_EQ(stage.did(), did);
    }
}

TEST(RelayFaults, AbandonAClientBehindTheBackOfTheVenue) {
    Stage stage;
    stage.log_in();
    EXPECT_EQ(stage.relay->break_connections("alice", Breaking::abandon), 1U);
    ASSERT_TRUE(stage.until([&] { return stage.client->ended == "reset"; }));
    stage.venue->say("is anybody there?");
    stage.settle();
    EXPECT_EQ(stage.venue->ended, "");
    EXPECT_EQ(stage.relay->open_connections(), 1U);
    stage.venue->finish();
    EXPECT_TRUE(stage.until([&] { return stage.venue->ended == "finish" && stage.relay->open_connections() == 0; }));
}

// A script breaks a connection when it sees a packet, so from within the relay's own work.
TEST(RelayFaults, MayBeSetOnSeeingAPacket) {
    Stage stage;
    stage.relay->on_packet = [&](const std::string& user, bool by_client, ByteView bytes) {
        if (by_client && bytes[2] == 'U') stage.relay->break_connections(user, Breaking::reset);
    };
    stage.log_in();
    stage.client->say(packet('U', "order") + packet('U', "another"));
    ASSERT_TRUE(stage.until([&] { return stage.client->ended == "reset" && stage.venue->ended == "reset"; }));
    EXPECT_EQ(stage.relay->open_connections(), 0U);
}

TEST(RelayFaults, StayForTheNextConnectionOfTheirUser) {
    Stage stage;
    stage.relay->faults("alice").up.swallow = 1;
    stage.connect();
    stage.client->say(as_text(esesm::build_packet(esesm::PacketType::login_request, client::login("alice").payload())));
    stage.client->say(packet('U', "order"));
    ASSERT_TRUE(stage.until([&] { return stage.venue->heard == packet('U', "order"); }));
    EXPECT_EQ(stage.did(), "up swallowed 39");  // the login itself: 3 bytes, 27, and 9 for its entry
}

// Both sides of the connection are in the recording, and differ by what the relay has held.
TEST(Relay, RecordsWhatEachSideSawAndWhen) {
    Stage stage;
    stage.log_in();
    stage.relay->faults("alice").up.hold = true;
    stage.relay->apply("alice");
    stage.client->say("late");
    stage.settle();
    stage.venue->say("between");
    ASSERT_TRUE(stage.until([&] { return stage.client->heard == "between"; }));
    stage.relay->faults("alice").up.hold = false;
    stage.relay->apply("alice");
    ASSERT_TRUE(stage.until([&] { return stage.venue->heard == "late"; }));
    EXPECT_TRUE(stage.recording.flush());
    Capture capture(stage.folder.path("wire.pcapng"));
    std::string seen;
    for (Capture::Packet packet; capture.next(packet);) {
        if (packet.payload.empty() || packet.payload.size() == 39) continue;
        const bool relay_in_front =
            stage.relay_port == packet.source.port || stage.relay_port == packet.destination.port;
        seen += std::string(relay_in_front ? "client" : "venue") + ":" + std::string(as_text(packet.payload)) + " ";
    }
    EXPECT_EQ(seen, "client:late venue:between client:between venue:late ");
}

// Times of a flow are those that it is told, so nothing has to be waited for.
class FlowAt : public testing::Test {
protected:
    Flow::Time at(int ms) const { return Flow::Time{} + std::chrono::hours(1) + std::chrono::milliseconds(ms); }
    std::string ready(int ms) {
        const ByteView bytes = flow.ready(at(ms));
        std::string text(as_text(bytes));
        if (!bytes.empty()) flow.passed(at(ms), bytes.size());
        return text;
    }
    DirectionFaults faults;
    Flow flow;
};

TEST_F(FlowAt, LatencyDelaysEachByteAndTheEndByTheSame) {
    faults.latency = 50ms;
    flow.suffer(faults);
    flow.take(at(0), as_bytes("early"));
    flow.take(at(30), as_bytes("late"));
    flow.end(at(40), Flow::End::finish);
    EXPECT_EQ(ready(49), "");
    EXPECT_EQ(*flow.next_look(), at(50));
    EXPECT_EQ(ready(50), "early");
    EXPECT_EQ(ready(79), "");
    EXPECT_EQ(ready(80), "late");
    EXPECT_EQ(flow.end_ready(at(89)), Flow::End::none);
    EXPECT_EQ(*flow.next_look(), at(90));
    EXPECT_EQ(flow.end_ready(at(90)), Flow::End::finish);
}

TEST_F(FlowAt, ALimitOfBytesPerSecondLetsTenMillisecondsWorthThroughAtATime) {
    faults.bytes_per_second = 1000;
    flow.suffer(faults);
    flow.take(at(0), as_bytes("0123456789abcdefghij!"));
    EXPECT_EQ(ready(0), "0123456789");
    EXPECT_EQ(ready(0), "");
    EXPECT_EQ(*flow.next_look(), at(10));
    EXPECT_EQ(ready(10), "abcdefghij");
    EXPECT_EQ(ready(19), "");
    EXPECT_EQ(ready(20), "!");
}

TEST_F(FlowAt, FaultsAreComposed) {
    faults.latency = 10ms;
    faults.piece = 2;
    faults.swallow = 1;
    flow.suffer(faults);
    flow.take(at(0), as_bytes(packet('s', "gone") + packet('s', "kept")));
    std::string kept;
    EXPECT_EQ(ready(9), "");
    for (int piece = 0; piece < 4; ++piece) {
        const std::string bytes = ready(10);
        EXPECT_LE(bytes.size(), 2U);
        kept += bytes;
    }
    EXPECT_EQ(kept, packet('s', "kept"));
}

// Behind a length of zero nobody can tell where a packet begins, so nothing is swallowed by guess.
TEST_F(FlowAt, ALengthOfZeroEndsTheFraming) {
    flow.suffer(faults);
    flow.take(at(0), Bytes{0, 0});
    faults.swallow = 1;
    flow.take(at(0), as_bytes(packet('s', "message")));
    EXPECT_EQ(ready(0).size(), 2U + 3 + 7);
    EXPECT_EQ(faults.swallow, 1U);
}

}  // namespace
}  // namespace kavo::companion
