// A receiver that follows a badly damaged feed of a fast market, recovers everything it has missed, and holds the very
// books that the venue writes down, after every single message.
#include "client/feed_handler.h"

#include <unordered_map>

#include "support/scene.h"
#include "system/full_venue.h"

namespace kavo::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

// What the venue has written into its book truth, by the number of the message.
std::unordered_map<std::uint64_t, std::string> truth_by_sequence(const TemporaryFile& truth) {
    std::unordered_map<std::uint64_t, std::string> lines;
    for (const std::string& line : truth.lines()) {
        EXPECT_TRUE(lines.emplace(number_behind("{\"seq\":", line), line).second)
            << "two lines for one message: " << line;
    }
    return lines;
}

// A user who trades with the market and with himself: every order rests, crosses, is replaced or is cancelled.
class BusyUser {
public:
    explicit BusyUser(std::uint16_t port) : wire_(port) { wire_.log_in(login("busy")); }

    // Sends the next request, and reads whatever has been answered so far.
    void act() {
        const std::string id = std::to_string(++requests_);
        const std::string before = std::to_string(requests_ - 1);
        switch (requests_ % 6) {
            case 0: wire_.send(buy(id).shares(700).at("190.04")); break;
            case 1: wire_.send(replace(before, id).shares(900).at("189.97")); break;
            case 2: wire_.send(sell(id).shares(1500).at("189.95")); break;
            case 3: wire_.send(replace(before, id).shares(400).at("190.02")); break;
            case 4: wire_.send(cancel(before)); break;
            default: wire_.send(buy(id).shares(300).market()); break;
        }
        while (const auto packet = wire_.next_packet_of_any_kind(milliseconds(0))) ++packets_;
    }
    std::size_t packets() const { return packets_; }
    bool closed() const { return wire_.closed(); }

private:
    WireClient wire_;
    unsigned requests_ = 0;
    std::size_t packets_ = 0;
};

// Notes the book after each message that changes one.
struct Notes {
    void take(FeedHandler& handler) {
        handler.receiver.on_applied = [this, &handler](std::uint64_t sequence, std::uint32_t changed) {
            EXPECT_EQ(sequence, last + 1);
            last = sequence;
            if (changed != 0) lines.emplace(sequence, handler.receiver.book().truth_line(sequence, changed));
        };
    }
    // Every change that was noted stands in the truth just so, and the other way round.
    void expect(const std::unordered_map<std::uint64_t, std::string>& truth) const {
        std::size_t compared = 0;
        for (const auto& [sequence, line] : truth) {
            if (sequence > last) continue;
            ++compared;
            const auto noted = lines.find(sequence);
            ASSERT_TRUE(noted != lines.end()) << "no change at " << line;
            ASSERT_EQ(noted->second, line);
        }
        EXPECT_EQ(compared, lines.size());
    }

    std::uint64_t last = 0;
    std::unordered_map<std::uint64_t, std::string> lines;
};

// Takes what is missing at the end: the market has been stopped, and heartbeats tell how far it has come. A request
// that was under way may still move it a little further.
void catch_up(FeedHandler& handler, UnreadVenue& venue) {
    ASSERT_EQ(venue.control.ask("pause"), "ok pause\n");
    const std::uint64_t last = venue.control.next_sequence() - 1;
    EXPECT_TRUE(handler.follow_to(last));
    EXPECT_GT(handler.receiver.next_sequence(), last);
}

TEST(FeedHandler, HoldsTheTrueBooksAfterEveryOneOfTwentyThousandMessagesOfADamagedFeed) {
    constexpr std::uint64_t far_enough = 20'000;
    const TemporaryFile truth;
    UnreadVenue venue({"--symbols", "AAPL:190.00,MSFT:410.00,SPY:520.00,IBM:150.00", "--interval-ms", "1",
                       "--truth-out", truth.path(), "--drop-every", "7", "--dup-every", "5", "--reorder-every", "11"},
                      {{"KAVO_ME_SCENARIO", "partial_fill_every=3,fill_on_cancel_every=2,unsolicited_cancel_every=4"}});
    FeedHandler handler(venue.feed, venue.retransmission_port());
    Notes notes;
    notes.take(handler);
    BusyUser user(venue.port());
    while (handler.receiver.next_sequence() <= far_enough) {
        ASSERT_TRUE(handler.take_datagram(std::chrono::duration_cast<milliseconds>(patience)));
        user.act();
        venue.process.said();  // or the pipe fills up, and the venue waits for its reader
    }
    EXPECT_FALSE(user.closed());
    EXPECT_GT(user.packets(), 100u);
    catch_up(handler, venue);

    const FeedReceiver::Counters& counters = handler.receiver.counters;
    EXPECT_GT(counters.duplicates, 0u);
    EXPECT_GT(counters.late, 0u);
    EXPECT_GT(counters.gaps, 0u);
    EXPECT_GT(counters.recovered, 0u);
    EXPECT_EQ(counters.refreshes, 0u) << "the history holds all of this day";
    EXPECT_EQ(counters.unconnected, 0u);

    EXPECT_EQ(venue.process.stop(), 0);
    const auto lines = truth_by_sequence(truth);
    EXPECT_GT(lines.size(), far_enough / 2);
    notes.expect(lines);
    std::printf("%llu messages in %zu changes of a book; %llu gaps, %llu messages recovered\n",
                static_cast<unsigned long long>(notes.last), lines.size(),
                static_cast<unsigned long long>(counters.gaps), static_cast<unsigned long long>(counters.recovered));
}

TEST(FeedHandler, FollowsTheFeedOfTheDefaultGroup) {
    const ReservedPort port;  // the group's own may be in use on this machine
    FeedReader feed("233.54.28.111", port.number(), "127.0.0.1");
    const TemporaryFile truth;
    UnreadVenue venue({"--mcast", "233.54.28.111", "--iface", "127.0.0.1", "--port", std::to_string(port.number()),
                       "--interval-ms", "1", "--truth-out", truth.path(), "--drop-every", "4", "--reorder-every", "5"});
    FeedHandler handler(feed, venue.retransmission_port());
    Notes notes;
    notes.take(handler);
    EXPECT_TRUE(handler.follow_to(500));
    catch_up(handler, venue);
    EXPECT_GT(handler.receiver.counters.gaps, 0u);
    EXPECT_EQ(handler.receiver.counters.unconnected, 0u);
    EXPECT_EQ(venue.process.stop(), 0);
    notes.expect(truth_by_sequence(truth));
}

TEST(FeedHandler, NeedsNothingButTheFeedWhenItIsOnlyOutOfOrder) {
    UnreadVenue venue({"--interval-ms", "1", "--dup-every", "2", "--reorder-every", "3"});
    FeedHandler handler(venue.feed, venue.retransmission_port());
    EXPECT_TRUE(handler.follow_to(1000));
    EXPECT_EQ(handler.receiver.counters.gaps, 0u);
    EXPECT_EQ(handler.receiver.counters.recovered, 0u);
    EXPECT_GT(handler.receiver.counters.duplicates, 0u);
    EXPECT_GT(handler.receiver.counters.late, 0u);
    EXPECT_EQ(handler.receiver.counters.unconnected, 0u);
}

TEST(FeedHandler, RecoversAFeedOfWhichNothingArrives) {
    const TemporaryFile truth;
    UnreadVenue venue({"--interval-ms", "1", "--drop-every", "1", "--truth-out", truth.path()});
    while (venue.control.next_sequence() < 1000) venue.process.said();
    FeedHandler handler(venue.feed, venue.retransmission_port());
    Notes notes;
    notes.take(handler);
    catch_up(handler, venue);  // a heartbeat is all it ever hears
    EXPECT_EQ(handler.receiver.counters.gaps, 1u);
    EXPECT_EQ(handler.receiver.counters.recovered, notes.last);
    EXPECT_EQ(venue.process.stop(), 0);
    notes.expect(truth_by_sequence(truth));
}

TEST(FeedHandler, StartsAnewFromASnapshotWhenTheHistoryHasForgottenWhatIsMissing) {
    constexpr std::uint64_t history_limit = 200'000;
    constexpr int products = 500;
    UnreadVenue venue({"--symbols", many_symbols(products), "--interval-ms", "0"});
    while (venue.control.next_sequence() <= history_limit + 1) continue;
    ASSERT_EQ(venue.control.ask("pause"), "ok pause\n");
    const std::uint64_t last = venue.control.next_sequence() - 1;
    while (venue.feed.next_datagram(milliseconds(0))) continue;  // whatever the socket could hold of them
    FeedHandler handler(venue.feed, venue.retransmission_port());
    EXPECT_TRUE(handler.follow_to(last));
    EXPECT_EQ(handler.receiver.counters.gaps, 1u);
    EXPECT_EQ(handler.receiver.counters.refreshes, 1u);
    EXPECT_EQ(handler.receiver.next_sequence(), last + 1);
    const std::string first_book = handler.receiver.book().text(1, 100);
    EXPECT_TRUE(first_book.starts_with("A  ")) << first_book;

    // From there on it follows the feed as if it had been there all day.
    WireClient alice(venue.port());
    alice.log_in(login("alice"));
    const std::string welcome = alice.next(2 + products);  // the response, the session and every symbol
    ASSERT_TRUE(welcome.ends_with(" | 501: SU 500 A Q"));
    alice.send(buy("b1").shares(123).at("50.00"));
    while (handler.receiver.book().text(1, 100) == first_book) {
        ASSERT_TRUE(handler.take_datagram(std::chrono::duration_cast<milliseconds>(patience)));
    }
    EXPECT_TRUE(handler.receiver.book().text(1, 100).starts_with("A  123@50 ")) << handler.receiver.book().text(1, 100);
    EXPECT_EQ(handler.receiver.counters.refreshes, 1u);
    EXPECT_EQ(handler.receiver.counters.unconnected, 0u);
}

}  // namespace
}  // namespace kavo::test
