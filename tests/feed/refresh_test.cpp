// Snapshots of the present state: which messages each type brings, in which packets, and as of which number.
#include <gtest/gtest.h>

#include <string>

#include "client/recovery_client.h"
#include "feed/retransmission.h"
#include "support/bytes_hex.h"
#include "support/said.h"
#include "support/venue.h"

namespace kavo::test {
namespace {

// The second of the standing clock, 1'700'000'000.
constexpr char time_bytes[] = "31 00 F1 53 65";

// One logged-in receiver of a venue whose every message is known.
struct Receiver {
    explicit Receiver(Venue& venue) : service(venue.feed, venue.clock, peers.transport(), 9, standard_error) {
        log_in();
    }
    void log_in() {
        service.open_connection(100);
        receive('l', receiver_login().payload());
        sent().clear();
    }
    void receive(char type, ByteView payload) {
        said = said_during([&] {
            service.receive(service.connections().back(),
                            esesm::build_packet(static_cast<esesm::PacketType>(type), payload));
        });
    }
    // What a refresh of this type brings, one line a packet; every refresh closes its connection.
    std::string refresh(const std::string& payload) {
        receive('U', as_bytes(payload));
        std::vector<std::string> lines;
        esesm::ReceiveBuffer cutter;
        cutter.incoming() = sent();
        while (const auto cut = cutter.cut()) {
            lines.push_back(recovery_text(esesm::build_packet(cut->type, cut->payload)));
        }
        lines.push_back(service.connections().back().open() ? "open" : "closed");
        return joined(lines);
    }

    Bytes& sent() { return peers.peers[100].received; }

    MemoryPeers peers;
    Retransmission service;
    std::string said;  // on standard error
};

// What surrounds the state in a refresh of any type.
std::string refreshed(const std::string& as_of, const std::string& state, char type) {
    std::string lines = "as of " + as_of + ": time 1700000000 | ";
    if (!state.empty()) lines += state + " | ";
    return lines + "end of '" + type + "' | goodbye 'A' refresh complete | closed";
}

TEST(Refresh, StampsEachMessageWithAReadingOfItsOwn) {
    Venue venue;
    venue.enter(buy("b1").at("1.00"));
    Receiver receiver(venue);
    venue.clock.stand_at(Venue::start_ms, 1'700'000'009'000'000'042);
    receiver.refresh("RO");
    esesm::ReceiveBuffer cutter;
    cutter.incoming() = receiver.sent();
    std::vector<std::uint32_t> stamps;
    while (const auto packet = cutter.cut()) {
        if (packet->type != esesm::PacketType::unsequenced_data || packet->payload[0] != 'r') continue;
        const ByteView message = packet->payload.subspan(layout::refresh_message::header_size);
        if (message[0] != '1') stamps.push_back(get(message, Number<std::uint32_t>{1}));
    }
    EXPECT_EQ(stamps, (std::vector<std::uint32_t>{42, 42, 42, 42}));  // state, definition, status and the order
}

TEST(Refresh, OfEverythingWithoutRestingOrdersIsTimeStateDefinitionsAndStatus) {
    Venue venue({.symbols = {"AAPL", "SPY"}});
    Receiver receiver(venue);
    EXPECT_EQ(receiver.refresh("RO"),
              refreshed("0",
                        "as of 0: state session 1 | as of 0: definition 1 AAPL Q | as of 0: definition 2 SPY P | "
                        "as of 0: status 1 | as of 0: status 2",
                        'O'));
    // 17 bytes of time, 27 of state, two definitions of 54, two times status of 24, and 5 that end it.
    EXPECT_EQ(receiver.said, "bench: refresh 'O' served as of seq 0 (205 bytes)\n");
    EXPECT_EQ(venue.feed.counters.refreshes, 1u);
}

TEST(Refresh, OfEverythingBringsEachRestingOrderBidsFirstBestLevelFirstFirstComeFirst) {
    Venue venue({.symbols = {"AAPL", "MSFT"}});
    const std::uint16_t attributed = 1 << 8;
    const std::uint16_t retail = 2 << 8;
    venue.enter(sell("s1").shares(100).at("190.02"));                                    // #1000
    venue.enter(sell("s2").shares(200).at("190.01").participant("FIRM").flags(retail));  // #1001
    venue.enter(buy("b1").shares(300).at("189.98"));                                     // #1002
    venue.enter(buy("b2").shares(400).at("189.99").participant("FIRM").flags(attributed));
    venue.enter(buy("b3").shares(500).at("189.99"));
    venue.enter(buy("m1").shares(600).at("410.00").product(2));
    Receiver receiver(venue);
    EXPECT_EQ(receiver.refresh("RO"),
              refreshed("7",
                        "as of 7: state session 1 | as of 7: definition 1 AAPL Q | as of 7: definition 2 MSFT Q | "
                        "as of 7: status 1 | as of 7: status 2 | "
                        "as of 7: add 1 #1003 B 400@189.99 FIRM | as of 7: add 1 #1004 B 500@189.99 | "
                        "as of 7: add 1 #1002 B 300@189.98 | as of 7: add 1 #1001 S 200@190.01 RTAL | "
                        "as of 7: add 1 #1000 S 100@190.02 | as of 7: add 2 #1005 B 600@410",
                        'O'));
    EXPECT_EQ(receiver.said, "bench: refresh 'O' served as of seq 7 (481 bytes)\n");  // 205 and six orders of 46
}

TEST(Refresh, OfEverythingBringsWhatIsLeftOfEachOrder) {
    Venue venue;
    venue.enter(buy("b1").shares(500).at("189.99"));               // #1000
    venue.enter(buy("b2").shares(100).at("189.99"));               // #1001, which loses its priority
    venue.enter(buy("b3").shares(100).at("189.90"));               // #1002, which goes away
    venue.enter(sell("s1").shares(200).at("189.99").immediate());  // takes 200 of #1000
    venue.replace(replace("b2", "b4").shares(700).at("189.98"));
    venue.cancel(cancel("b3"));
    Receiver receiver(venue);
    const std::string as_of = "as of " + std::to_string(venue.feed.last_sequence()) + ": ";
    const std::string lines = receiver.refresh("RO");
    EXPECT_TRUE(lines.ends_with(as_of + "status 1 | " + as_of + "add 1 #1000 B 300@189.99 | " + as_of +
                                "add 1 #1001 B 700@189.98 | end of 'O' | goodbye 'A' refresh complete | closed"))
        << lines;
}

TEST(Refresh, OfDefinitionsBringsTheDefinitionsAlone) {
    Venue venue({.symbols = {"AAPL", "SPY"}});
    venue.enter(buy("b1").at("189.99"));
    Receiver receiver(venue);
    EXPECT_EQ(receiver.refresh("RS"),
              refreshed("2", "as of 2: definition 1 AAPL Q | as of 2: definition 2 SPY P", 'S'));
    EXPECT_EQ(receiver.said, "bench: refresh 'S' served as of seq 2 (130 bytes)\n");  // 17, two of 54 and 5
}

TEST(Refresh, OfTheSystemStateBringsItAlone) {
    Venue venue;
    Receiver receiver(venue);
    EXPECT_EQ(receiver.refresh("Rs"), refreshed("0", "as of 0: state session 1", 's'));
    EXPECT_EQ(receiver.said, "bench: refresh 's' served as of seq 0 (49 bytes)\n");  // 17, 27 and 5
}

TEST(Refresh, OfTheTradingStatusBringsItAlone) {
    Venue venue({.symbols = {"AAPL", "SPY"}});
    Receiver receiver(venue);
    EXPECT_EQ(receiver.refresh("Rt"), refreshed("0", "as of 0: status 1 | as of 0: status 2", 't'));
    EXPECT_EQ(receiver.said, "bench: refresh 't' served as of seq 0 (70 bytes)\n");  // 17, two of 24 and 5
}

TEST(Refresh, IsTheseBytes) {
    Venue venue;
    venue.feed.publish(Bytes(20));
    venue.feed.publish(Bytes(20));
    Receiver receiver(venue);
    receiver.refresh("Rt");
    EXPECT_EQ(
        to_hex(receiver.sent()),
        hex_rows("0F 00 55 72  02 00 00 00 00 00 00 00   # unsequenced data, 'r', as of 2\n" + std::string(time_bytes) +
                 "\n"
                 "16 00 55 72  02 00 00 00 00 00 00 00\n"
                 "04 15 CD 5B 07  01 00 00 00  02 03 4E   # status of product 1, at 123,456,789 ns\n"
                 "03 00 55 45 74   # 'E', 't'\n"
                 "12 00 47 41 72 65 66 72 65 73 68 20 63 6F 6D 70 6C 65 74 65   # goodbye 'A' refresh complete"));
}

TEST(Refresh, TakesNoNumberAndNoPlaceInTheHistory) {
    Venue venue;
    venue.enter(buy("b1").at("189.99"));
    venue.feed.flush();
    const std::size_t datagrams = venue.datagrams.size();
    Receiver receiver(venue);
    receiver.refresh("RO");
    venue.feed.flush();
    EXPECT_EQ(venue.feed.next_sequence(), 3u);
    EXPECT_EQ(venue.feed.counters.messages, 2u);
    EXPECT_EQ(venue.datagrams.size(), datagrams);
}

TEST(Refresh, IsCountedEachTime) {
    Venue venue;
    Receiver receiver(venue);
    for (const std::string type : {"RO", "RS", "Rs", "Rt"}) {
        receiver.refresh(type);
        receiver.log_in();
    }
    EXPECT_EQ(venue.feed.counters.refreshes, 4u);
    EXPECT_EQ(venue.feed.counters.retransmissions, 0u);
}

TEST(Refresh, BringsItsTimeThoughTheFeedHasAnnouncedTheSecondAlready) {
    Venue venue;
    venue.enter(buy("b1").at("189.99"));
    ASSERT_TRUE(dom_text(venue.published_bytes().front()).starts_with("time "));
    Receiver receiver(venue);
    EXPECT_EQ(receiver.refresh("Rs"), refreshed("2", "as of 2: state session 1", 's'));
    venue.clock.advance_ms(877);  // over the end of the second
    receiver.log_in();
    EXPECT_TRUE(receiver.refresh("Rs").starts_with("as of 2: time 1700000001 | "));
}

TEST(Refresh, DoesNotAnnounceTheSecondOnTheFeed) {
    Venue venue;
    Receiver receiver(venue);
    receiver.refresh("RO");
    venue.enter(buy("b1").at("189.99"));
    ASSERT_EQ(venue.feed.last_sequence(), 2u);
    EXPECT_EQ(dom_text(venue.feed.message(1)), "time 1700000000");
}

TEST(Refresh, OfAnUnknownTypeIsRefused) {
    Venue venue;
    for (const char type : {'o', 'T', 'A', 'E', 'R', '\0', ' '}) {
        Receiver receiver(venue);
        EXPECT_EQ(receiver.refresh(std::string("R") + type), "goodbye 'B' unknown refresh type | closed") << type;
        EXPECT_EQ(receiver.said, "");
    }
    EXPECT_EQ(venue.feed.counters.refreshes, 0u);
}

TEST(Refresh, ThatIsAskedForInOtherWordsIsRefused) {
    Venue venue;
    for (const std::string payload : {"", "R", "O", "rO", "OR", "EO", "N1"}) {
        Receiver receiver(venue);
        EXPECT_EQ(receiver.refresh(payload), "goodbye 'B' unknown request | closed") << payload;
    }
    EXPECT_EQ(venue.feed.counters.refreshes, 0u);
}

TEST(Refresh, MayHaveBytesBehindItsType) {
    Venue venue;
    Receiver receiver(venue);
    EXPECT_EQ(receiver.refresh("Rs and more"), refreshed("0", "as of 0: state session 1", 's'));
}

TEST(Refresh, IsTheOnlyRequestOfItsConnection) {
    Venue venue;
    Receiver receiver(venue);
    Bytes two = esesm::build_packet(esesm::PacketType::unsequenced_data, as_bytes("Rs"));
    two.insert(two.end(), two.begin(), two.end());
    said_during([&] { receiver.service.receive(receiver.service.connections().back(), two); });
    EXPECT_EQ(venue.feed.counters.refreshes, 1u);
    EXPECT_EQ(receiver.sent().size(), 49 + 20u);  // one reply and its goodbye
}

}  // namespace
}  // namespace kavo::test
