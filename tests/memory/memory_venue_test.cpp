// A venue in memory: driven by hand, the same every time, and as the real program in all that it says.
#include "memory/memory_venue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

#include "client/packets.h"
#include "client/recovery.h"
#include "client/requests.h"
#include "client/session.h"
#include "client/transcript.h"
#include "memory/memory_user.h"
#include "model/bench.h"
#include "support/packets.h"

namespace kavo {
namespace {

using namespace std::chrono_literals;
using client::buy;
using client::login;
using client::sell;
using test::packet;

// Everything that has come on a connection, a line for each packet.
std::string heard(MemoryConnection& connection, std::string (*text)(ByteView packet) = client::packet_text) {
    esesm::ReceiveBuffer received;
    received.incoming() = connection.take();
    std::vector<std::string> lines;
    while (const auto cut = received.cut()) {
        lines.push_back(text(esesm::build_packet(cut->type, cut->payload)));
    }
    return client::joined(lines);
}

std::string heard_by(MemoryUser& user) {
    user.exchange();
    std::vector<std::string> lines;
    while (const auto arrival = user.session.next()) lines.push_back(client::packet_text(arrival->packet));
    return client::joined(lines);
}

TEST(MemoryVenue, AnswersALoginInThePassThatFollows) {
    MemoryVenue venue({"--symbols", "AAPL:190"});
    MemoryConnection alice = venue.connect();
    alice.send(packet('l', login("alice", 1).payload()));
    EXPECT_EQ(heard(alice), "");
    venue.pass();
    EXPECT_EQ(heard(alice), "login accepted, engine 1, highest 0 | 1: SN MEO2.7 session 1 | 2: SU 1 AAPL Q");
    EXPECT_EQ(heard(alice), "");
    EXPECT_FALSE(alice.closed());
}

TEST(MemoryVenue, SaysWhatTheProgramWouldHaveSaid) {
    model::Bench rough;
    rough.faults.at(model::Bench::reject).script.every = 3;
    MemoryVenue venue({"--symbols", "AAPL:190"}, {.scenario = rough.scenario()});
    MemoryConnection alice = venue.connect();
    alice.send(packet('l', login("alice", 1).payload()));
    venue.pass();
    const std::vector<std::string> said = venue.take_commentary();
    EXPECT_EQ(said, (std::vector<std::string>{
                        rough.armed_line(), "[kavo_me] client connected (fd 100)",
                        "bench: login alice requested seq 1 (stream next 1): accepted at 1, replaying 0 message(s)",
                        "[kavo_me] login alice accepted"}));
}

TEST(MemoryVenue, ThrowsForABadFlagWhatTheProgramWouldHaveSaid) {
    try {
        MemoryVenue venue({"--colour", "blue"});
        FAIL();
    } catch (const std::invalid_argument& error) {
        EXPECT_EQ(std::string(error.what()), "unknown flag --colour");
    }
    EXPECT_THROW(MemoryVenue({"--port", "x"}), std::invalid_argument);
}

// The market ticks every forty milliseconds, and time never goes on by itself.
TEST(MemoryVenue, TicksAsOftenAsTimeGoesOn) {
    MemoryVenue venue({"--symbols", "AAPL:190"});
    EXPECT_EQ(venue.take_datagrams().size(), 3u);  // the start; definitions and quotes of forty orders in two
    venue.advance(39ms);
    EXPECT_TRUE(venue.take_datagrams().empty());
    EXPECT_EQ(venue.now_ms(), 1'000'039u);
    venue.advance(1ms);
    EXPECT_EQ(venue.take_datagrams().size(), 1u);
    venue.advance(400ms);
    EXPECT_EQ(venue.take_datagrams().size(), 10u);
}

TEST(MemoryVenue, CarriesOutCommandsAndReplies) {
    MemoryVenue venue({"--symbols", "AAPL:190"});
    venue.take_datagrams();
    EXPECT_EQ(venue.command("pause"), "ok pause\n");
    venue.advance(1000ms);
    EXPECT_EQ(venue.take_datagrams().size(), 1u);  // a heartbeat
    EXPECT_EQ(venue.command("mark here"), "ok mark here\n");
    const std::vector<std::string> lines = venue.take_book_truth();
    ASSERT_EQ(lines.size(), 41u);
    EXPECT_TRUE(lines.back().starts_with("{\"mark\":\"here\",\"seq\":")) << lines.back();
}

TEST(MemoryVenue, DoesNothingMoreOnceItIsStopped) {
    MemoryVenue venue;
    EXPECT_EQ(venue.command("stop"), "ok stopping");
    EXPECT_TRUE(venue.stopped());
    venue.take_datagrams();
    venue.advance(100ms);
    EXPECT_TRUE(venue.take_datagrams().empty());
    EXPECT_EQ(venue.take_commentary().back(), "kavo_me faults: sent 5 dropped 0 duplicated 0 reordered 0");
}

TEST(MemoryVenue, WritesDownWhatHappensToEveryOrder) {
    MemoryVenue venue({"--symbols", "AAPL:190", "--interval-ms", "-1"});
    MemoryUser alice(venue, login("alice", 1));
    heard_by(alice);
    venue.pass();
    heard_by(alice);
    alice.session.send(buy("b1").shares(100).at("1.00"));
    heard_by(alice);
    venue.pass();
    const std::vector<std::string> lines = venue.take_order_truth();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0],
              "{\"t\":1700000000000000000,\"ev\":\"new\",\"cl\":\"b1\",\"oid\":1040,\"symbol\":\"AAPL\",\"side\":\"B\","
              "\"qty\":100,\"px\":1,\"cum\":0,\"leaves\":0,\"last_qty\":0,\"text\":\"\"}");
}

TEST(MemoryVenue, LeavesThoseOutsideWhoseConnectionFindsNoDescriptor) {
    MemoryVenue venue;
    venue.use_up_descriptors(true);
    MemoryConnection alice = venue.connect();
    alice.send(packet('l', login("alice", 1).payload()));
    venue.advance(20ms);
    EXPECT_EQ(heard(alice), "");
    venue.use_up_descriptors(false);
    venue.advance(5ms);
    EXPECT_TRUE(heard(alice).starts_with("login accepted"));
}

TEST(MemoryVenue, KeepsBackWhatAConnectionHasNoRoomFor) {
    MemoryVenue venue({"--symbols", "AAPL:190", "--interval-ms", "-1"});
    MemoryConnection alice = venue.connect();
    alice.limit_room(5);
    alice.send(packet('l', login("alice", 1).payload()));
    venue.pass();
    Bytes taken = alice.take();
    EXPECT_EQ(taken.size(), 5u);
    alice.lift_limit();
    venue.pass();
    const Bytes rest = alice.take();
    taken.insert(taken.end(), rest.begin(), rest.end());
    ASSERT_TRUE(client::first_packet(taken));
    EXPECT_EQ(client::packet_text(*client::first_packet(taken)), "login accepted, engine 1, highest 0");
}

TEST(MemoryVenue, ServesReceiversWhatTheyHaveMissed) {
    MemoryVenue venue({"--symbols", "AAPL:190", "--interval-ms", "-1"});
    MemoryConnection receiver = venue.connect_receiver();
    client::Login request = login("recv");
    request.application_protocol = "DoM1.3";
    receiver.send(packet('l', request.payload()));
    Bytes range(16, 0);
    range[0] = 2;
    range[8] = 2;
    receiver.send(packet('a', range));
    venue.pass();
    EXPECT_EQ(heard(receiver, client::recovery_text),
              "login accepted, engine 1, highest 45 | 2: state session 1 | goodbye 'A' retransmission complete");
    EXPECT_TRUE(receiver.closed());
}

TEST(MemoryUser, ComesBackForWhatItHasMissed) {
    MemoryVenue venue({"--symbols", "AAPL:190", "--interval-ms", "-1"});
    MemoryUser alice(venue, login("alice", 1));
    heard_by(alice);
    venue.pass();
    heard_by(alice);
    alice.session.send(buy("b1").shares(100).at("1.00"));
    heard_by(alice);
    venue.pass();
    alice.break_off();  // before it has heard the answers
    venue.pass();
    heard_by(alice);
    venue.pass();
    EXPECT_EQ(heard_by(alice),
              "login accepted, engine 1, highest 5 | 3: NR b1 accepted #1040 100@1 | "
              "4: O1 b1 #1040 buy 100@1 tif D type 1 | 5: P1 b1 #1040 @1 behind | replay complete");
}

// All that leaves a venue in a day with every kind of input.
std::vector<Bytes> played(std::uint32_t seed) {
    MemoryVenue venue({"--seed", std::to_string(seed), "--drop-every", "7"}, {.scenario = "reject_every=4"});
    MemoryUser alice(venue, login("alice", 1));
    std::vector<Bytes> all;
    for (int i = 0; i < 40; ++i) {
        alice.session.send(i % 2 == 0 ? buy("b" + std::to_string(i)).at("190.05")
                                      : sell("s" + std::to_string(i)).at("189.95"));
        alice.exchange();
        while (const auto arrival = alice.session.next())
            all.emplace_back(arrival->packet.begin(), arrival->packet.end());
        venue.advance(13ms);
        if (i == 20) alice.break_off();
    }
    for (Bytes& datagram : venue.take_datagrams()) all.push_back(std::move(datagram));
    for (const std::string& line : venue.take_order_truth()) all.emplace_back(line.begin(), line.end());
    return all;
}

TEST(MemoryVenue, GivesTheSameBytesForTheSameSeedAndInputs) {
    const std::vector<Bytes> first = played(7);
    EXPECT_GT(first.size(), 100u);
    EXPECT_EQ(played(7), first);
    EXPECT_NE(played(8), first);
}

TEST(MemoryVenue, LivesBesideOthers) {
    MemoryVenue one({"--seed", "1", "--symbols", "AAPL:190"});
    MemoryVenue other({"--seed", "1", "--symbols", "AAPL:190"});
    one.advance(400ms);
    EXPECT_EQ(other.now_ms(), 1'000'000u);
    other.advance(400ms);
    EXPECT_EQ(one.take_datagrams(), other.take_datagrams());
}

}  // namespace
}  // namespace kavo
