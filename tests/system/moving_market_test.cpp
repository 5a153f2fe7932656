// Clients in a market that moves, and in the one that the day opens with.
#include <algorithm>
#include <regex>
#include <utility>

#include "support/scene.h"
#include "system/live_venue.h"

namespace kavo::test {
namespace {

std::uint64_t id_of(const std::string& response) {
    const std::size_t at = response.find('#');
    return at == std::string::npos ? 0 : std::stoull(response.substr(at + 1));
}

// A client that waits for an answer gets it in one pass and asks again in a later one, and every pass has its step of
// the market: with an interval of 0 something always happens in between.
TEST(LiveMarket, StepsOnEveryPassWithAnIntervalOfZero) {
    LiveVenue venue({"--interval-ms", "0"});
    User alice(venue, "alice");
    std::string before;
    for (const char* id : {"b1", "b2", "b3", "b4", "b5"}) {
        alice.send(buy(id).shares(100).at("100.00"));
        const std::string own = "add 1 #" + std::to_string(id_of(alice.next())) + " B 100@100";
        alice.next(2);
        if (!before.empty()) {
            EXPECT_EQ(venue.feed.next_message(before), before);
            EXPECT_NE(venue.feed.next(), own) << "two requests without a step of the market between them";
        }
        before = own;
    }
}

// Whatever a user was told in the course of a day comes again as it was, and behind it what nobody was there to hear.
TEST(LiveMarket, TellsAUserWhoComesBackTheWholeDayByteForByte) {
    LiveVenue venue({"--interval-ms", "5", "--acod"});
    std::vector<Bytes> told;
    {
        User alice(venue, "alice");
        alice.log_in(login("alice", 1));  // the start of the day once more, to have it on record
        EXPECT_EQ(alice.next(), "login accepted, engine 1, highest 2");
        const auto hear = [&](const std::string& end) {
            while (const auto packet = alice.next_packet()) {
                told.push_back(*packet);
                if (packet_text(*packet).find(end) != std::string::npos) return;
            }
            FAIL() << "never heard" << end;
        };
        hear("2: SU ");
        EXPECT_EQ(alice.next(), "replay complete");
        alice.send(buy("b1").shares(500).market());
        alice.send(buy("b2").shares(25'000).at("190.50"));
        hear(" E1 b2 ");
        alice.send(buy("b3").shares(300).at("100.00"));
        alice.send(replace("b3", "b4").shares(200).at("101.00"));
        hear(" MN b4 ");
        alice.send(buy("b5").shares(300).at("102.00"));
        alice.send(cancel("b5"));
        hear(" XN b5 ");
    }
    EXPECT_TRUE(venue.process.says("open order(s) of alice on disconnect\n"));
    WireClient alice(venue.port());
    alice.log_in(login("alice", 1));
    EXPECT_TRUE(alice.next().starts_with("login accepted, engine 1, highest "));
    for (const Bytes& packet : told) EXPECT_EQ(alice.next_packet(), packet) << packet_text(packet);
    std::string before_last;
    std::string last = alice.next();
    while (last != "replay complete" && last != "silence" && !alice.closed()) {
        before_last = std::exchange(last, alice.next());
    }
    EXPECT_EQ(last, "replay complete");
    EXPECT_TRUE(before_last.ends_with(" leaves 0 'D'")) << before_last;
}

struct Quote {
    std::string amount;  // as on the wire, "300@190.03"
    double price;
    std::uint64_t order_id;
};

// The quotes that the day opened with, to sell, as a buyer meets them.
std::vector<Quote> asks_of(const LiveVenue& venue) {
    static const std::regex pattern(R"(add 1 #(\d+) S (\d+@([\d.]+)))");
    std::vector<Quote> asks;
    for (const std::string& line : venue.quotes()) {
        std::smatch parts;
        if (!std::regex_match(line, parts, pattern)) continue;
        asks.push_back({parts.str(2), std::stod(parts.str(3)), std::stoull(parts.str(1))});
    }
    std::stable_sort(asks.begin(), asks.end(), [](const Quote& a, const Quote& b) { return a.price < b.price; });
    return asks;
}

TEST(LiveMarket, StandsReadyAtTheOpenWithTheQuotesThatTheFeedShows) {
    LiveVenue venue;
    const std::vector<Quote> asks = asks_of(venue);
    ASSERT_GT(asks.size(), 1U);
    User bob(venue, "bob");
    bob.send(buy("b1").shares(25'000).market());
    EXPECT_EQ(bob.next(2), "3: NR b1 accepted #1040 25000@0 | 4: O1 b1 #1040 buy 25000@0 tif D type 2");
    std::uint64_t match = 1;  // the first trades of the run, and nobody else is told of them
    for (const Quote& ask : asks) {
        const std::string number = std::to_string(match);
        EXPECT_EQ(bob.next(), std::to_string(match + 4) + ": E1 b1 " + ask.amount + " buy removed RC match " + number +
                                  " exec " + number);
        EXPECT_EQ(venue.feed.next(),
                  "executed 1 #" + std::to_string(ask.order_id) + " " + ask.amount + " match " + number + " resting S");
        ++match;
    }
    EXPECT_EQ(bob.next(), std::to_string(match + 4) + ": XN b1 #1040 leaves 0 'C'");
}

}  // namespace
}  // namespace kavo::test
